#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "BilateralFilter/BilateralFilter.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

class BilateralKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::BilateralFilter::registerKernels(); }
};

struct Grown {
    double distance, mark;
    bool isNew;
};

Grown grown(const Scene& s, int x, int y) {
    const double mark = s.at(1, x, y, 0);
    if (mark != 0) return {s.at(0, x, y, 0), mark, false};
    double best = 99999;
    for (const int dx : {-1, 1})
        for (const int dy : {-1, 1}) {
            const Box& box = s.box(0);
            const int column = x + dx, row = y + dy;
            if (column < box.x0 || column >= box.x1 || row < box.y0 || row >= box.y1) continue;
            if (s.at(1, column, row, 0) > 0) best = std::min(best, s.at(0, column, row, 0));
        }
    if (best < 99999) return {best + 1, 1, true};
    return {10000, 0, false};
}

/// Mostly unmarked pixels, and distances that fit the marks.
void prepareGrowth(int index, Pixels& pixels) {
    pixels.forEach([&](int x, int y, int c) {
        float& v = pixels.at(x, y, c);
        if (index == 0) v = std::floor(4 * std::abs(v));
        if (index == 1) v = v > 1.1f ? 1.0f : v < -0.45f ? -0.5f : 0.0f;
    });
}

struct Filling {
    std::array<float, 3> sigma{0.3f, 0.2f, 0.25f};
    int boost = 2;
    float floor = 1e-3f;
};

/// The rule in double precision.
Pixel filled(const Scene& s, int x, int y, const Filling& f) {
    const Box& box = s.box(2);
    const double m = s.at(1, x, y, 0);
    Pixel value{s.at(3, x, y, 0), s.at(3, x, y, 1), s.at(3, x, y, 2)};
    if (m == 0) return value;
    const int radius = std::max(3, static_cast<int>(std::ceil(s.at(0, x, y, 0) + f.boost)));
    double total = 0, sum[3] = {};
    for (int dx = -radius; dx <= radius; ++dx)
        for (int dy = -radius; dy <= radius; ++dy) {
            const int column = x + dx, row = y + dy;
            if (column < box.x0 || column >= box.x1 || row < box.y0 || row >= box.y1) continue;
            if (s.at(0, column, row, 0) != 0) continue;
            double e = -(dx * dx + dy * dy) * 0.7 / (radius * radius);
            for (int c = 0; c < 3; ++c) {
                const double k = f.sigma[c] > 0 ? 1 / (double{f.sigma[c]} * f.sigma[c]) : 100000;
                e -= std::pow(s.at(2, column, row, c) - s.at(2, x, y, c), 2) * k;
            }
            const double w = std::exp(e) > f.floor ? std::exp(e) : double{f.floor};
            total += w;
            for (int c = 0; c < 3; ++c)
                sum[c] += w * s.at(3, column, row, c);
        }
    if (total > 0)
        for (int c = 0; c < 3; ++c)
            value[c] = value[c] * (1 - m) + sum[c] / total * m;
    return value;
}

void checkFill(const Filling& f, bool hostile) {
    checkKernel({.kernel = "bilateralFillKernel",
                 .reference = [=](const Scene& s, int x, int y) { return filled(s, x, y, f); },
                 .scalars =
                     [=](KernelExecutionContext& context) {
                         context.set({"colourSigma"}, f.sigma);
                         context.set({"radiusBoost"}, f.boost);
                         context.set({"weightFloor"}, f.floor);
                     },
                 .tolerance = 3e-5,
                 .prepare =
                     [](int index, Pixels& pixels) {
                         // A slanted hole with soft rims and single pixels.
                         pixels.forEach([&](int x, int y, int c) {
                             const int depth = std::min({x + y - 4, 12 - x - y, 5});
                             const bool lone = (x * 7 + y * 13) % 29 == 0;
                             float& v = pixels.at(x, y, c);
                             if (index == 0) v = depth > 0 ? static_cast<float>(depth) : lone ? 1.0f : 0.0f;
                             if (index == 1) v = depth > 1 || lone ? 1.0f : depth == 1 ? 0.4f : 0.0f;
                             // Values of pixels that don't give must not matter.
                             if (index == 3 && (depth > 2) && x % 3 == 0) v = INFINITY;
                             if (index == 2 && !std::isfinite(v)) v = 0.3f;
                             if (index == 3 && depth <= 2 && !std::isfinite(v)) v = 0.3f;
                             if (index >= 2 && std::isfinite(v)) v = std::clamp(v, -1.0f, 2.0f);
                         });
                     },
                 .hostilePixels = hostile});
}

}  // namespace

TEST_F(BilateralKernels, growthOfDistances) {
    checkKernel(
        {.kernel = "distanceGrowthKernel",
         .reference = [](const Scene& s, int x, int y) { return Pixel{grown(s, x, y).mark}; },
         .sums =
             [](const Scene& s) {
                 std::map<std::string, std::vector<double>> results{
                     {"count", {0}}, {"minX", {100000}}, {"minY", {100000}}, {"maxX", {-100000}}, {"maxY", {-100000}}};
                 const Box& box = s.box(3);
                 for (int y = box.y0; y < box.y1; ++y)
                     for (int x = box.x0; x < box.x1; ++x) {
                         if (!grown(s, x, y).isNew) continue;
                         results["count"][0] += 1;
                         results["minX"][0] = std::min<double>(results["minX"][0], x);
                         results["minY"][0] = std::min<double>(results["minY"][0], y);
                         results["maxX"][0] = std::max<double>(results["maxX"][0], x);
                         results["maxY"][0] = std::max<double>(results["maxY"][0], y);
                     }
                 return results;
             },
         .range = [](const Box& box) { return IterationController::over(box); },
         .otherReferences = {{2, [](const Scene& s, int x, int y) { return Pixel{grown(s, x, y).distance}; }}},
         .prepare = prepareGrowth,
         .hostilePixels = false});
}

TEST_F(BilateralKernels, fill) {
    checkFill({}, false);
    checkFill({.sigma = {0, 0.5f, 0}, .boost = 6}, false);
    checkFill({.sigma = {1e-3f, 1e-3f, 1e-3f}, .floor = 0.01f}, false);
    checkFill({.boost = -3}, true);
}

}  // namespace ViewTint::Tests
