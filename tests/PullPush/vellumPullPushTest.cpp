#include "PullPush/PullPush.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "PullPush/src/vellumLevels.h"
#include "compute/Exception.h"
#include "tests/PullPush/PyramidReference.h"
#include "tests/harness/SoftwareDevice.h"

namespace ViewTint::Tests {

namespace {

using Operation = SoftwareDevice::Operation;
using Vellum::Compute::Host::hostDevice;
using Vellum::Image::DeviceBase;
using Vellum::PullPush::levelBoxes;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;

/// One level of the reference's pyramid.
struct Level {
    int width, height;
    std::vector<Filled> pixels;

    Level(int w, int h) : width(w), height(h), pixels(static_cast<std::size_t>(w) * h) {}
    Filled& at(int x, int y) { return pixels[static_cast<std::size_t>(y) * width + x]; }
    Filled nearest(int x, int y) const {
        return pixels[static_cast<std::size_t>(std::clamp(y, 0, height - 1)) * width + std::clamp(x, 0, width - 1)];
    }
};

/// A picture with holes, and its fill.
struct Fill {
    Pixels image;
    Pixels weights;

    Fill(int width, int height, int components, std::uint32_t seed = 1)
        : image(randomPixels({-3, 5, width - 3, height + 5}, components, seed, false)),
          weights(randomPixels({7, -2, width + 7, height - 2}, 1, seed + 1, false)) {
        // Mostly holes; the others lie on both sides of 0 .. 1.
        const Pixels chance = randomPixels(weights.box(), 1, seed + 2, false);
        weights.forEach([&](int x, int y, int) {
            if (chance.at(x, y, 0) < 1.2f) weights.at(x, y, 0) = 0;
        });
    }

    int width() const { return image.box().width(); }
    int height() const { return image.box().height(); }
    void setAllWeights(float weight) {
        weights.forEach([&](int x, int y, int) { weights.at(x, y, 0) = weight; });
    }
    Box resultBox() const { return {100, -50, 100 + width(), -50 + height()}; }

    Pixels run(DeviceBase& primary = hostDevice(), DeviceBase& place = hostDevice()) const {
        BufferManager manager(primary, hostDevice());
        const TestImage imageHere(image, Arrangement::paddedPlanar);
        const TestImage weightsHere(weights, Arrangement::ordinary);
        const TestImage resultHere(randomPixels(resultBox(), image.components(), 77, true), Arrangement::planar);
        const Image from = imageHere.image().distributeTo(place);
        const Image with = weightsHere.image().distributeTo(place);
        Image to = resultHere.image().distributeTo(place);
        Vellum::PullPush::PullPush(manager, packed).apply(from, with, to);
        EXPECT_EQ(firstDifference(image, pixelsOf(from)), "") << "the image is only read";
        EXPECT_EQ(firstDifference(weights, pixelsOf(with)), "") << "the weights are only read";
        EXPECT_TRUE(resultHere.guardsIntact());
        return pixelsOf(to);
    }

    /// The same in double precision, under the result's box.
    Pixels expected() const {
        std::vector<Level> levels{Level(width(), height())};
        for (int y = 0; y < height(); ++y)
            for (int x = 0; x < width(); ++x) {
                Filled& pixel = levels[0].at(x, y);
                for (int c = 0; c < image.components(); ++c)
                    pixel.values[c] = image.at(x + image.box().x0, y + image.box().y0, c);
                pixel.weight = std::clamp(weights.at(x + weights.box().x0, y + weights.box().y0, 0), 0.0f, 1.0f);
            }
        while (levels.back().width > 1 && levels.back().height > 1) {
            const Level& fine = levels.back();
            Level coarse(fine.width / 2, fine.height / 2);
            for (int y = 0; y < coarse.height; ++y)
                for (int x = 0; x < coarse.width; ++x)
                    coarse.at(x, y) = pulledPixel([&](int fx, int fy) { return fine.nearest(fx, fy); }, x, y);
            levels.push_back(coarse);
        }
        for (std::size_t level = levels.size() - 1; level-- > 0;) {
            const Level& coarse = levels[level + 1];
            Level& fine = levels[level];
            for (int y = 0; y < fine.height; ++y)
                for (int x = 0; x < fine.width; ++x)
                    fine.at(x, y) =
                        pushedPixel([&](int cx, int cy) { return coarse.nearest(cx, cy); }, fine.at(x, y), x, y);
        }
        Pixels result(resultBox(), image.components());
        result.forEach([&](int x, int y, int c) {
            result.at(x, y, c) = static_cast<float>(levels[0].nearest(x - 100, y + 50).values[c]);
        });
        return result;
    }
};

void expectNear(const Pixels& expected, const Pixels& actual, const std::string& where) {
    double worst = 0;
    expected.forEach([&](int x, int y, int c) {
        const double difference = std::abs(double{expected.at(x, y, c)} - actual.at(x, y, c));
        if (!(difference <= worst)) worst = difference;
    });
    EXPECT_LE(worst, 2e-6) << where;
}

}  // namespace

TEST(PullPush, doesWhatTheFormulasSay) {
    const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {2, 7}, {3, 3}, {5, 2}, {33, 20}, {67, 45}, {130, 3}};
    std::uint32_t seed = 1;
    for (const auto& [width, height] : sizes)
        for (int components = 1; components <= 4; ++components) {
            const Fill fill(width, height, components, seed += 3);
            expectNear(fill.expected(), fill.run(),
                       std::to_string(width) + " x " + std::to_string(height) + ", " + std::to_string(components));
        }
    // Cut into rows and into columns for several threads.
    const ThreadScope scope(Vellum::Parallel::MakeThreader(3));
    for (const auto& [width, height] : {std::pair(517, 260), std::pair(6007, 7)}) {
        const Fill large(width, height, 2);
        expectNear(large.expected(), large.run(), std::to_string(width));
    }
}

/// The picture is never copied to be the finest level; what comes out is as if it had been.
TEST(PullPush, theResultIsThatOfTheStepsOnACopy) {
    for (const bool hostile : {false, true}) {
        Fill fill(133, 70, 3);
        if (hostile) fill.weights = randomPixels(fill.weights.box(), 1, 5, true);
        const auto atOrigin = [&](const Pixels& pixels, auto&& change) {
            Pixels moved({0, 0, fill.width(), fill.height()}, pixels.components());
            moved.forEach([&](int x, int y, int c) {
                moved.at(x, y, c) = change(pixels.at(x + pixels.box().x0, y + pixels.box().y0, c));
            });
            return moved;
        };
        std::vector<TestImage> values, weights;
        const auto limit = [](float weight) { return std::clamp(weight, 0.0f, 1.0f); };
        values.emplace_back(atOrigin(fill.image, std::identity()), Arrangement::ordinary);
        weights.emplace_back(atOrigin(fill.weights, limit), Arrangement::ordinary);
        const std::vector<Box> boxes = levelBoxes(values[0].image().box(), 0.5f);
        for (std::size_t level = 1; level < boxes.size(); ++level) {
            values.emplace_back(Pixels(boxes[level], 3), Arrangement::ordinary);
            weights.emplace_back(Pixels(boxes[level], 1), Arrangement::ordinary);
            Vellum::PullPush::pull(values[level - 1].image(), weights[level - 1].image(), values[level].image(),
                                   weights[level].image(), packed);
        }
        for (std::size_t level = boxes.size() - 1; level > 0; --level)
            Vellum::PullPush::push(values[level].image(), weights[level].image(), values[level - 1].image(),
                                   weights[level - 1].image(), packed);
        const TestImage result(fill.run(), Arrangement::planar);
        EXPECT_EQ(firstDifference(values[0].pixels(), pixelsOf(result.image().translate({-100, 50}))), "");
    }
}

/// The proportions let the pyramid end in a single pixel.
TEST(PullPush, oneValidPixelFillsEverything) {
    const int corners[][2] = {{0, 0}, {23, 31}, {100, 74}};
    for (const auto& [x0, y0] : corners) {
        Fill fill(101, 75, 2);
        fill.setAllWeights(0);
        const Box& from = fill.image.box();
        fill.weights.at(x0 + fill.weights.box().x0, y0 + fill.weights.box().y0, 0) = 1;
        const Pixels result = fill.run();
        result.forEach([&](int x, int y, int c) {
            const float value = fill.image.at(x0 + from.x0, y0 + from.y0, c);
            const bool there = x == x0 + result.box().x0 && y == y0 + result.box().y0;
            EXPECT_NEAR(result.at(x, y, c), value, there ? 0 : 2e-6 * std::abs(value)) << x << ", " << y;
        });
    }
}

TEST(PullPush, fullWeightKeepsAPixelAndNoWeightAtAllGivesZero) {
    Fill fill(41, 30, 3);
    for (const float weight : {1.0f, 5.0f}) {
        fill.setAllWeights(weight);
        const Pixels result = fill.run();
        const Pixels& image = fill.image;
        result.forEach([&](int x, int y, int c) {
            EXPECT_EQ(result.at(x, y, c), image.at(x - 100 + image.box().x0, y + 50 + image.box().y0, c));
        });
    }
    for (const float weight : {0.0f, -3.0f}) {
        fill.setAllWeights(weight);
        const Pixels result = fill.run();
        result.forEach([&](int x, int y, int c) { EXPECT_EQ(result.at(x, y, c), 0.0f); });
    }
}

TEST(PullPush, levels) {
    const std::vector<Box> hd = levelBoxes({0, 0, 1920, 1080}, 0.5f);
    const int sizes[][2] = {{1920, 1080}, {960, 540}, {480, 270}, {240, 135}, {120, 67}, {60, 33},
                            {30, 16},     {15, 8},    {7, 4},     {3, 2},     {1, 1}};
    ASSERT_EQ(hd.size(), std::size(sizes));
    for (std::size_t i = 0; i < hd.size(); ++i)
        EXPECT_EQ(hd[i], (Box{0, 0, sizes[i][0], sizes[i][1]}));
    EXPECT_EQ(levelBoxes({0, 0, 1, 100}, 0.5f).size(), 1u);
    EXPECT_EQ(levelBoxes({0, 0, 3, 100}, 0.5f).size(), 2u) << "one pixel wide, 50 high: the top";
    EXPECT_EQ(levelBoxes({0, 0, 8, 8}, 1.0f).size(), 1u) << "no change: no end";
    EXPECT_EQ(levelBoxes({0, 0, 0, 8}, 0.5f).size(), 0u);
}

TEST(PullPush, imagesThatDontFitTogetherAreNamed) {
    BufferManager manager(hostDevice(), hostDevice());
    const auto make = [](int width, int components) {
        return TestImage(Pixels({0, 0, width, 4}, components), Arrangement::planar);
    };
    const auto apply = [&](TestImage image, TestImage weights, TestImage result) {
        Vellum::PullPush::PullPush(manager, packed).apply(image.image(), weights.image(), result.image());
    };
    EXPECT_THROW(apply(make(5, 2), make(6, 1), make(5, 2)), Vellum::Compute::Exception);
    EXPECT_THROW(apply(make(5, 2), make(5, 1), make(4, 2)), Vellum::Compute::Exception);
    EXPECT_THROW(apply(make(5, 2), make(5, 2), make(5, 2)), Vellum::Compute::Exception);
    EXPECT_THROW(apply(make(5, 2), make(5, 1), make(5, 3)), Vellum::Compute::Exception);
    EXPECT_NO_THROW(apply(make(5, 2), make(5, 1), make(5, 2)));
    EXPECT_NO_THROW(apply(make(0, 2), make(0, 1), make(0, 2)));
}

/// A device of its own memory, with pictures here and there.
TEST(PullPush, anotherDeviceGivesTheSameBits) {
    const Fill fill(67, 45, 2);
    const Pixels expected = fill.run();
    const SoftwareContext gpu;
    for (DeviceBase* place : {static_cast<DeviceBase*>(&hostDevice()), static_cast<DeviceBase*>(&gpu.device())}) {
        const int before = gpu.device().count(Operation::launch);
        EXPECT_EQ(firstDifference(expected, fill.run(gpu.device(), *place)), "");
        EXPECT_GE(gpu.device().count(Operation::launch) - before, 10) << "it worked there";
    }
    EXPECT_EQ(firstDifference(expected, fill.run(hostDevice(), gpu.device())), "");
    EXPECT_EQ(gpu.device().bytesInUse(), 0u);
    EXPECT_TRUE(gpu.device().gapsIntact());
}

TEST(PullPush, aDeviceWithoutRoomIsLeftAndTheFillDelivered) {
    const Fill fill(67, 45, 2);
    const Pixels expected = fill.run();
    const SoftwareContext gpu;
    fill.run(gpu.device());
    const int all = gpu.device().count(Operation::allocation);
    EXPECT_EQ(all, 2 + 2 * 5 + 1) << "picture and weights, five levels of both, the result";
    for (int number = 0; number < all; ++number) {
        gpu.device().failAt(Operation::allocation, number, SoftwareDevice::Failing::fromThenOn);
        testing::internal::CaptureStdout();
        EXPECT_EQ(firstDifference(expected, fill.run(gpu.device())), "") << number;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: not enough memory on GPU, switching to CPU.\n");
        EXPECT_EQ(gpu.device().bytesInUse(), 0u) << number;
    }
    // The result on a device that has room for nothing else.
    gpu.device().failAt(Operation::allocation, 3, SoftwareDevice::Failing::fromThenOn);
    testing::internal::CaptureStdout();
    EXPECT_EQ(firstDifference(expected, fill.run(gpu.device(), gpu.device())), "");
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

}  // namespace ViewTint::Tests
