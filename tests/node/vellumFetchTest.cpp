#include <limits>

#include "tests/node/NodeTest.h"

namespace {

using namespace ViewTint::Tests;
using namespace Cobalt::Research;
using Vellum::Image::Image;

const std::string missingDisparity = "Input Source missing disparity. Please add an upstream Q_ParallaxField node.";
const std::string missingOcclusion = "Input Source missing occlusion. Please add an upstream Q_ParallaxField node.";
const std::string missingMask = "Channel selected as Mask is missing. Please connect the correct input.";

class Fetch : public NodeTest {
protected:
    /// Fetches a mask for a picture of the tests' box and gives it back; empty where there is none.
    Image mask(int mode, Op* maskSource = nullptr) {
        op.maskWith = mode;
        connect(maskSource);
        const Image reference({box, 4, Vellum::Pixel::DataEnum::float32}, op.hostContext->device());
        Image fetched;
        const bool there = op.fetchMask(fetched, reference);
        EXPECT_EQ(there, !fetched.empty());
        if (there) {
            EXPECT_EQ(fetched.box(), box);
            EXPECT_EQ(fetched.components(), 1u);
        }
        return fetched;
    }
};

TEST_F(Fetch, TakesAlphaWithTheColoursWhetherThereOrNot) {
    TestSource opaque(box);
    opaque.with(redChannel, constant(0.1f)).with(greenChannel, constant(0.2f)).with(blueChannel, constant(0.3f));
    host.splits[0][2] = &opaque;
    Image leftView, rightView;
    ASSERT_TRUE(op.fetchSourceViews(leftView, rightView));
    EXPECT_EQ(pixel(leftView, 5, 3, 3), 0.5f);
    EXPECT_EQ(pixel(rightView, 5, 3, 2), 0.3f);
    EXPECT_EQ(pixel(rightView, 5, 3, 3), 0.0f);
}

TEST_F(Fetch, NamesWhatAViewLacks) {
    TestSource colourless(box);
    colourless.with(redChannel, constant(1.0f)).with(greenChannel, constant(1.0f));
    host.splits[0][2] = &colourless;
    Image leftView, rightView;
    EXPECT_FALSE(op.fetchSourceViews(leftView, rightView));
    EXPECT_EQ(host.errors, std::vector<std::string>{"Input Source missing rgb"});
    host.splits[0][1] = nullptr;
    EXPECT_FALSE(op.fetchSourceViews(leftView, rightView));
    EXPECT_EQ(host.errors.size(), 2u);
}

TEST_F(Fetch, TakesTheDisparityOfTheCorrectedView) {
    TestSource vectors(box);
    for (Channel channel = 10; channel <= 13; ++channel)
        vectors.with(channel, constant(1.0f * channel));
    host.splits[0][2] = &vectors;
    op.matchInputOffset = 2;
    Image disparity;
    ASSERT_TRUE(op.fetchDisparity(disparity));
    for (int c = 0; c < 4; ++c)
        EXPECT_EQ(pixel(disparity, 1, 1, c), 10.0f + c);

    TestSource halfAPair(box);
    halfAPair.with(10, constant(1.0f)).with(11, constant(1.0f)).with(12, constant(1.0f));
    host.splits[0][2] = &halfAPair;
    EXPECT_FALSE(op.fetchDisparity(disparity));
    EXPECT_EQ(host.errors, std::vector<std::string>{missingDisparity});
}

TEST_F(Fetch, UnitesTheOcclusionOfAllFrames) {
    const auto spot = [](int spotX) { return [spotX](int x, int) { return x == spotX ? 1.0f : 0.25f; }; };
    left.withUndeclared(occlusion, spot(0));
    for (int i = 0; i < 4; ++i)
        frames[i].withUndeclared(occlusion, spot(i + 1));
    Image united;
    ASSERT_TRUE(op.fetchOcclusionMask(united));
    for (int x = 0; x < 6; ++x)
        EXPECT_EQ(pixel(united, x, 2), x < 5 ? 1.0f : 0.25f) << x;
    for (const TestSource& frame : frames)
        EXPECT_EQ(frame.fetched, std::vector<ChannelSet>{{occlusion}});

    op.occlusionCorrection = 2;
    ASSERT_TRUE(op.fetchOcclusionMask(united));
    EXPECT_EQ(pixel(united, 0, 2), 1.0f);
    EXPECT_EQ(pixel(united, 1, 2), 0.25f);
}

TEST_F(Fetch, OcclusionFramesOfOtherBoxesCountWhereTheyAre) {
    op.stabiliseOcclusionsNumberOfFrames = 3;
    left.withUndeclared(occlusion, [](int x, int) { return x == 0 ? -2.0f : 0.5f; });
    TestSource elsewhere({20, 0, 30, 10}), partly({4, -3, 12, 2});
    elsewhere.withUndeclared(occlusion, constant(1.0f));
    partly.withUndeclared(occlusion, constant(0.75f));
    host.splits = {{&base, &left, &right, &elsewhere, &partly}};
    Image united;
    ASSERT_TRUE(op.fetchOcclusionMask(united));
    EXPECT_EQ(united.box(), box);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(pixel(united, x, y), x == 0 ? -2.0f : (x >= 4 && y < 2) ? 0.75f : 0.5f) << x << " " << y;
}

TEST_F(Fetch, AMissingOcclusionFrameIsReportedTwice) {
    host.splits[0][4] = nullptr;
    Image united;
    EXPECT_FALSE(op.fetchOcclusionMask(united));
    EXPECT_EQ(host.errors, (std::vector<std::string>{missingOcclusion, missingDisparity}));
}

TEST_F(Fetch, AnAbortIsSilentExceptDuringOcclusion) {
    left.onFetch = [&](const ChannelSet&) { host.abortWanted = true; };
    Image a, b;
    EXPECT_FALSE(op.fetchSourceViews(a, b));
    EXPECT_FALSE(op.fetchDisparity(a));
    EXPECT_TRUE(mask(1).empty());
    EXPECT_TRUE(host.errors.empty());
    EXPECT_THROW(op.fetchOcclusionMask(a), Cobalt::Base::InterruptedException);
    EXPECT_EQ(host.errors, std::vector<std::string>{missingDisparity});
}

TEST_F(Fetch, MaskOfNoneSelectsEverything) {
    const Image all = mask(0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(pixel(all, x, y), 1.0f);
}

TEST_F(Fetch, MasksComeFromTheChosenChannelsAndInput) {
    TestSource maskSource(box);
    maskSource.withColour(1.0f, 0.5f, 0.25f, 0.125f);
    const float luminance = 0.299f + 0.5f * 0.587f + 0.25f * 0.114f;
    const float expected[] = {1.0f, 0.5f, 0.5f, luminance, 1.0f - luminance, 0.125f, 0.875f};
    for (int mode = 0; mode <= 6; ++mode)
        EXPECT_FLOAT_EQ(pixel(mask(mode, &maskSource), 3, 3), expected[mode]) << mode;
}

TEST_F(Fetch, BeyondItsPictureAMaskSelectsNothingAndAnInvertedOneEverything) {
    TestSource maskSource({2, 1, 5, 3});
    maskSource.withColour(1, 1, 1, 0.75f);
    for (const bool inverted : {false, true}) {
        const Image fitted = mask(inverted ? 6 : 5, &maskSource);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 6; ++x) {
                const float value = x >= 2 && x < 5 && y >= 1 && y < 3 ? 0.75f : 0.0f;
                EXPECT_EQ(pixel(fitted, x, y), inverted ? 1.0f - value : value) << x << " " << y;
            }
    }
}

TEST_F(Fetch, MasksLargerThanThePictureAreCutToIt) {
    TestSource maskSource({-5, -5, 50, 50});
    maskSource.with(alphaChannel, [](int x, int y) { return 0.125f * x + y; });
    const Image fitted = mask(5, &maskSource);
    EXPECT_EQ(pixel(fitted, 0, 0), 0.0f);
    EXPECT_EQ(pixel(fitted, 5, 3), 3.625f);
}

TEST_F(Fetch, NamesAMaskThatIsNotThere) {
    TestSource noAlpha(box);
    noAlpha.with(redChannel, constant(1.0f));
    host.splits.clear();
    EXPECT_TRUE(mask(3).empty());
    EXPECT_TRUE(mask(5, &noAlpha).empty());
    EXPECT_TRUE(mask(4, &noAlpha).empty());
    EXPECT_EQ(host.errors, (std::vector<std::string>{missingMask, missingMask, missingMask}));
}

TEST_F(Fetch, SourceAlphaHasToBeThere) {
    TestSource opaque(box);
    opaque.with(redChannel, constant(1.0f));
    op.maskWith = 1;
    host.splits = {{&opaque, &opaque, &opaque}};
    Image fetched;
    EXPECT_FALSE(op.fetchMask(fetched, Image({box, 4, Vellum::Pixel::DataEnum::float32}, op.hostContext->device())));
    EXPECT_EQ(host.errors, std::vector<std::string>{missingMask});
}

}  // namespace
