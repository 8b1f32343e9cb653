#include <gtest/gtest.h>

#include "Common/Common.h"
#include "framework/SextantProgress.h"
#include "framework/SextantVellumBase.h"
#include "tests/framework/TestHost.h"

namespace {

using namespace ViewTint::Tests;
using Vellum::Image::Image;

constexpr auto float32 = Vellum::Pixel::DataEnum::float32;

class TestOperator : public Cobalt::Sextant::SextantVellumBase {
public:
    using SextantVellumBase::SextantVellumBase;
    const char* Class() const override { return "TestOperator"; }
    bool renderPlane(ImagePlane&) override { return rendered = true; }

    bool rendered = false;
};

class PlanarOperator : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::Common::registerKernels(); }

    /// Component c of pixel (x, y) is 100 c + 10 x + y.
    static Image ramp(const Box& box, std::uint32_t components) {
        Image image({box, components, float32}, *VellumLibrary::GetCurrentCPUContext()->devices().front());
        const auto& layout = image.tile().layout;
        for (int c = 0; c < static_cast<int>(components); ++c)
            for (int y = box.y0; y < box.y1; ++y)
                for (int x = box.x0; x < box.x1; ++x)
                    image.data()[(x - box.x0) * layout.x.elements + (y - box.y0) * layout.y.elements +
                                 c * layout.component.elements] = 100.0f * c + 10.0f * x + y;
        return image;
    }

    TestNode node;
    TestOperator op{&node};
};

TEST_F(PlanarOperator, FetchesRowsAndColumnsButNoSinglePixel) {
    TestSource source({0, 0, 10, 10});
    source.withColour(0.25f, 0.5f, 0.75f, 1.0f);
    node.splits = {{&source}};
    const auto fetch = [&](const Box& box, const ChannelSet& channels, int number = 0) {
        Image image;
        const bool fetched = TestOperator::fetchInputImage(op, op, image, number, box, channels);
        EXPECT_EQ(fetched, !image.empty());
        return fetched;
    };
    const ChannelSet red{redChannel};
    EXPECT_TRUE(fetch({3, 0, 4, 10}, red));
    EXPECT_TRUE(fetch({0, 3, 10, 4}, red));
    EXPECT_FALSE(fetch({3, 3, 4, 4}, red));
    EXPECT_FALSE(fetch({9, 9, 20, 20}, red));
    EXPECT_FALSE(fetch({20, 0, 30, 10}, red));
    EXPECT_FALSE(fetch({0, 0, 10, 10}, {}));
    EXPECT_FALSE(fetch({0, 0, 10, 10}, red, 1));
    EXPECT_FALSE(fetch({0, 0, 10, 10}, red, -1));
    node.abortWanted = true;
    EXPECT_FALSE(fetch({0, 0, 10, 10}, red));
    EXPECT_TRUE(node.errors.empty());
}

TEST_F(PlanarOperator, FetchedPixelsOutliveTheirPlane) {
    TestSource source({-3, 2, 5, 9});
    source.with(redChannel, [](int x, int y) { return 10.0f * x + y; }).with(alphaChannel, constant(7.0f));
    node.splits = {{&source}};
    Image image;
    ASSERT_TRUE(TestOperator::fetchInputImage(op, op, image, 0, {-100, 4, 100, 100}, {redChannel, alphaChannel}));
    EXPECT_EQ(image.box(), (Box{-3, 4, 5, 9}));
    EXPECT_EQ(image.components(), 2u);
    EXPECT_TRUE(op.isOnHostDevice(image));
    EXPECT_EQ(pixel(image, -3, 4, 0), -26.0f);
    EXPECT_EQ(pixel(image, 4, 8, 0), 48.0f);
    EXPECT_EQ(pixel(image, 4, 8, 1), 7.0f);
}

TEST_F(PlanarOperator, WrapsPackedAndPlanarPlanesWithoutACopy) {
    for (const bool packed : {false, true}) {
        ImagePlane plane({1, 1, 4, 3}, packed, {redChannel, greenChannel, blueChannel});
        plane.writableBuffer();
        *plane.at(2, 2, 1) = 5.0f;
        Image image;
        op.planeToImage(plane, image);
        EXPECT_EQ(pixel(image, 2, 2, 1), 5.0f);
        EXPECT_EQ(image.data(), plane.buffer().data());
    }
}

TEST_F(PlanarOperator, WritesTheChannelsThatAPlaneHas) {
    const Box box{-1, 2, 6, 5};
    const ChannelSet rgba = ChannelSet::fromMask(rgbaMask);
    for (const bool packed : {false, true}) {
        ImagePlane plane(box, packed, {redChannel, alphaChannel});
        op.writeImageToPlane(plane, ramp(box, 4), rgba);
        ASSERT_TRUE(plane.buffer());
        EXPECT_EQ(*plane.at(3, 4, 0), 34.0f);
        EXPECT_EQ(*plane.at(-1, 2, 1), 292.0f);
        EXPECT_EQ(*plane.at(5, 4, 1), 354.0f);
    }
}

TEST_F(PlanarOperator, WritesNothingUnlessComponentsAndChannelsAgreeInNumber) {
    const Box box{0, 0, 3, 3};
    ImagePlane plane(box, false, ChannelSet::fromMask(rgbaMask));
    op.writeImageToPlane(plane, ramp(box, 4), ChannelSet::fromMask(rgbMask));
    EXPECT_FALSE(plane.buffer());
}

TEST_F(PlanarOperator, WritesIntoPlanesOfOtherBoxes) {
    ImagePlane plane({0, 0, 4, 3}, false, {greenChannel, 25});
    *(plane.writableBuffer(), plane.at(0, 0, 1)) = 3.0f;
    *plane.at(3, 2, 0) = 77.0f;
    op.writeImageToPlane(plane, ramp({2, -5, 9, 2}, 2), {redChannel, greenChannel});
    EXPECT_EQ(*plane.at(3, 1, 0), 131.0f);
    EXPECT_EQ(*plane.at(1, 1, 0), 0.0f);
    EXPECT_EQ(*plane.at(3, 2, 0), 0.0f);
    EXPECT_EQ(*plane.at(0, 0, 1), 3.0f);
}

TEST_F(PlanarOperator, KnowsUsableInputs) {
    TestSource good({0, 0, 2, 2}), flat({0, 0, 9, 1}), narrow({0, 0, 1, 9}), black({0, 0, 9, 9}, "Black");
    node.splits = {{&good, &flat, &narrow, &black, nullptr}, {&good}};
    for (int offset = 0; offset < 6; ++offset)
        EXPECT_EQ(op.isSplitUsable(offset), offset == 0) << offset;
    EXPECT_TRUE(op.inputsUsable(0, 5));
    EXPECT_FALSE(op.inputsUsable(0, 3));
    EXPECT_FALSE(op.isInputUsable(-1));
    EXPECT_EQ(op.maskSourceInput(2, 1), 0);
    EXPECT_EQ(op.maskSourceInput(3, 1), 1);
}

TEST_F(PlanarOperator, RendersByDefaultUnlessAborted) {
    ImagePlane plane({0, 0, 2, 2}, false, {redChannel});
    op.renderStripe(plane);
    EXPECT_TRUE(op.rendered);
    op.rendered = false;
    node.abortWanted = true;
    EXPECT_THROW(op.renderStripe(plane), Cobalt::Base::InterruptedException);
    EXPECT_FALSE(op.rendered);
}

TEST_F(PlanarOperator, ShowsProgressOfItsStages) {
    Cobalt::Base::Progress half(&op, 0.0f, 0.5f);
    half.message("half");
    half.fraction(0.5f);
    op.Progress::fraction(0.25f);
    static_cast<Cobalt::Base::Progress&>(op).fraction(1.0f);
    EXPECT_EQ(node.progress, (std::vector<std::string>{"half", "0.250:0", "dismissed"}));
}

TEST_F(PlanarOperator, StageProgressIsMappedAndNeverDismissed) {
    Cobalt::Sextant::SextantProgress root(&op);
    Cobalt::Base::Progress child(&root, 0.5f, 0.5f);
    child.fraction(0.5f);
    root.fraction(1.0f);
    root.message("done");
    EXPECT_EQ(node.progress, (std::vector<std::string>{"0.750:0", "1.000:0", "done"}));

    Cobalt::Sextant::SextantProgress withoutOperator(nullptr, &root, 0.0f, 0.5f);
    withoutOperator.fraction(0.5f);
    EXPECT_EQ(node.progress.back(), "0.250:0");
}

}  // namespace
