#include <limits>

#include "tests/node/NodeTest.h"

namespace {

using namespace ViewTint::Tests;
using namespace Cobalt::Research;

class Inputs : public NodeTest {
protected:
    /// "frame:view" of each split of input 0.
    std::string contexts() const {
        std::string text;
        for (int offset = 0; offset < 8; ++offset) {
            OutputContext context;
            op.inputContext(0, offset, context);
            text += fmt::format("{}:{} ", context.frame, context.view);
        }
        return text;
    }
};

TEST_F(Inputs, SplitByViewsAndStabilisedFrames) {
    EXPECT_EQ(op.split_input(0), 7);
    EXPECT_EQ(op.split_input(1), 1);
    op.stabiliseOcclusionsNumberOfFrames = 2;
    EXPECT_EQ(op.split_input(0), 4);
    op.occlusionCorrection = 2;
    EXPECT_EQ(op.split_input(0), 3);
    op.occlusionCorrection = 1;
    EXPECT_EQ(op.split_input(0), 4);
    op.stabiliseOcclusions = false;
    EXPECT_EQ(op.split_input(0), 3);
}

TEST_F(Inputs, ReadNeighbourFramesFromTheFirstViewWhicheverIsCorrected) {
    op.setOutputContext({10.0, 2});
    const std::string expected = "10:2 10:1 10:2 9:1 11:1 8:1 12:1 10:2 ";
    EXPECT_EQ(contexts(), expected);
    op.matchWhat = 1;
    EXPECT_EQ(contexts(), expected);
    host.knobs.at("leftView")->set_value(2);
    host.knobs.at("rightView")->set_value(0);
    EXPECT_EQ(contexts(), "10:2 10:2 10:1 9:1 11:1 8:1 12:1 10:2 ");
    host.knobs.clear();
    EXPECT_EQ(contexts(), "10:2 10:1 10:1 9:1 11:1 8:1 12:1 10:2 ");
    OutputContext mask;
    EXPECT_EQ(op.inputContext(1, 1, mask), (OutputContext{10.0, 2}));
}

TEST_F(Inputs, MarkTheCorrectedViewOnly) {
    const auto changed = [&](int matchWhat, int view) {
        op.matchWhat = matchWhat;
        op.setOutputContext({1.0, view});
        op.invalidate();
        op.validate(true);
        return op.outChannels() == ChannelSet::fromMask(rgbaMask);
    };
    EXPECT_TRUE(changed(0, 1));
    EXPECT_FALSE(changed(0, 2));
    EXPECT_FALSE(changed(1, 1));
    EXPECT_TRUE(changed(1, 2));
    EXPECT_TRUE(op.outChannels().contains(alphaChannel));
    EXPECT_EQ(op.info().box, box);
}

TEST_F(Inputs, AlwaysDeliverAlpha) {
    TestSource opaque(box);
    opaque.with(redChannel, constant(1.0f));
    host.splits = {{&opaque, &left, &right}};
    op.validate(true);
    EXPECT_EQ(op.info().channels, (ChannelSet{redChannel, alphaChannel}));
}

TEST_F(Inputs, AreRequestedInOrder) {
    connect(&base);
    const auto requests = [&] {
        RequestOutput output;
        op.getRequests({1, 1, 3, 3}, {redChannel}, 2, output);
        std::string text;
        for (const RequestData& request : output.requests()) {
            EXPECT_EQ(request.box, (Box{1, 1, 3, 3}));
            EXPECT_EQ(request.count, 2);
            const auto* source = static_cast<const TestSource*>(request.iop);
            text += source == &left ? "l" : source == &right ? "r" : source == &base ? "m" : "";
            if (source >= frames && source < frames + 4) text += std::to_string(source - frames + 3);
            text += request.channels.contains(occlusion) ? "o "
                    : request.channels == ChannelSet::fromMask(disparityMask)
                        ? "d "
                        : std::to_string(request.channels.size()) + " ";
        }
        return text;
    };
    EXPECT_EQ(requests(), "l4 r4 ld rd lo 3o 4o 5o 6o ");
    op.stabiliseOcclusionsNumberOfFrames = 3;
    op.matchWhat = 1;
    op.maskWith = 2;
    EXPECT_EQ(requests(), "l4 r4 ld rd ro 3o 4o m1 ");
    op.stabiliseOcclusionsNumberOfFrames = 2;
    op.maskWith = 3;
    EXPECT_EQ(requests(), "l4 r4 ld rd ro 3o m3 ");
    op.occlusionCorrection = 2;
    op.maskWith = 1;
    EXPECT_EQ(requests(), "l4 r4 ld rd ro ");

    RequestOutput none;
    op.getRequests(box, {occlusion, firstDisparityChannel}, 1, none);
    EXPECT_TRUE(none.requests().empty());
}

TEST_F(Inputs, ViewsEnterTheHash) {
    const auto hash = [&] {
        Hash hash;
        op.append(hash);
        return hash;
    };
    const Hash before = hash();
    EXPECT_EQ(before, hash());
    host.knobs.at("rightView")->set_value(1);
    const Hash otherView = hash();
    EXPECT_NE(before, otherView);
    const TestProject larger({"left", "right", "centre"});
    EXPECT_NE(otherView, hash());
}

TEST_F(Inputs, WrongViewsStopTheRenderBeforeItStarts) {
    EXPECT_EQ(op.doPreValidate(nullptr, nullptr), 0);
    EXPECT_TRUE(host.errors.empty());
    host.knobs.at("rightView")->set_value(1);
    EXPECT_EQ(op.doPreValidate(nullptr, nullptr), 2);
    host.knobs.at("rightView")->set_value(5);
    EXPECT_EQ(op.doPreValidate(nullptr, nullptr), 2);
    EXPECT_EQ(host.errors.size(), 2u);
}

TEST(Choices, SmoothingRadiusScalesWithTheWidth) {
    EXPECT_EQ(smoothingRadius(0.0f, 4096), 2);
    EXPECT_EQ(smoothingRadius(1.0f, 2048), 22);
    EXPECT_EQ(smoothingRadius(1.0f, 4096), 40);
    EXPECT_EQ(smoothingRadius(0.5f, 1920), 11);
    EXPECT_EQ(smoothingRadius(-3.0f, 2048), 2);
    EXPECT_EQ(smoothingRadius(1e30f, 2048), 40);
}

TEST(Choices, SamplesChooseTheMatcherOfLocalMatchingOnly) {
    EXPECT_EQ(matcherMode(0, 1), 0);
    EXPECT_EQ(matcherMode(0, 5), 0);
    EXPECT_EQ(matcherMode(1, 1), 2);
    EXPECT_EQ(matcherMode(1, 2), 3);
    EXPECT_EQ(matcherMode(1, 0), 3);
}

}  // namespace
