#include "host/measures/PictureComparison.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include "host/measures/ColourDifference.h"

namespace ViewTint::Host {
namespace {

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

RgbPicture grey(int width, int height, double code) {
    RgbPicture picture(width, height);
    for (auto& plane : picture.planes)
        std::fill(plane.begin(), plane.end(), float(decodeSrgb(code)));
    return picture;
}

void setGrey(RgbPicture& picture, int x, int y, double code) {
    for (auto& plane : picture.planes)
        plane[picture.index(x, y)] = float(decodeSrgb(code));
}

RgbPicture noise(int width, int height, unsigned seed) {
    RgbPicture picture(width, height);
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    for (auto& plane : picture.planes)
        for (float& pixel : plane)
            pixel = value(random);
    return picture;
}

TEST(Psnr, FollowsFromTheMeanSquaredCodeDifference) {
    EXPECT_NEAR(comparePictures(grey(4, 3, 0.5), grey(4, 3, 0.6), {}).psnr, 20.0, 1e-4);
    // One channel of one of four pixels is off by 0.1: a mean square of 0.01 / 12.
    RgbPicture other = grey(2, 2, 0.5);
    other.planes[1][3] = float(decodeSrgb(0.6));
    EXPECT_NEAR(comparePictures(grey(2, 2, 0.5), other, {}).psnr, 10.0 * std::log10(1200.0), 1e-4);
    // Light beyond white clips: on the screen there is no difference.
    RgbPicture bright = grey(2, 2, 1.0);
    bright.planes[0][0] = 5.0f;
    EXPECT_EQ(comparePictures(grey(2, 2, 1.0), bright, {}).psnr, std::numeric_limits<double>::infinity());
}

TEST(ColourDifferenceStatistics, MeanAndPercentileByRank) {
    const RgbPicture base = grey(10, 10, 0.5);
    RgbPicture other = base;
    setGrey(other, 3, 4, 0.6);
    const Lab middle = labFromLinear(base.planes[0][0], base.planes[1][0], base.planes[2][0]);
    const double light = float(decodeSrgb(0.6));
    const double small = ciede2000(middle, labFromLinear(light, light, light));

    const Comparison one = comparePictures(base, other, {});
    EXPECT_NEAR(one.meanColourDifference, small / 100.0, 1e-6);
    EXPECT_EQ(one.percentile99ColourDifference, 0.0);  // 99 of 100 pixels agree

    setGrey(other, 7, 7, 0.9);
    EXPECT_NEAR(comparePictures(base, other, {}).percentile99ColourDifference, small, 1e-5);
}

/// The windows one by one, straight from the definition.
double plainSsim(const RgbPicture& first, const RgbPicture& second) {
    auto lumaAt = [](const RgbPicture& p, int x, int y) {
        const std::size_t i = p.index(x, y);
        return 0.2126 * encodeSrgb(p.planes[0][i]) + 0.7152 * encodeSrgb(p.planes[1][i]) +
               0.0722 * encodeSrgb(p.planes[2][i]);
    };
    double sum = 0.0;
    int windows = 0;
    for (int y0 = 0; y0 + 11 <= first.height; ++y0)
        for (int x0 = 0; x0 + 11 <= first.width; ++x0) {
            double weights = 0, meanA = 0, meanB = 0, varianceA = 0, varianceB = 0, covariance = 0;
            for (int pass = 0; pass < 2; ++pass)
                for (int v = 0; v < 11; ++v)
                    for (int u = 0; u < 11; ++u) {
                        const double w = std::exp(-((u - 5) * (u - 5) + (v - 5) * (v - 5)) / 4.5);
                        const double a = lumaAt(first, x0 + u, y0 + v);
                        const double b = lumaAt(second, x0 + u, y0 + v);
                        if (pass == 0) {
                            weights += w;
                            meanA += w * a;
                            meanB += w * b;
                        } else {
                            varianceA += w * (a - meanA / weights) * (a - meanA / weights) / weights;
                            varianceB += w * (b - meanB / weights) * (b - meanB / weights) / weights;
                            covariance += w * (a - meanA / weights) * (b - meanB / weights) / weights;
                        }
                    }
            const double a = meanA / weights;
            const double b = meanB / weights;
            sum += (2 * a * b + 0.0001) * (2 * covariance + 0.0009) /
                   ((a * a + b * b + 0.0001) * (varianceA + varianceB + 0.0009));
            ++windows;
        }
    return sum / windows;
}

TEST(Ssim, AgreesWithThePlainDefinition) {
    const RgbPicture first = noise(17, 14, 1);
    RgbPicture second = first;
    const RgbPicture disturbance = noise(17, 14, 2);
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < first.pixels(); ++i)
            second.planes[c][i] = 0.7f * second.planes[c][i] + 0.3f * disturbance.planes[c][i];
    const double ssim = comparePictures(first, second, {}).ssim;
    EXPECT_NEAR(ssim, plainSsim(first, second), 1e-6);
    EXPECT_LT(ssim, 0.99);
    EXPECT_EQ(comparePictures(first, first, {}).ssim, 1.0);
}

TEST(Ssim, FlatPicturesGiveTheLuminanceTermAndTinyOnesNothing) {
    const double expected = (2 * 0.4 * 0.8 + 0.0001) / (0.4 * 0.4 + 0.8 * 0.8 + 0.0001);
    EXPECT_NEAR(comparePictures(grey(12, 11, 0.4), grey(12, 11, 0.8), {}).ssim, expected, 1e-5);
    EXPECT_TRUE(std::isnan(comparePictures(grey(10, 30, 0.4), grey(10, 30, 0.4), {}).ssim));
    EXPECT_TRUE(std::isnan(comparePictures(grey(30, 10, 0.4), grey(30, 10, 0.4), {}).ssim));
}

TEST(Comparison, NonFinitePixelsAreCountedAndHaveNoInfluence) {
    RgbPicture first = grey(20, 15, 0.4);
    RgbPicture second = grey(20, 15, 0.8);
    const Comparison clean = comparePictures(first, second, {});
    first.planes[0][first.index(9, 7)] = notANumber;
    second.planes[2][second.index(10, 7)] = infinity;
    second.planes[1][second.index(0, 0)] = -infinity;
    const Comparison broken = comparePictures(first, second, {});
    EXPECT_EQ(broken.excluded, 3);
    EXPECT_EQ(broken.pixels, 20 * 15 - 3);
    EXPECT_NEAR(broken.psnr, clean.psnr, 1e-9);
    EXPECT_NEAR(broken.ssim, clean.ssim, 1e-9);
    EXPECT_NEAR(broken.meanColourDifference, clean.meanColourDifference, 1e-9);
}

TEST(Comparison, OnlyMaskedInPixelsCount) {
    const RgbPicture first = grey(24, 16, 0.5);
    RgbPicture second = noise(24, 16, 3);
    second.planes[0][0] = notANumber;
    std::vector<std::uint8_t> mask(first.pixels(), 0);
    for (int y = 0; y < 16; ++y)
        for (int x = 12; x < 24; ++x) {
            setGrey(second, x, y, 0.6);
            mask[second.index(x, y)] = 1;
        }
    const Comparison result = comparePictures(first, second, mask);
    EXPECT_EQ(result.pixels, 12 * 16);
    EXPECT_EQ(result.excluded, 0);
    EXPECT_NEAR(result.psnr, 20.0, 1e-4);
    EXPECT_NEAR(result.ssim, (2 * 0.5 * 0.6 + 0.0001) / (0.25 + 0.36 + 0.0001), 1e-5);

    const Comparison none = comparePictures(first, second, std::vector<std::uint8_t>(first.pixels(), 0));
    EXPECT_EQ(none.pixels, 0);
    EXPECT_TRUE(std::isnan(none.psnr) && std::isnan(none.ssim) && std::isnan(none.meanColourDifference));
}

TEST(Comparison, SameNumbersWithAnyThreadCount) {
    const RgbPicture first = noise(97, 61, 4);
    const RgbPicture second = noise(97, 61, 5);
    Comparison results[2];
    for (int i = 0; i < 2; ++i) {
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, i == 0 ? 1 : 3);
        results[i] = comparePictures(first, second, {});
    }
    EXPECT_EQ(results[0].psnr, results[1].psnr);
    EXPECT_EQ(results[0].ssim, results[1].ssim);
    EXPECT_EQ(results[0].meanColourDifference, results[1].meanColourDifference);
    EXPECT_EQ(results[0].percentile99ColourDifference, results[1].percentile99ColourDifference);
}

TEST(Comparison, WrongSizesAndACallerWhoHasEnough) {
    EXPECT_THROW(comparePictures(grey(4, 4, 0.5), grey(4, 5, 0.5), {}), std::invalid_argument);
    EXPECT_THROW(comparePictures(grey(4, 4, 0.5), grey(4, 4, 0.5), std::vector<std::uint8_t>(3)),
                 std::invalid_argument);
    struct Enough {};
    EXPECT_THROW(comparePictures(grey(4, 4, 0.5), grey(4, 4, 0.5), {}, [] { throw Enough(); }), Enough);
}

TEST(DifferencePicture, ShowsTheFactorTimesTheCodeDifference) {
    RgbPicture first = grey(2, 1, 0.5);
    const RgbPicture second = grey(2, 1, 0.6);
    first.planes[1][1] = notANumber;
    const RgbPicture difference = differencePicture(first, second, 4.0);
    EXPECT_NEAR(encodeSrgb(difference.planes[0][0]), 0.4, 1e-5);
    EXPECT_EQ(difference.planes[0][1], 0.0f);
    EXPECT_NEAR(differencePicture(grey(1, 1, 0.0), grey(1, 1, 1.0), 4.0).planes[2][0], 1.0, 1e-6);
}

}  // namespace
}  // namespace ViewTint::Host
