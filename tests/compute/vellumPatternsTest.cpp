#include <gtest/gtest.h>

#include <cmath>

#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

constexpr std::array<float, 4> edgeColour{0.5f, -2.0f, 3.0f, 0.25f};

double outsideIsConstant(const Scene& scene, int x, int y, int c) {
    return scene.box(0).contains({x, y, x + 1, y + 1}) ? scene.at(0, x, y, c) : edgeColour[c];
}

double outsideIsClamped(const Scene& scene, int x, int y, int c) {
    return scene.clamped(0, x, y, c);
}

using Read = double (*)(const Scene&, int, int, int);

Reference axisSum(Read read, bool horizontal, int radius) {
    return [=](const Scene& scene, int x, int y) {
        Pixel sum{};
        for (int c = 0; c < scene.count(1); ++c)
            for (int s = -radius; s <= radius; ++s)
                sum[c] += read(scene, horizontal ? x + s : x, horizontal ? y : y + s, c);
        return sum;
    };
}

Reference corners(Read read) {
    return [=](const Scene& scene, int x, int y) {
        Pixel result{};
        for (int c = 0; c < scene.count(1); ++c)
            result[c] = read(scene, x - 3, y - 1, c) + 2 * read(scene, x + 2, y + 4, c);
        return result;
    };
}

Reference displaced(Read read) {
    return [=](const Scene& scene, int x, int y) {
        const int atX = x + static_cast<int>(scene.at(1, x, y, 0));
        const int atY = y + static_cast<int>(scene.at(1, x, y, 1));
        Pixel result{};
        for (int c = 0; c < scene.count(2); ++c)
            result[c] = read(scene, atX, atY, c);
        return result;
    };
}

}  // namespace

TEST(AccessPatterns, axisClampedAndConstant) {
    for (const bool horizontal : {true, false}) {
        for (const int radius : {0, 2, 19}) {
            auto scalars = [=](KernelExecutionContext& context) {
                context.set({"horizontal"}, horizontal);
                context.set({"radius"}, radius);
            };
            checkKernel({.kernel = "testAxisSumKernel",
                         .reference = axisSum(outsideIsClamped, horizontal, radius),
                         .scalars = scalars,
                         .tolerance = 1e-5});
            checkKernel({.kernel = "testConstantAxisSumKernel",
                         .reference = axisSum(outsideIsConstant, horizontal, radius),
                         .scalars =
                             [=](KernelExecutionContext& context) {
                                 scalars(context);
                                 context.set({"constEdgeColorA"}, edgeColour);
                             },
                         .tolerance = 1e-5});
        }
    }
}

TEST(AccessPatterns, rectangleClampedAndConstant) {
    checkKernel({.kernel = "testCornersKernel", .reference = corners(outsideIsClamped)});
    checkKernel({.kernel = "testConstantCornersKernel",
                 .reference = corners(outsideIsConstant),
                 .scalars = [](KernelExecutionContext& context) { context.set({"constEdgeColorA"}, edgeColour); }});
}

TEST(AccessPatterns, anyPixelClampedAndConstant) {
    auto vectors = [](int index, Pixels& pixels) {
        if (index != 1) return;
        int n = 0;
        pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = static_cast<float>((n++ * 37) % 101 - 50); });
    };
    checkKernel({.kernel = "testDisplacedKernel", .reference = displaced(outsideIsClamped), .prepare = vectors});
    checkKernel({.kernel = "testConstantDisplacedKernel",
                 .reference = displaced(outsideIsConstant),
                 .scalars = [](KernelExecutionContext& context) { context.set({"constEdgeColorA"}, edgeColour); },
                 .prepare = vectors});
}

/// Strips one pixel wide and one pixel high, on which lanes and threads run along the strip.
TEST(AccessPatterns, strips) {
    for (const bool horizontal : {true, false}) {
        for (const int length : {1, 30}) {
            checkKernel({.kernel = "testRunningSumKernel",
                         .reference =
                             [=](const Scene& scene, int x, int y) {
                                 const Box& box = scene.box(0);
                                 const int steps = horizontal ? x - box.x0 : y - box.y0;
                                 Pixel sum{};
                                 for (int c = 0; c < scene.count(1); ++c) {
                                     if (steps >= length) sum[c] = scene.at(1, x, y, c);
                                     for (int i = 0; i <= steps && steps < length; ++i)
                                         sum[c] +=
                                             scene.at(0, horizontal ? box.x0 + i : x, horizontal ? y : box.y0 + i, c);
                                 }
                                 return sum;
                             },
                         .scalars =
                             [=](KernelExecutionContext& context) {
                                 context.set({"horizontal"}, horizontal);
                                 context.set({"length"}, length);
                             },
                         .tolerance = 1e-5,
                         .range =
                             [=](const Box& box) {
                                 return IterationController::over(horizontal ? Box{box.x0, box.y0, box.x0 + 1, box.y1}
                                                                             : Box{box.x0, box.y0, box.x1, box.y0 + 1});
                             },
                         .smallest = length});
        }
    }
}

namespace {

struct MathFunction {
    int number;
    const char* name;
    double (*exact)(double);
    double from, to;
    double ulps;
    float exponent;
};

/// Distance in units of the last place of the exact value's float.
double ulpsBetween(float actual, double exact) {
    const float nearest = static_cast<float>(exact);
    const double unit = std::nextafter(std::abs(nearest), INFINITY) - std::abs(nearest);
    return std::abs(actual - exact) / unit;
}

std::vector<float> evaluate(int function, float exponent, const std::vector<float>& values) {
    Pixels pixels({0, 0, static_cast<int>(values.size()), 1}, 1);
    for (std::size_t i = 0; i < values.size(); ++i)
        pixels.at(static_cast<int>(i), 0, 0) = values[i];
    TestImage a(pixels, Arrangement::planar);
    TestImage o(pixels, Arrangement::planar);
    const Image* list[] = {&a.image(), &o.image()};
    KernelExecutionContext context(Vellum::JIT::Kernel::Make(*Vellum::Kernels::findKernel("testMathKernel"), list,
                                                             Vellum::CodeGen::Flags::packed));
    context.setImageParamBindings(list);
    context.set({"function"}, function);
    context.set({"exponent"}, exponent);
    context.iterate(Vellum::Compute::Host::hostDevice(), {});
    std::vector<float> results;
    o.pixels().forEach([&, computed = o.pixels()](int x, int y, int c) { results.push_back(computed.at(x, y, c)); });
    return results;
}

}  // namespace

TEST(KernelMath, errorsAreAsDocumented) {
    const MathFunction functions[] = {
        {0, "exp", [](double x) { return std::exp(x); }, -87.3, 88.3, 1.5, 1},
        {1, "log", [](double x) { return std::log(x); }, 1e-37, 10, 1.0, 1},
        {2, "pow 1/2.4", [](double x) { return std::pow(x, double{0.41666666f}); }, 1e-6, 1, 4.5, 0.41666666f},
        {2, "pow 2.4", [](double x) { return std::pow(x, double{2.4f}); }, 0.01, 1, 17, 2.4f},
        {3, "cbrt", [](double x) { return std::cbrt(x); }, -100, 100, 2.5, 1},
        {8, "5/12th power", [](double x) { return std::pow(x, 5.0 / 12); }, 0.003, 1, 4.5, 1},
        {8, "5/12th power", [](double x) { return std::pow(x, 5.0 / 12); }, 1, 1e30, 4.5, 1},
        {9, "12/5th power", [](double x) { return std::pow(x, 2.4); }, 0.09, 1, 6.5, 1},
        {9, "12/5th power", [](double x) { return std::pow(x, 2.4); }, 1, 1e15, 6.5, 1},
        {11, "moderate exp2", [](double x) { return std::exp2(x); }, -120, 120, 2.5, 1},
        {10, "sqrt", [](double x) { return std::sqrt(x); }, 0, 100, 0.5001, 1},
    };
    for (const auto& function : functions) {
        std::vector<float> values;
        for (int i = 0; i < 20000; ++i)
            values.push_back(static_cast<float>(function.from + (function.to - function.from) * i / 20000.0));
        const auto results = evaluate(function.number, function.exponent, values);
        double worst = 0;
        float worstAt = 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double exact = function.exact(values[i]);
            if (exact == 0) {
                EXPECT_EQ(results[i], 0.0f) << function.name << " of " << values[i];
                continue;
            }
            const double ulps = ulpsBetween(results[i], exact);
            if (ulps > worst) worstAt = values[i];
            worst = std::max(worst, ulps);
        }
        EXPECT_LE(worst, function.ulps) << function.name << " of " << worstAt;
        RecordProperty(function.name, std::to_string(worst));
    }
    std::vector<float> angles;
    for (int i = -4000; i <= 4000; ++i)
        angles.push_back(static_cast<float>(i) / 1000);
    const auto sines = evaluate(4, 1, angles);
    for (std::size_t i = 0; i < angles.size(); ++i)
        EXPECT_NEAR(sines[i], std::sin(3.14159265358979323846 * double{angles[i]}), 2e-7) << angles[i];
}

TEST(KernelMath, specialValues) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> inputs{0.0f, -0.0f, inf, -inf, nan, -1.0f, 3e9f, -3e9f};
    const auto expect = [&](int function, const std::vector<float>& expected, float exponent = 1) {
        const auto actual = evaluate(function, exponent, inputs);
        for (std::size_t i = 0; i < inputs.size(); ++i)
            EXPECT_TRUE(sameBits(expected[i], actual[i]))
                << "function " << function << " of " << inputs[i] << ": " << actual[i] << " instead of " << expected[i];
    };
    expect(0, {1, 1, inf, 0, nan, evaluate(0, 1, {-1.0f})[0], inf, 0});
    expect(1, {-inf, -inf, inf, nan, nan, nan, evaluate(1, 1, {3e9f})[0], nan});
    expect(2, {0, 0, inf, nan, nan, nan, evaluate(2, 0.5f, {3e9f})[0], nan}, 0.5f);
    expect(3, {0.0f, -0.0f, inf, -inf, nan, -evaluate(3, 1, {1.0f})[0], evaluate(3, 1, {3e9f})[0],
               -evaluate(3, 1, {3e9f})[0]});
    expect(5, {0.0f, -0.0f, inf, -inf, nan, -1.0f, 3e9f, -3e9f});
    expect(6, {0.0f, 0.0f, inf, inf, nan, 1.0f, 3e9f, 3e9f});
    expect(7, {0.25f, 0.25f, 0.75f, 0.25f, nan, 0.25f, 0.75f, 0.25f});
}

TEST(KernelMath, halvesAreRoundedAwayFromZero) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> values{0.49999997f, 8388607.5f, 4194303.75f, 8388609, 1e-45f, 0, 3e38f, inf, nan};
    for (float half = 0.5f; half < 1e7f; half *= 3)
        for (const float v : {std::nextafter(half, 0.0f), half, std::nextafter(half, inf)})
            values.push_back(v);
    for (std::size_t i = values.size(); i-- > 0;)
        values.push_back(-values[i]);
    const auto results = evaluate(12, 1, values);
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_TRUE(sameBits(std::round(values[i]), results[i])) << values[i] << ": " << results[i];
}

/// Every function on every instruction set and in its one-pixel form.
TEST(KernelMath, sameBitsOnEveryInstructionSet) {
    for (int function = 0; function <= 12; ++function)
        checkKernel({.kernel = "testMathKernel", .scalars = [=](KernelExecutionContext& context) {
                         context.set({"function"}, function);
                         context.set({"exponent"}, 2.4f);
                     }});
}

}  // namespace ViewTint::Tests
