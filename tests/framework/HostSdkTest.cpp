#include <thread>

#include <gtest/gtest.h>

#include "tests/framework/TestHost.h"

namespace {

using namespace ViewTint::Tests;

TEST(Channels, KeepTheirNumbers) {
    EXPECT_EQ(getChannel("no such channel anywhere", false), noChannel);
    const Channel made = getChannel("made.here", true);
    EXPECT_GE(made, firstNamedChannel);
    EXPECT_EQ(getChannel("made.here", false), made);
    EXPECT_EQ(channelName(made), "made.here");
    EXPECT_EQ(getChannel("disparityR.y", true), 13u);
    EXPECT_EQ(channelName(alphaChannel), "alpha");
    EXPECT_EQ(getChannel("", true), noChannel);
}

TEST(ChannelSets, AreOrderedByNumber) {
    ChannelSet set{alphaChannel, redChannel, redChannel};
    EXPECT_EQ(set.size(), 2u);
    EXPECT_EQ(set.indexOf(alphaChannel), 1);
    EXPECT_EQ(set.indexOf(greenChannel), -1);
    EXPECT_EQ(ChannelSet::fromMask(disparityMask), (ChannelSet{10, 11, 12, 13}));
    EXPECT_TRUE(ChannelSet::fromMask(rgbaMask).contains(set));
    EXPECT_FALSE(ChannelSet::fromMask(rgbMask).contains(set));
    EXPECT_TRUE(ChannelSet::fromMask(rgbMask).intersects(set));
    EXPECT_FALSE(set.intersects(ChannelSet{}));
    EXPECT_TRUE(set.contains(ChannelSet{}));
}

TEST(Hashes, TellNeighboursApart) {
    const auto hashOf = [](auto... values) {
        Hash hash;
        (hash.append(values), ...);
        return hash.value();
    };
    EXPECT_EQ(hashOf(1, 2.0f), hashOf(1, 2.0f));
    EXPECT_NE(hashOf(1, 2), hashOf(2, 1));
    EXPECT_NE(hashOf(std::string_view("ab"), std::string_view("c")),
              hashOf(std::string_view("a"), std::string_view("bc")));
    EXPECT_NE(hashOf(0), hashOf());
    EXPECT_NE(hashOf(0), hashOf(std::int64_t{0}));
    Hash a, b;
    a.append(1);
    b.append(a);
    EXPECT_NE(a, b);
}

TEST(Planes, PlacePixelsPackedAndPlanar) {
    const Box box{-2, 3, 1, 5};
    for (const bool packed : {false, true}) {
        ImagePlane plane(box, packed, {redChannel, alphaChannel});
        EXPECT_FALSE(plane.buffer());
        float* first = plane.writableBuffer().data();
        EXPECT_EQ(plane.at(-2, 3, 0), first);
        EXPECT_EQ(plane.at(0, 4, 1) - first, packed ? (2 + 3) * 2 + 1 : 2 + 3 + 6);
    }
}

TEST(Planes, OfMoreBytesThanAnIntegerHoldsAreRefused) {
    ImagePlane plane({0, 0, 1200306406, 1280696883}, false, ChannelSet::fromMask(0xfff));
    EXPECT_THROW(plane.writableBuffer(), Cobalt::Base::Exception);
}

TEST(Planes, MakeOneBufferForAllThreads) {
    for (int round = 0; round < 50; ++round) {
        ImagePlane plane({0, 0, 4, 4}, false, {redChannel});
        std::array<float*, 4> seen{};
        std::vector<std::thread> threads;
        for (float*& address : seen)
            threads.emplace_back([&] { address = plane.writableBuffer().data(); });
        for (std::thread& thread : threads)
            thread.join();
        for (const float* address : seen)
            EXPECT_EQ(address, seen[0]);
    }
}

TEST(Knobs, ConvertOnTheirWayToTheMember) {
    int whole = 7;
    float real = 0.5f;
    bool flag = false;
    storeValue(KnobStorage(&whole), 3.9);
    storeValue(KnobStorage(&real), 0.25);
    storeValue(KnobStorage(&flag), 0.5);
    storeValue(KnobStorage(), 1.0);
    EXPECT_EQ(whole, 3);
    EXPECT_EQ(real, 0.25f);
    EXPECT_TRUE(flag);
    EXPECT_EQ(storedValue(KnobStorage(&flag)), 1.0);
}

/// Writes 9 wherever it is asked to.
class Painter : public PlanarIop {
public:
    explicit Painter(Node* node) : PlanarIop(node) {}
    const char* Class() const override { return "Painter"; }
    void renderStripe(ImagePlane& plane) override {
        plane.writableBuffer();
        for (int component = 0; component < static_cast<int>(plane.components()); ++component)
            *plane.at(plane.box().x0, plane.box().y0, component) = 9.0f;
    }

protected:
    void _validate(bool forReal) override {
        PlanarIop::_validate(forReal);
        outChannels_ = {redChannel, greenChannel};
    }
};

TEST(PlanarOperators, RenderChangedChannelsAndPassOthersOn) {
    const Box box{0, 0, 2, 2};
    TestSource source(box);
    source.withColour(1, 2, 3, 4);
    TestNode node;
    node.splits = {{&source}};
    Painter painter(&node);
    painter.validate(true);
    EXPECT_EQ(painter.info().box, box);

    ImagePlane changed(box, false, {greenChannel});
    painter.fetchPlane(changed);
    EXPECT_EQ(*changed.at(0, 0, 0), 9.0f);
    EXPECT_TRUE(source.fetched.empty());

    ImagePlane passed(box, true, {blueChannel, alphaChannel});
    painter.fetchPlane(passed);
    EXPECT_EQ(*passed.at(1, 1, 1), 4.0f);

    const auto previous = Cobalt::Base::setOnBrokenContract(Cobalt::Base::OnBrokenContract::raise);
    ImagePlane mixed(box, false, {redChannel, alphaChannel});
    EXPECT_THROW(painter.fetchPlane(mixed), Cobalt::Base::ContractViolation);
    Cobalt::Base::setOnBrokenContract(previous);
}

}  // namespace
