#include <cmath>

#include "tests/Common/CommonTest.h"

namespace ViewTint::Tests {

namespace {

/// Four constants, one for each component.
constexpr std::array<float, 4> constants{0.5f, -2, 3, 0.125f};

KernelCase withConstants(const char* kernel, double (*f)(double a, double constant)) {
    return {.kernel = kernel,
            .reference =
                [=](const Scene& scene, int x, int y) {
                    Pixel pixel{};
                    for (int c = 0; c < scene.count(0); ++c)
                        pixel[c] = f(scene.at(0, x, y, c), constants[c]);
                    return pixel;
                },
            .scalars = [](KernelExecutionContext& context) { context.set({"value"}, constants); }};
}

double softLimited(double v, double L, double S) {
    const double k = -(S - L) * (S - L) / (4 * S);
    if (v > -L - S && v < S - L) return -(-v * v / (4 * S) - v * (S + L) / (2 * S) + k);
    if (v >= S - L && v <= L - S) return v;
    if (v > L - S && v < S + L) return -v * v / (4 * S) + v * (S + L) / (2 * S) + k;
    return L;
}

}  // namespace

TEST_F(CommonKernels, arithmetic) {
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
    checkKernel(withConstants("multiplyConstantKernel", [](double a, double b) { return a * b; }));
    checkKernel(withConstants("addConstantKernel", [](double a, double b) { return a + b; }));
    checkKernel({.kernel = "addKernel", .reference = eachComponent([](auto& v) { return v[0] + v[1]; })});
    checkKernel({.kernel = "subtractKernel", .reference = eachComponent([](auto& v) { return v[0] - v[1]; })});
    checkKernel({.kernel = "multiplyKernel",
                 .reference = eachComponent([](auto& v) { return static_cast<float>(v[0] * v[1]); })});
    checkKernel({.kernel = "divideKernel", .reference = eachComponent([](auto& v) {
                                               return v[1] == 0 ? 0
                                                                : static_cast<double>(static_cast<float>(v[0] / v[1]));
                                           })});
    checkKernel({.kernel = "complexMultiplyKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         const auto value = [&](int image) {
                             return std::pair{scene.at(image, x, y, 0), scene.at(image, x, y, 1)};
                         };
                         const auto [aReal, aImaginary] = value(0);
                         const auto [bReal, bImaginary] = value(1);
                         return Pixel{aReal * bReal - aImaginary * bImaginary, aImaginary * bReal + aReal * bImaginary};
                     },
                 .hostilePixels = false});
}

TEST_F(CommonKernels, clampAndSoftLimit) {
    for (const auto& [lower, upper] : {std::pair{0.f, 1.f}, {0.75f, 0.25f}})
        checkKernel({.kernel = "clampKernel",
                     .reference = eachComponent([=](auto& v) {
                         const double t = lower > v[0] ? lower : v[0];
                         return upper < t ? upper : t;
                     }),
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"lower"}, lower);
                             context.set({"upper"}, upper);
                         },
                     .tolerance = 0});
    for (const auto& [limit, softness] : {std::pair{1.f, 0.1f}, {0.5f, 0.3f}})
        checkKernel({.kernel = "softLimitKernel",
                     .reference = eachComponent([=](auto& v) { return softLimited(v[0], limit, softness); }),
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"limit"}, limit);
                             context.set({"softness"}, softness);
                         },
                     .tolerance = 2e-6,
                     // Whole numbers of sixteenths: the test never lies on a border's rounding.
                     .prepare =
                         [](int, Pixels& pixels) {
                             pixels.forEach([&](int x, int y, int c) {
                                 float& v = pixels.at(x, y, c);
                                 if (std::abs(v) < 100) v = std::round(v * 16) / 16;
                             });
                         }});
}

TEST(CommonWrappers, arithmeticByHand) {
    const TestImage a(row({6, -1, 0, 3}), Arrangement::planar);
    const TestImage b(row({2, 0, 0, NAN}), Arrangement::planar);
    const auto expect = [](const std::vector<float>& expected, auto operation) {
        EXPECT_EQ(firstDifference(row(expected), resultOf(operation, row({0, 0, 0, 0}))), "");
    };
    namespace Common = Vellum::Common;
    expect({8, -1, 0, NAN}, [&](Image& o) { Common::add(a.image(), b.image(), o); });
    expect({4, -1, 0, NAN}, [&](Image& o) { Common::subtract(a.image(), b.image(), o); });
    expect({12, -0.0f, 0, NAN}, [&](Image& o) { Common::multiply(a.image(), b.image(), o); });
    expect({3, 0, 0, NAN}, [&](Image& o) { Common::divide(a.image(), b.image(), o); });
    expect({-12, 2, -0.0f, -6}, [&](Image& o) { Common::multiplyConstant(a.image(), o, -2); });
    expect({5, -2, -1, 2}, [&](Image& o) { Common::addConstant(a.image(), o, {-1, 7, 7, 7}); });
    expect({1, 0, 0, 1}, [&](Image& o) { Common::clamp(a.image(), o, 0, 1); });
    expect({2, 0, 0, NAN}, [&](Image& o) { Common::clamp(b.image(), o, 0, 5); });
    expect({1, 1, 1, 1}, [&](Image& o) { Common::clamp(a.image(), o, 2, 1); });
}

/// (1 + 2i) (3 - i) = 5 + 5i, in place.
TEST(CommonWrappers, complexProductByHand) {
    const auto complex = [](float real, float imaginary) {
        Pixels pixels({0, 0, 1, 1}, 2);
        pixels.at(0, 0, 0) = real;
        pixels.at(0, 0, 1) = imaginary;
        return pixels;
    };
    TestImage a(complex(1, 2), Arrangement::packed);
    const TestImage b(complex(3, -1), Arrangement::packed);
    Vellum::Common::complexMultiply(a.image(), b.image(), a.image());
    EXPECT_EQ(firstDifference(complex(5, 5), a.pixels()), "");
}

/// With a limit of 1 and a softness of 0.1: the line, the parabola at the limit (1 - 0.1 / 4), and +1 on both sides.
TEST(CommonWrappers, softLimitByHand) {
    const TestImage source(row({0.5f, 0.9f, 1.0f, 1.1f, 5, -0.5f, -1.0f, -1.1f, -5, NAN}), Arrangement::planar);
    const Pixels expected = row({0.5f, 0.9f, 0.975f, 1, 1, -0.5f, -0.975f, 1, 1, 1});
    const Pixels limited = resultOf([&](Image& o) { Vellum::Common::softLimit(source.image(), o, 1, 0.1f); }, expected);
    expected.forEach([&](int x, int y, int c) { EXPECT_NEAR(limited.at(x, y, c), expected.at(x, y, c), 1e-6) << x; });
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

/// In single precision 2^24 + 1 + 1 + 1 is 2^24.
TEST(CommonWrappers, weightsAreDividedByTheirSumInSinglePrecision) {
    const TestImage ones(constantPixels({0, 0, 3, 2}, 1, 1), Arrangement::planar);
    const Image sum = Vellum::Common::weightedComponentSum(ones.image(), {0x1p24f, 1, 1, 1}, true);
    EXPECT_EQ(firstDifference(ones.pixels(), pixelsOf(sum)), "");
}

}  // namespace ViewTint::Tests
