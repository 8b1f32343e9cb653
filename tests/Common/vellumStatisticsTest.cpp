#include <cmath>

#include "tests/Common/CommonTest.h"

namespace ViewTint::Tests {

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

TEST_F(CommonKernels, sum) {
    checkKernel({.kernel = "sumKernel",
                 .sums =
                     [](const Scene& scene) {
                         std::map<std::string, std::vector<double>> results{{"sum", std::vector<double>(4)}};
                         scene.images()[0].forEach(
                             [&](int x, int y, int c) { results["sum"][c] += scene.at(0, x, y, c); });
                         return results;
                     },
                 .hostilePixels = false});
}

TEST_F(CommonKernels, gaussianImage) {
    const auto bell = [](const Box& box, int x, int y) {
        const double dx = x - (box.x0 - 1 + box.x1) * 0.5, dy = y - (box.y0 - 1 + box.y1) * 0.5;
        const double exponent = -(dx * dx + dy * dy) / (2 * 3.0 * 3.0);
        return exponent > -20 ? std::exp(exponent) : 0;
    };
    checkKernel({.kernel = "gaussianImageKernel",
                 .reference = [=](const Scene& scene, int x, int y) { return Pixel{bell(scene.box(0), x, y)}; },
                 .scalars = [](KernelExecutionContext& context) { context.set({"sigma"}, 3.f); },
                 .sums =
                     [=](const Scene& scene) {
                         std::map<std::string, std::vector<double>> results{{"sum", std::vector<double>(4)}};
                         scene.images()[0].forEach(
                             [&](int x, int y, int) { results["sum"][0] += bell(scene.box(0), x, y); });
                         return results;
                     }});
}

TEST(CommonWrappers, gaussianPeaksBetweenTheMiddlePixelsOfAnEvenBox) {
    TestImage image(Pixels({-3, 0, 61, 8}, 1), Arrangement::planar);
    const float total = Vellum::Common::makeGaussian(image.image(), 2);
    const Pixels pixels = image.pixels();
    EXPECT_EQ(pixels.at(28, 3, 0), pixels.at(29, 4, 0));
    EXPECT_NEAR(pixels.at(28, 3, 0), std::exp(-0.5 / 8), 1e-6);
    EXPECT_NEAR(pixels.at(16, 3, 0) / std::exp(-156.5 / 8), 1, 1e-5);
    EXPECT_EQ(pixels.at(15, 3, 0), 0) << "exactly 0, for the exponent of -182.5 / 8 is below -20";
    EXPECT_EQ(Vellum::Common::sum(image.image())[0], total);
}

TEST(CommonWrappers, sumsOfNothingAreZero) {
    const TestImage values(randomPixels({0, 0, 50, 50}, 3, 1, false), Arrangement::planar);
    const TestImage mask(Pixels({0, 0, 50, 50}, 3), Arrangement::planar);
    const auto sums = Vellum::Common::maskedSum(mask.image(), values.image());
    EXPECT_EQ(sums.sum, (Vellum::Common::Float4{}));
    EXPECT_EQ(sums.count, (Vellum::Common::Float4{}));
}

}  // namespace ViewTint::Tests
