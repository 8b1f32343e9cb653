#include "host/packing/DisparityMap.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ViewTint::Host {
namespace {

constexpr float none = DisparityMap::unknown;

DisparityMap rowMap(Side side, const std::vector<float>& disparity) {
    DisparityMap map(side, int(disparity.size()), 1);
    map.disparity = disparity;
    return map;
}

/// Equal values, NaN included.
void expectRow(const std::vector<float>& values, const std::vector<float>& expected) {
    ASSERT_EQ(values.size(), expected.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (std::isnan(expected[i]))
            EXPECT_TRUE(std::isnan(values[i])) << i;
        else
            EXPECT_EQ(values[i], expected[i]) << i;
    }
}

// A wall with disparity 1, and two columns of something nearer, with disparity 3, before it.
const std::vector<float> sceneFromLeft = {1, 1, 1, 1, 3, 3, 1, 1};
const std::vector<float> sceneFromRight = {1, 3, 3, none, none, 1, 1, none};

TEST(ForwardWarp, NearerThingsWinAndUncoveredPixelsStayUnknown) {
    const DisparityMap right = forwardWarp(rowMap(Side::left, sceneFromLeft));
    EXPECT_EQ(right.side, Side::right);
    expectRow(right.disparity, sceneFromRight);
    // Back again: what the right view doesn't see is lost.
    expectRow(forwardWarp(right).disparity, {none, 1, none, none, 3, 3, 1, 1});
}

TEST(ForwardWarp, RoundsToTheNearestPixelAndKeepsTheFraction) {
    expectRow(forwardWarp(rowMap(Side::left, {none, none, none, 1.25f, 2.75f})).disparity,
              {none, 2.75f, 1.25f, none, none});
}

TEST(ForwardWarp, VerticalPartsLeadBack) {
    DisparityMap left(Side::left, 3, 3);
    left.disparity[left.index(2, 0)] = 1.0f;
    left.vertical[left.index(2, 0)] = 2.0f;
    left.disparity[left.index(1, 1)] = 0.0f;
    left.vertical[left.index(1, 1)] = 5.0f;  // leaves the picture
    const DisparityMap right = forwardWarp(left);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(right.known(right.index(x, y)), x == 1 && y == 2) << x << ' ' << y;
    EXPECT_EQ(right.vectorX(right.index(1, 2)), 1.0f);
    EXPECT_EQ(right.vertical[right.index(1, 2)], -2.0f);
}

TEST(Visibility, HiddenOutsideAndUnknownPixelsAreOccluded) {
    const DisparityMap left = rowMap(Side::left, sceneFromLeft);
    const DisparityMap right = rowMap(Side::right, sceneFromRight);
    expectRow(occlusionFromVisibility(left, right), {1, 0, 1, 1, 0, 0, 0, 0});
    expectRow(occlusionFromVisibility(right, left), {0, 0, 0, 1, 1, 0, 0, 1});
    EXPECT_THROW(occlusionFromVisibility(left, left), std::invalid_argument);
    EXPECT_THROW(occlusionFromVisibility(left, rowMap(Side::right, {1})), std::invalid_argument);
}

TEST(Visibility, ADifferenceOfOnePixelIsStillVisible) {
    const DisparityMap left = rowMap(Side::left, {none, none, 1, 1});
    expectRow(occlusionFromVisibility(left, rowMap(Side::right, {none, 2, 2.125f, none})), {1, 1, 0, 1});
    DisparityMap tilted = rowMap(Side::right, {none, 1, 1, none});
    tilted.vertical[2] = 1.5f;
    expectRow(occlusionFromVisibility(left, tilted), {1, 1, 0, 1});
}

TEST(Filling, TakesTheBackgroundSideOfEachGap) {
    DisparityMap right = rowMap(Side::right, sceneFromRight);
    right.vertical = {0, 0, 7, 0, 0, 5, 6, 0};
    fillFromBackground(right);
    expectRow(right.disparity, {1, 3, 3, 1, 1, 1, 1, 1});
    expectRow(right.vertical, {0, 0, 7, 5, 5, 5, 6, 6});

    DisparityMap left = rowMap(Side::left, {none, 4, none, none, 6, none});
    fillFromBackground(left);
    expectRow(left.disparity, {4, 4, 4, 4, 6, 6});

    DisparityMap empty = rowMap(Side::left, {none, none});
    empty.vertical = {none, 3};
    fillFromBackground(empty);
    expectRow(empty.disparity, {0, 0});
    expectRow(empty.vertical, {0, 0});
}

TEST(Filling, RowsDontMix) {
    DisparityMap map(Side::left, 2, 2);
    map.disparity[map.index(0, 1)] = 9.0f;
    fillFromBackground(map);
    expectRow(map.disparity, {0, 0, 9, 9});
}

}  // namespace
}  // namespace ViewTint::Host
