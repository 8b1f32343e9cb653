#include <gtest/gtest.h>

#include <cmath>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "tests/harness/KernelHarness.h"
#include "tests/harness/LabReference.h"

namespace ViewTint::Tests {

namespace {

class CommonKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::Common::registerKernels(); }
};

/// What the last image held before at (x, y).
Pixel before(const Scene& scene, int x, int y) {
    const int last = static_cast<int>(scene.images().size()) - 1;
    Pixel pixel{};
    for (int c = 0; c < scene.count(last); ++c)
        pixel[c] = scene.at(last, x, y, c);
    return pixel;
}

}  // namespace

TEST_F(CommonKernels, onePixelOneComponent) {
    checkKernel({.kernel = "copyKernel", .reference = eachComponent([](auto& v) { return v[0]; }), .tolerance = 0});
    checkKernel({.kernel = "clearKernel", .reference = eachComponent([](auto&) { return 0; }), .tolerance = 0});
    checkKernel({.kernel = "invertKernel", .reference = eachComponent([](auto& v) { return 1 - v[0]; })});
    checkKernel({.kernel = "maxKernel",
                 .reference = eachComponent([](auto& v) { return v[1] > v[0] ? v[1] : v[0]; }),
                 .tolerance = 0});
    for (const bool binarise : {false, true})
        checkKernel({.kernel = "thresholdKernel",
                     .reference = eachComponent([=](auto& v) { return v[0] > 0.25f ? (binarise ? 1 : v[0]) : 0; }),
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"threshold"}, 0.25f);
                             context.set({"binarise"}, binarise);
                         },
                     .tolerance = 0});
    checkKernel({.kernel = "fillConstantKernel",
                 .reference =
                     [](const Scene&, int, int) {
                         return Pixel{1, 2, -3, 0.5};
                     },
                 .scalars =
                     [](KernelExecutionContext& context) {
                         context.set({"value"}, std::array{1.f, 2.f, -3.f, 0.5f});
                     },
                 .tolerance = 0});
}

TEST_F(CommonKernels, channels) {
    for (const auto& [from, to] : {std::pair{0, 1}, {2, 0}, {3, 3}, {-1, 0}, {0, 7}}) {
        checkKernel({.kernel = "copyChannelKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel = before(scene, x, y);
                             const bool there = from >= 0 && from < scene.count(0) && to < scene.count(1);
                             if (there) pixel[to] = scene.at(0, x, y, from);
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"sourceChannel"}, from);
                             context.set({"destChannel"}, to);
                         },
                     .tolerance = 0});
    }
    for (const auto& [first, last] : {std::pair{0, 3}, {1, 2}, {3, 0}}) {
        checkKernel({.kernel = "copyChannelRangeKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel = before(scene, x, y);
                             for (int c = first; c <= last && c < std::min(scene.count(0), scene.count(1)); ++c)
                                 pixel[c] = scene.at(0, x, y, c);
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"firstChannel"}, first);
                             context.set({"lastChannel"}, last);
                         },
                     .tolerance = 0});
    }
}

TEST_F(CommonKernels, maskMix) {
    checkKernel({.kernel = "maskMixKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const double m = scene.at(2, x, y, 0);
                         for (int c = 0; c < std::min(scene.count(0), scene.count(3)); ++c)
                             pixel[c] = (1 - m) * scene.at(1, x, y, c) + m * scene.at(0, x, y, c);
                         return pixel;
                     },
                 .tolerance = 1e-6});
}

TEST_F(CommonKernels, aMaskOfZeroGivesBAndOfOneGivesA) {
    const Box box{0, 0, 37, 3};
    TestImage a(randomPixels(box, 4, 1, false), Arrangement::planar);
    TestImage b(randomPixels(box, 4, 2, false), Arrangement::packed);
    for (const float m : {0.0f, 1.0f}) {
        Pixels values(box, 1);
        values.forEach([&](int x, int y, int) { values.at(x, y, 0) = m; });
        const TestImage mask(values, Arrangement::planar);
        TestImage output(Pixels(box, 4), Arrangement::planar);
        Vellum::Common::maskMix(a.image(), b.image(), mask.image(), output.image());
        EXPECT_EQ(firstDifference(m == 0 ? b.pixels() : a.pixels(), output.pixels()), "");
    }
}

TEST_F(CommonKernels, weightedComponentSum) {
    const std::array<float, 4> weights{0.299f, 0.587f, 0.114f, 0.5f};
    for (const bool normalise : {false, true}) {
        const double scale = normalise ? 1 / (0.299 + 0.587 + 0.114 + 0.5) : 1;
        checkKernel({.kernel = "weightedComponentSumKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel sum{};
                             for (int c = 0; c < scene.count(0); ++c)
                                 sum[0] += scene.at(0, x, y, c) * weights[c] * scale;
                             return sum;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"weights"}, weights);
                             context.set({"normalise"}, normalise);
                         }});
    }
}

TEST_F(CommonKernels, colour) {
    const std::array<float, 9> matrix{0.4f, 0.3f, -0.2f, 0.1f, 0.7f, 0.1f, -1.5f, 0.25f, 2.f};
    checkKernel({.kernel = "colourMatrixKernel",
                 .reference =
                     [=](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         for (int row = 0; row < 3; ++row) {
                             pixel[row] = 0;
                             for (int c = 0; c < 3; ++c)
                                 pixel[row] += scene.at(0, x, y, c) * static_cast<double>(matrix[row * 3 + c]);
                         }
                         return pixel;
                     },
                 .scalars = [=](KernelExecutionContext& context) { context.set({"matrix"}, matrix); }});
    checkKernel({.kernel = "xyzToLabKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const auto lab = labOfXyz({scene.at(0, x, y, 0), scene.at(0, x, y, 1), scene.at(0, x, y, 2)});
                         std::copy(lab.begin(), lab.end(), pixel.begin());
                         return pixel;
                     },
                 .tolerance = 3e-6});
    checkKernel({.kernel = "labToXyzKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const auto xyz = xyzOfLab({scene.at(0, x, y, 0), scene.at(0, x, y, 1), scene.at(0, x, y, 2)});
                         std::copy(xyz.begin(), xyz.end(), pixel.begin());
                         return pixel;
                     },
                 .tolerance = 3e-6});
}

TEST_F(CommonKernels, maskedStatistics) {
    const std::array<float, 4> mean{0.5f, -0.25f, 0, 1};
    auto sums = [](auto value) {
        return [=](const Scene& scene) {
            std::map<std::string, std::vector<double>> results{{"sum", std::vector<double>(4)},
                                                               {"count", std::vector<double>(4)}};
            const Box& box = scene.box(0);
            for (int y = box.y0; y < box.y1; ++y)
                for (int x = box.x0; x < box.x1; ++x)
                    for (int c = 0; c < scene.count(1); ++c) {
                        if (!(scene.at(0, x, y, c) > 0)) continue;
                        results["sum"][c] += value(scene.at(1, x, y, c), c);
                        results["count"][c] += 1;
                    }
            return results;
        };
    };
    checkKernel({.kernel = "maskedSumKernel", .sums = sums([](double v, int) { return v; })});
    checkKernel({.kernel = "maskedSquaredDeviationKernel",
                 .scalars = [=](KernelExecutionContext& context) { context.set({"mean"}, mean); },
                 .sums = sums([=](double v, int c) { return (v - mean[c]) * (v - mean[c]); })});
}

// ---- wrappers

TEST(CommonWrappers, clearAlsoTakesUnsignedImages) {
    Image image({{0, 0, 19, 3}, 2, Vellum::Pixel::DataEnum::unsigned32}, Vellum::Compute::Host::hostDevice());
    auto* values = reinterpret_cast<std::uint32_t*>(image.data());
    values[0] = values[18] = 0xffffffffu;
    Vellum::Common::clear(image);
    EXPECT_EQ(values[0], 0u);
    EXPECT_EQ(values[18], 0u);
}

TEST(CommonWrappers, copyWithUnlikeComponentsTakesTheCommonOnes) {
    const Box box{0, 0, 9, 2};
    const TestImage four(randomPixels(box, 4, 1, false), Arrangement::packed);
    TestImage two(Pixels(box, 2), Arrangement::planar);
    Vellum::Common::copy(four.image(), two.image());
    EXPECT_EQ(two.pixels().at(8, 1, 1), four.pixels().at(8, 1, 1));
    TestImage target(randomPixels(box, 4, 2, false), Arrangement::planar);
    const float kept = target.pixels().at(3, 1, 3);
    Vellum::Common::copy(two.image(), target.image());
    EXPECT_EQ(target.pixels().at(3, 1, 0), two.pixels().at(3, 1, 0));
    EXPECT_EQ(target.pixels().at(3, 1, 3), kept);
}

TEST(CommonWrappers, regionsArePastedWhereTheyFit) {
    const TestImage source(randomPixels({0, 0, 10, 10}, 1, 1, false), Arrangement::planar);
    const Pixels empty({100, 100, 106, 106}, 1);
    const auto pasted = [&](const Box& box, int x, int y) {
        TestImage target(empty, Arrangement::paddedPlanar);
        Vellum::Common::copy(source.image(), box, target.image(), x, y);
        EXPECT_TRUE(target.guardsIntact());
        return target.pixels();
    };
    const Pixels inside = pasted({2, 3, 4, 5}, 101, 102);
    const Pixels all = source.pixels();
    inside.forEach([&](int x, int y, int) {
        const bool covered = x >= 101 && x < 103 && y >= 102 && y < 104;
        EXPECT_EQ(inside.at(x, y, 0), covered ? all.at(x - 99, y - 99, 0) : 0.0f) << x << ", " << y;
    });
    const Pixels partly = pasted({-5, -5, 20, 20}, 98, 99);
    EXPECT_EQ(partly.at(105, 105, 0), all.at(2, 1, 0)) << "the source covers (-5, -5) + 5 only from (0, 0) on";
    EXPECT_EQ(partly.at(102, 105, 0), 0.0f);
    EXPECT_EQ(firstDifference(empty, pasted({0, 0, 5, 5}, 200, 200)), "") << "nothing in common";
    EXPECT_EQ(firstDifference(empty, pasted({20, 20, 25, 25}, 100, 100)), "");

    TestImage two(Pixels({0, 0, 3, 3}, 2), Arrangement::planar);
    Vellum::Common::copyChannel(source.image(), {7, 7, 9, 9}, two.image(), 1, 1, 0, 1);
    EXPECT_EQ(two.pixels().at(2, 2, 1), all.at(8, 8, 0));
    EXPECT_EQ(two.pixels().at(2, 2, 0), 0.0f);
    EXPECT_EQ(two.pixels().at(0, 0, 1), 0.0f);
}

TEST(CommonWrappers, mismatchedBoxesAreRefused) {
    const TestImage small(randomPixels({0, 0, 5, 5}, 1, 1, false), Arrangement::planar);
    TestImage large(randomPixels({0, 0, 6, 5}, 1, 1, false), Arrangement::planar);
    EXPECT_THROW(Vellum::Common::invert(small.image(), large.image()), Vellum::Compute::Exception);
}

TEST(CommonWrappers, sumsOfNothingAreZero) {
    const TestImage values(randomPixels({0, 0, 50, 50}, 3, 1, false), Arrangement::planar);
    const TestImage mask(Pixels({0, 0, 50, 50}, 3), Arrangement::planar);
    const auto sums = Vellum::Common::maskedSum(mask.image(), values.image());
    EXPECT_EQ(sums.sum, (Vellum::Common::Float4{}));
    EXPECT_EQ(sums.count, (Vellum::Common::Float4{}));
}

}  // namespace ViewTint::Tests
