#include "host/packing/StereoPacking.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace ViewTint::Host {
namespace {

using Plane = std::vector<float>;
constexpr float none = DisparityMap::unknown;

/// Eight pixels in a row; only the left view has a map.
StereoPair makePair() {
    StereoPair pair;
    pair.width = 8;
    pair.height = 1;
    for (PackedView* view : {&pair.left, &pair.right}) {
        view->red = {0.0f, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f};
        view->green = Plane(8, view == &pair.left ? 0.25f : 0.75f);
        view->blue = Plane(8, -0.25f);
    }
    pair.left.disparity.emplace(Side::left, 8, 1);
    pair.left.disparity->disparity = {1, 1, none, 1, 3, 3, 1, 1};
    return pair;
}

const Plane& plane(const NewView& view, const std::string& channel) {
    for (const NewView::Plane& candidate : view.planes)
        if (candidate.channel == channel) return candidate.pixels;
    throw std::out_of_range(channel);
}

TEST(PackStereo, ChannelsSignsAndFillingOfBothViews) {
    const PackedPair packed = packStereo(makePair());
    ASSERT_EQ(packed.views.size(), 2u);
    const NewView& left = packed.views[0];
    const NewView& right = packed.views[1];
    EXPECT_EQ(left.name, "left");
    EXPECT_EQ(right.name, "right");
    for (const NewView& view : packed.views) {
        EXPECT_EQ(view.planes.size(), 9u);
        EXPECT_EQ(plane(view, "A"), Plane(8, 1.0f));
        EXPECT_EQ(plane(view, "disparityL.y"), Plane(8, 0.0f));
        EXPECT_EQ(plane(view, "disparityR.y"), Plane(8, 0.0f));
    }
    EXPECT_EQ(plane(left, "G"), Plane(8, 0.25f));
    EXPECT_EQ(plane(right, "G"), Plane(8, 0.75f));
    EXPECT_EQ(plane(left, "disparityR.x"), (Plane{-1, -1, -1, -1, -3, -3, -1, -1}));
    EXPECT_EQ(plane(left, "disparityL.x"), Plane(8, 0.0f));
    EXPECT_EQ(plane(right, "disparityL.x"), (Plane{1, 3, 3, 1, 1, 1, 1, 1}));
    EXPECT_EQ(plane(right, "disparityR.x"), Plane(8, 0.0f));
    EXPECT_EQ(plane(left, "mask_occlusion.alpha"), (Plane{1, 0, 1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(plane(right, "mask_occlusion.alpha"), (Plane{0, 0, 0, 1, 1, 0, 0, 1}));
    EXPECT_EQ(packed.left.unknown, 1u);
    EXPECT_EQ(packed.left.occluded, 3u);
    EXPECT_EQ(packed.right.unknown, 3u);
    EXPECT_EQ(packed.right.occluded, 3u);
}

TEST(PackStereo, GivenOcclusionStaysButUnknownVectorsAreHidden) {
    StereoPair pair = makePair();
    pair.left.occlusion = Plane{0, 0.25f, 0, 0, 1, 0, 0, 0};
    const PackedPair packed = packStereo(std::move(pair));
    EXPECT_EQ(plane(packed.views[0], "mask_occlusion.alpha"), (Plane{0, 0.25f, 1, 0, 1, 0, 0, 0}));
}

TEST(PackStereo, AMapOfTheRightViewAloneServesBoth) {
    StereoPair pair = makePair();
    pair.left.disparity.reset();
    pair.right.disparity.emplace(Side::right, 8, 1);
    pair.right.disparity->disparity = Plane(8, 2.0f);
    const PackedPair packed = packStereo(std::move(pair));
    EXPECT_EQ(plane(packed.views[0], "disparityR.x"), Plane(8, -2.0f));
    EXPECT_EQ(plane(packed.views[0], "mask_occlusion.alpha"), (Plane{1, 1, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(plane(packed.views[1], "disparityL.x"), Plane(8, 2.0f));
    EXPECT_EQ(plane(packed.views[1], "mask_occlusion.alpha"), (Plane{0, 0, 0, 0, 0, 0, 1, 1}));
}

TEST(PackStereo, TheCastFallsOnItsViewOnly) {
    StereoPair pair = makePair();
    pair.left.cast = ColourCast{{2.0, 1.0, 4.0}, {1.0, 0.5, 2.0}, {0.0, 0.125, -0.5}};
    const PackedPair packed = packStereo(std::move(pair));
    EXPECT_FLOAT_EQ(plane(packed.views[0], "R")[7], 1.4f);
    EXPECT_FLOAT_EQ(plane(packed.views[0], "G")[0], 0.625f);  // 0.25^0.5 + 0.125
    EXPECT_FLOAT_EQ(plane(packed.views[0], "B")[0], -0.75f);  // -4 * 0.25^2 - 0.5
    EXPECT_EQ(plane(packed.views[1], "R")[7], 0.7f);
    EXPECT_EQ(plane(packed.views[1], "B")[0], -0.25f);

    Plane broken = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()};
    applyCast({{2, 2, 2}, {2, 2, 2}, {1, 1, 1}}, 0, 2, broken);
    EXPECT_TRUE(std::isnan(broken[0]));
    EXPECT_TRUE(std::isinf(broken[1]));

    Plane rows(6, 1.0f), column = {1, 1};
    const ColourCast across{{2, 4, 2}, {1, 1, 1}, {0, 0, 0}, std::array{1.0, 1.0, 1.0}};
    applyCast(across, 1, 3, rows);
    EXPECT_EQ(rows, (Plane{4, 2.5f, 1, 4, 2.5f, 1}));
    applyCast(across, 1, 1, column);
    EXPECT_EQ(column, (Plane{4, 4}));
}

TEST(PackStereo, RefusesWhatDoesNotFit) {
    StereoPair noMap = makePair();
    noMap.left.disparity.reset();
    EXPECT_THROW(packStereo(std::move(noMap)), std::invalid_argument);
    StereoPair shortPlane = makePair();
    shortPlane.right.green.pop_back();
    EXPECT_THROW(packStereo(std::move(shortPlane)), std::invalid_argument);
    struct Enough {};
    EXPECT_THROW(packStereo(makePair(), [] { throw Enough(); }), Enough);
}

}  // namespace
}  // namespace ViewTint::Host
