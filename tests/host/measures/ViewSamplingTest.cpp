#include "host/measures/ViewSampling.h"

#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

namespace ViewTint::Host {
namespace {

/// Red is x, green is y, blue is 1.
RgbPicture coordinates(int width, int height) {
    RgbPicture picture(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            picture.planes[0][picture.index(x, y)] = float(x);
            picture.planes[1][picture.index(x, y)] = float(y);
            picture.planes[2][picture.index(x, y)] = 1.0f;
        }
    return picture;
}

TEST(SampleThroughDisparity, TakesTheValueThatTheVectorPointsTo) {
    const RgbPicture view = coordinates(6, 5);
    const std::vector<float> vectorX(view.pixels(), -1.25f);
    const std::vector<float> vectorY(view.pixels(), 0.5f);
    const SampledView sampled = sampleThroughDisparity(view, vectorX, vectorY, {});
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x) {
            const std::size_t i = view.index(x, y);
            ASSERT_EQ(sampled.mask[i], x >= 2 && y <= 3 ? 1 : 0) << x << ' ' << y;
            if (sampled.mask[i]) {
                EXPECT_FLOAT_EQ(sampled.picture.planes[0][i], float(x) - 1.25f);
                EXPECT_FLOAT_EQ(sampled.picture.planes[1][i], float(y) + 0.5f);
                EXPECT_FLOAT_EQ(sampled.picture.planes[2][i], 1.0f);
            }
        }
}

TEST(SampleThroughDisparity, LeavesOutOccludedAndUnknownPixels) {
    RgbPicture view = coordinates(4, 1);
    view.planes[0][3] = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> vectorX = {0.0f, 1.0f, std::numeric_limits<float>::quiet_NaN(),
                                        std::numeric_limits<float>::infinity()};
    const std::vector<float> vectorY(4, 0.0f);
    const SampledView open = sampleThroughDisparity(view, vectorX, vectorY, {});
    EXPECT_EQ(open.mask, (std::vector<std::uint8_t>{1, 1, 0, 0}));
    EXPECT_EQ(open.picture.planes[0][1], 2.0f);  // the NaN next to it has no weight
    const SampledView hidden = sampleThroughDisparity(view, vectorX, vectorY, std::vector<float>{0.49f, 0.5f, 0, 0});
    EXPECT_EQ(hidden.mask, (std::vector<std::uint8_t>{1, 0, 0, 0}));
    EXPECT_THROW(sampleThroughDisparity(view, vectorX, std::vector<float>(3), {}), std::invalid_argument);
}

}  // namespace
}  // namespace ViewTint::Host
