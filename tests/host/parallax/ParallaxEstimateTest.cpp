#include "host/parallax/ParallaxEstimate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Host::Testing {
namespace {

/// A plane of noise, coarse and fine, that can be sampled between its pixels.
class Texture {
public:
    explicit Texture(unsigned seed) {
        std::mt19937 random(seed);
        for (float& value : values_)
            value = static_cast<float>(random() % 1000) / 1000.0f;
    }
    float at(double x, double y) const { return 0.6f * smooth(x / 9, y / 9) + 0.4f * smooth(x / 2.5, y / 2.5); }

private:
    static constexpr int side = 256;
    float value(long x, long y) const { return values_[static_cast<std::size_t>((y & 255) * side + (x & 255))]; }
    float smooth(double x, double y) const {
        const double u = std::floor(x), v = std::floor(y);
        const auto i = static_cast<long>(u), j = static_cast<long>(v);
        const auto a = static_cast<float>(x - u), b = static_cast<float>(y - v);
        return (value(i, j) * (1 - a) + value(i + 1, j) * a) * (1 - b) +
               (value(i, j + 1) * (1 - a) + value(i + 1, j + 1) * a) * b;
    }
    std::vector<float> values_ = std::vector<float>(side * side);
};

constexpr int width = 240, height = 150;

/// A wall with a disparity of its own on each side of a post that stands before it.
float disparityAt(int x) {
    return x >= 100 && x < 140 ? 22.0f : 8.0f;
}

struct Pair {
    RgbPicture left{width, height}, right{width, height};
};

/// The left view pixel by pixel through its disparity; the right one shows `vertical` pixels higher what the left one
/// shows.
Pair pairWith(const std::function<double(double x, double y)>& vertical = [](double, double) { return 0.0; }) {
    const Texture wall(1), post(2);
    Pair pair;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool isPost = disparityAt(x) > 10;
            const bool postInRight = disparityAt(x + 22) > 10;
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t i = pair.left.index(x, y);
                const float tint = 0.8f + 0.1f * static_cast<float>(c);
                pair.left.planes[c][i] = tint * (isPost ? post : wall).at(x, y);
                const double v = y - vertical(x, y);
                pair.right.planes[c][i] = tint * (postInRight ? post.at(x + 22, v) : wall.at(x + 8, v));
            }
        }
    return pair;
}

/// The share of visible pixels of the left view within a pixel of their disparity.
double shareRight(const ParallaxEstimate& estimate) {
    int right = 0, all = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 8; x < width; ++x) {
            if (x > 78 && x < 100) continue;  // hidden behind the post, or at its ragged edge
            ++all;
            right += std::abs(estimate.left.disparity[estimate.left.index(x, y)] - disparityAt(x)) < 1 ? 1 : 0;
        }
    return static_cast<double>(right) / all;
}

}  // namespace

TEST(ParallaxEstimate, findsDisparityAndWhatIsHidden) {
    const Pair pair = pairWith();
    const ParallaxEstimate estimate = estimateParallax(pair.left, pair.right);
    EXPECT_GT(shareRight(estimate), 0.97);
    EXPECT_GT(estimate.matched, 0.85);
    double hidden = 0, visible = 0;
    for (int y = 20; y < height - 20; ++y) {
        for (int x = 88; x < 98; ++x)  // behind the post in the right view
            hidden += estimate.leftOcclusion[estimate.left.index(x, y)];
        for (int x = 150; x < 230; ++x)
            visible += 1 - estimate.leftOcclusion[estimate.left.index(x, y)];
    }
    EXPECT_GT(hidden / (10 * 110), 0.8);
    EXPECT_GT(visible / (80 * 110), 0.97);
    for (const auto* map : {&estimate.left, &estimate.right})
        for (std::size_t i = 0; i < map->pixels(); ++i)
            ASSERT_TRUE(map->known(i)) << "unknown ones are filled";
}

TEST(ParallaxEstimate, neitherExposureNorCastsNorLightMatter) {
    Pair pair = pairWith();
    const double plain = shareRight(estimateParallax(pair.left, pair.right));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::size_t i = pair.left.index(x, y);
            const float lamp = 0.3f + 0.7f * static_cast<float>(x) / width;
            pair.right.planes[0][i] = 1.6f * std::pow(pair.right.planes[0][i], 1.2f) * lamp + 0.03f;
            pair.right.planes[1][i] *= 0.4f * lamp;
            pair.right.planes[2][i] *= 0.4f * lamp;
        }
    EXPECT_GT(shareRight(estimateParallax(pair.left, pair.right)), plain - 0.03);
}

TEST(ParallaxEstimate, verticalMisalignmentIsFoundAndTold) {
    struct Case {
        double shift, roll;
    };
    for (const auto& [shift, roll] : {Case{3, 0}, Case{-2.5, 0}, Case{1, 0.012}}) {
        const auto vertical = [=](double x, double) { return shift + roll * (x - width / 2.0); };
        const Pair pair = pairWith(vertical);
        const ParallaxEstimate estimate = estimateParallax(pair.left, pair.right);
        EXPECT_GT(shareRight(estimate), 0.93) << shift;
        double error = 0;
        for (const int x : {30, 120, 210}) {
            const double match = x - disparityAt(x);
            error = std::max(error, std::abs(estimate.left.vertical[estimate.left.index(x, 75)] - vertical(match, 75)));
            error = std::max(error, std::abs(estimate.right.vertical[estimate.right.index(x, 75)] + vertical(x, 75)));
        }
        EXPECT_LT(error, 0.4) << shift << " " << roll;
    }
}

TEST(ParallaxEstimate, picturesThatTellNothingAreNoDanger) {
    const Pair pair = pairWith();
    const auto estimate = [](const RgbPicture& left, const RgbPicture& right) {
        const ParallaxEstimate result = estimateParallax(left, right);
        for (std::size_t i = 0; i < result.left.pixels(); ++i)
            EXPECT_TRUE(result.left.known(i) && result.right.known(i));
        return result;
    };
    EXPECT_LT(estimate(pair.left, RgbPicture(width, height)).matched, 0.5) << "a black view";
    const ParallaxEstimate same = estimate(pair.left, pair.left);
    EXPECT_GT(same.matched, 0.95);
    for (const float disparity : same.left.disparity)
        ASSERT_LT(std::abs(disparity), 0.5f);
    const Pair other = [] {
        Pair exchanged = pairWith();
        const Texture unlike(7);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (auto& plane : exchanged.right.planes)
                    plane[exchanged.right.index(x, y)] = unlike.at(x, y);
        return exchanged;
    }();
    EXPECT_LT(estimate(other.left, other.right).matched, 0.5) << "another scene";
    RgbPicture stripes(width, height), wall(width, height), broken = pair.right;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (auto& plane : stripes.planes)
                plane[stripes.index(x, y)] = x / 4 % 2 == 0 ? 0.2f : 0.8f;
    for (auto& plane : wall.planes)
        plane.assign(plane.size(), 0.5f);
    estimate(stripes, stripes);
    estimate(wall, wall);
    broken.planes[1][100] = std::nanf("");
    broken.planes[2][5000] = INFINITY;
    EXPECT_GT(estimate(pair.left, broken).matched, 0.8);
    for (const auto& [w, h] : {std::pair{1, 1}, {2, 2}, {7, 3}, {3, 40}, {90, 1}})
        estimate(RgbPicture(w, h), RgbPicture(w, h));
    EXPECT_THROW(estimateParallax(RgbPicture(4, 4), RgbPicture(5, 4)), std::invalid_argument);
}

/// The photographed scene with a measured disparity.
TEST(ParallaxEstimate, theConesAreFoundAsMeasured) {
    const std::filesystem::path path = std::filesystem::path(VIEWTINT_SHARED_DATA) / "cones/cones.exr";
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "no " << path;
    const MultiViewFile file = MultiViewFile::open(path);
    const Box box{0, 0, file.width(), file.height()};
    const auto plane = [&](const std::string& view, const std::string& channel) {
        std::vector<float> pixels(static_cast<std::size_t>(box.pixels()));
        file.read(view, channel, box, pixels.data(), box.width());
        return pixels;
    };
    const auto picture = [&](const std::string& view) {
        RgbPicture result(file.width(), file.height());
        for (std::size_t c = 0; c < 3; ++c)
            result.planes[c] = plane(view, std::string(1, "RGB"[c]));
        return result;
    };
    const ParallaxEstimate estimate = estimateParallax(picture("left"), picture("right"));
    for (const bool left : {true, false}) {
        const auto& map = left ? estimate.left : estimate.right;
        const auto known = plane(left ? "left" : "right", left ? "disparityR.x" : "disparityL.x");
        const auto hidden = plane(left ? "left" : "right", "mask_occlusion.alpha");
        const auto& occlusion = left ? estimate.leftOcclusion : estimate.rightOcclusion;
        int visible = 0, within1 = 0, within2 = 0, agree = 0;
        for (std::size_t i = 0; i < map.pixels(); ++i) {
            agree += (hidden[i] >= 0.5f) == (occlusion[i] >= 0.5f) ? 1 : 0;
            if (hidden[i] >= 0.5f) continue;
            const float error = std::abs(map.vectorX(i) - known[i]);
            ++visible;
            within1 += error <= 1 ? 1 : 0;
            within2 += error <= 2 ? 1 : 0;
        }
        EXPECT_GT(within1, 0.9 * visible);
        EXPECT_GT(within2, 0.92 * visible);
        EXPECT_GT(agree, 0.9 * static_cast<double>(map.pixels()));
    }
}

}  // namespace ViewTint::Host::Testing
