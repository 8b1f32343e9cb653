#include <gtest/gtest.h>

#include <cmath>

#include "PictureBuilder/PictureBuilder.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

constexpr double pi = 3.14159265358979323846;

class WarpKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::PictureBuilder::registerKernels(); }
};

struct Filter {
    bool lanczos = true;
    int halfWidth = 3;
    int wrapWidth = 0;  // 0: clamped
};

double sinc(double u) {
    return std::abs(u) <= 1e-6 ? 1 : std::sin(pi * u) / (pi * u);
}

/// The picture's pixel by the column rule of the closed panorama, or clamped.
double tap(const Scene& scene, const Filter& filter, double column, double row, int c) {
    if (filter.wrapWidth > 0) {
        while (column < 0)
            column += filter.wrapWidth;
        while (column > filter.wrapWidth)
            column -= filter.wrapWidth;
    }
    return scene.clamped(0, static_cast<int>(column), static_cast<int>(row), c);
}

/// Straight from the formula, tap by tap. Positions in single precision, as the kernel has them.
Reference warped(const Filter& filter) {
    return [=](const Scene& scene, int x, int y) {
        Pixel pixel{};
        const float px = static_cast<float>(x) + static_cast<float>(scene.at(1, x, y, 0));
        const float py = static_cast<float>(y) + static_cast<float>(scene.at(1, x, y, 1));
        if (!(std::abs(px) < 1e9f && std::abs(py) < 1e9f)) return pixel;
        for (int c = 0; c < scene.count(0); ++c) {
            if (!filter.lanczos) {
                const double fx = px - std::floor(px), fy = py - std::floor(py);
                const double x0 = std::floor(px), x1 = std::floor(px + 1), y0 = std::floor(py), y1 = std::floor(py + 1);
                const auto row = [&](double r) {
                    return (1 - fx) * tap(scene, filter, x0, r, c) + fx * tap(scene, filter, x1, r, c);
                };
                pixel[c] = (1 - fy) * row(y0) + fy * row(y1);
                continue;
            }
            const int a = filter.halfWidth;
            double total = 0, weights = 0;
            for (int j = -a; j <= a; ++j)
                for (int i = -a; i <= a; ++i) {
                    const double cx = i + std::trunc(px + 0.5f), cy = j + std::trunc(py + 0.5f);
                    const double tx = px - cx, ty = py - cy;
                    if (std::abs(tx) > a || std::abs(ty) > a) continue;
                    const double w = sinc(tx) * sinc(tx / a) * sinc(ty) * sinc(ty / a);
                    weights += w;
                    total += w * tap(scene, filter, cx, cy, c);
                }
            pixel[c] = weights > 0 ? total / weights : 0;
        }
        return pixel;
    };
}

KernelCase warpCase(const char* kernel, const Filter& filter) {
    return {.kernel = kernel,
            .reference = warped(filter),
            .scalars =
                [=](KernelExecutionContext& context) {
                    context.set({"lanczos"}, filter.lanczos);
                    context.set({"halfWidth"}, filter.halfWidth);
                    if (filter.wrapWidth) context.set({"wrapSize"}, std::array{filter.wrapWidth, 9});
                },
            .tolerance = 2e-6,
            // Displacements within the picture and far outside; one row of wild ones.
            .prepare =
                [](int index, Pixels& pixels) {
                    if (index != 1) return;
                    constexpr float wild[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, 1e-40f, 70000.5f, -70000.5f};
                    const int y = pixels.box().y0;
                    pixels.forEach([&](int px, int py, int c) {
                        float& d = pixels.at(px, py, c);
                        d = py == y && (px + c) % 3 == 0 ? wild[(px - pixels.box().x0) % 8] : (d - 0.5f) * 9;
                    });
                },
            .hostilePixels = false};
}

}  // namespace

TEST_F(WarpKernels, clampedLanczosAndBilinear) {
    checkKernel(warpCase("warpKernel", {}));
    checkKernel(warpCase("warpKernel", {.lanczos = false}));
    checkKernel(warpCase("warpKernel", {.halfWidth = 2}));
}

TEST_F(WarpKernels, closedRoundAWidth) {
    for (const int width : {40, 7, 1})
        checkKernel(warpCase("warpWrapKernel", {.wrapWidth = width}));
    checkKernel(warpCase("warpWrapKernel", {.lanczos = false, .wrapWidth = 31}));
}

TEST_F(WarpKernels, codedPicture) {
    for (const bool encode : {true, false})
        checkKernel({.kernel = "codedPictureKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel{};
                             bool whole = true;
                             for (int c = 0; c < scene.count(0); ++c) {
                                 const double v = scene.at(0, x, y, c);
                                 const bool value = std::abs(v) <= 1e12f;
                                 const double code = v > 0.0031308 ? 1.055 * std::pow(v, 1 / 2.4) - 0.055 : v * 12.92;
                                 pixel[c] = c == 3 && !value ? 0 : encode && c < 3 ? code : v;
                                 whole = whole && (c == 3 || value);
                             }
                             if (!whole) std::fill_n(pixel.begin(), std::min(scene.count(0), 3), NAN);
                             return pixel;
                         },
                     .scalars = [=](KernelExecutionContext& context) { context.set({"encode"}, encode); },
                     .tolerance = 2e-6});
}

/// Only where asked, and decoded: the bits of the plain warp and the transfer curve after it.
TEST_F(WarpKernels, whereAsked) {
    for (const bool wraps : {false, true}) {
        KernelCase where = warpCase(wraps ? "warpWhereWrapKernel" : "warpWhereKernel", {.wrapWidth = wraps ? 40 : 0});
        const auto prepare = where.prepare;
        where.prepare = [=](int index, Pixels& pixels) {
            if (index != 2) return prepare(index, pixels);
            // Whole registers of both kinds, and mixed ones.
            pixels.forEach([&](int x, int y, int) { pixels.at(x, y, 0) = (x / 20 + y) % 3 == 0 || x % 7 == 0; });
        };
        const auto full = warped({.wrapWidth = wraps ? 40 : 0});
        where.reference = [=](const Scene& scene, int x, int y) {
            Pixel pixel{};
            for (int c = 0; c < 4; ++c)
                pixel[c] = scene.at(3, x, y, c);
            if (!(scene.at(2, x, y, 0) > 0)) return pixel;
            pixel = full(scene, x, y);
            for (int c = 0; c < 3; ++c)
                pixel[c] = pixel[c] > 0.04045 ? std::pow((pixel[c] + 0.055) / 1.055, 2.4) : pixel[c] / 12.92;
            return pixel;
        };
        where.tolerance = 1e-5;
        checkKernel(where);
    }
}

}  // namespace ViewTint::Tests
