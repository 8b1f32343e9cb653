#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <tuple>

#include "GuidedFilter/GuidedFilter.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

class GuidedKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::GuidedFilter::registerKernels(); }
};

/// The mean of value(x + dx, y + dy) over the window.
double windowMean(int radius, const std::function<double(int, int)>& value) {
    double sum = 0;
    for (int dy = -radius; dy <= radius; ++dy)
        for (int dx = -radius; dx <= radius; ++dx)
            sum += value(dx, dy);
    return sum / ((2 * radius + 1) * (2 * radius + 1));
}

struct Line {
    double a, b;
};

Line fitted(const Scene& scene, int x, int y, int radius, double epsilon) {
    const auto p = [&](int dx, int dy) { return scene.clamped(0, x + dx, y + dy, 0); };
    const auto g = [&](int dx, int dy) { return scene.clamped(1, x + dx, y + dy, 0); };
    const double meanP = windowMean(radius, p), meanG = windowMean(radius, g);
    const double covariance = windowMean(radius, [&](int i, int j) { return (p(i, j) - meanP) * (g(i, j) - meanG); });
    const double variance = windowMean(radius, [&](int i, int j) { return std::pow(g(i, j) - meanG, 2); });
    const double a = variance + epsilon == 0 ? 0 : covariance / (variance + epsilon);
    return {a, meanP - a * meanG};
}

/// Nine numbers of a symmetric, positive definite matrix and a right side from a pixel's own.
struct Equations {
    double m[3][3], c[3];
};

Equations equations(const Scene& scene, int x, int y, double epsilon) {
    const auto at = [&](int image) { return scene.at(image, x, y, 0); };
    return {{{at(0) + epsilon, at(1), at(2)}, {at(1), at(3) + epsilon, at(4)}, {at(2), at(4), at(5) + epsilon}},
            {at(6), at(7), at(8)}};
}

/// Gauss with pivots.
std::array<double, 3> solved(Equations e) {
    for (int k = 0; k < 3; ++k) {
        int pivot = k;
        for (int i = k + 1; i < 3; ++i)
            if (std::abs(e.m[i][k]) > std::abs(e.m[pivot][k])) pivot = i;
        std::swap(e.m[k], e.m[pivot]);
        std::swap(e.c[k], e.c[pivot]);
        for (int i = k + 1; i < 3; ++i) {
            const double factor = e.m[i][k] / e.m[k][k];
            for (int j = k; j < 3; ++j)
                e.m[i][j] -= factor * e.m[k][j];
            e.c[i] -= factor * e.c[k];
        }
    }
    std::array<double, 3> s{};
    for (int k = 2; k >= 0; --k) {
        s[k] = e.c[k];
        for (int j = k + 1; j < 3; ++j)
            s[k] -= e.m[k][j] * s[j];
        s[k] /= e.m[k][k];
    }
    return s;
}

/// What the places of an image hold after pixels of another were written to where they map.
Pixels scattered(const Scene& scene, int target, const std::array<float, 2>& scale, const std::array<float, 2>& offset,
                 const std::function<float(int x, int y, int c)>& value) {
    Pixels result = scene.images()[target];
    const Box& from = scene.box(0);
    const Box& to = result.box();
    for (int y = from.y0; y < from.y1; ++y)
        for (int x = from.x0; x < from.x1; ++x)
            for (int c = 0; c < result.components(); ++c) {
                const long column = std::lround(static_cast<float>(x) * scale[0] + offset[0]);
                const long row = std::lround(static_cast<float>(y) * scale[1] + offset[1]);
                result.at(static_cast<int>(std::clamp<long>(column, to.x0, to.x1 - 1)),
                          static_cast<int>(std::clamp<long>(row, to.y0, to.y1 - 1)), c) = value(x, y, c);
            }
    return result;
}

/// A reference that makes the whole picture once for each scene.
Reference wholePicture(std::function<Pixels(const Scene&)> make) {
    struct Latest {
        const Scene* scene = nullptr;
        std::unique_ptr<Pixels> pixels;
    };
    return [make = std::move(make), latest = std::make_shared<Latest>()](const Scene& scene, int x, int y) {
        const int last = static_cast<int>(scene.images().size()) - 1;
        const Box& box = scene.box(last);
        if (latest->scene != &scene || (x == box.x0 && y == box.y0)) {
            latest->scene = &scene;
            latest->pixels = std::make_unique<Pixels>(make(scene));
        }
        Pixel pixel{};
        for (int c = 0; c < latest->pixels->components(); ++c)
            pixel[c] = latest->pixels->at(x, y, c);
        return pixel;
    };
}

}  // namespace

TEST_F(GuidedKernels, slopesOfWindowsOfEverySize) {
    constexpr float epsilon = 0.1f;
    for (const int radius : {0, 1, 3, 11, 15, 17}) {
        SCOPED_TRACE(radius);
        checkKernel(
            {.kernel = "guidedSlopesKernel",
             .reference = [=](const Scene& s, int x, int y) { return Pixel{fitted(s, x, y, radius, epsilon).b}; },
             .scalars =
                 [=](KernelExecutionContext& context) {
                     context.set({"radius"}, radius);
                     context.set({"epsilon"}, epsilon);
                 },
             .tolerance = 3e-6,
             .otherReferences = {{2, [=](const Scene& s, int x,
                                         int y) { return Pixel{fitted(s, x, y, radius, epsilon).a}; }}},
             .hostilePixels = false});
        checkKernel({.kernel = "guidedApplyKernel",
                     .reference =
                         [=](const Scene& s, int x, int y) {
                             const auto mean = [&](int image) {
                                 return windowMean(radius,
                                                   [&](int dx, int dy) { return s.clamped(image, x + dx, y + dy, 0); });
                             };
                             return Pixel{mean(1) + mean(0) * s.at(2, x, y, 0)};
                         },
                     .scalars = [=](KernelExecutionContext& context) { context.set({"radius"}, radius); },
                     .tolerance = 2e-6,
                     .hostilePixels = radius < 4});
    }
}

TEST_F(GuidedKernels, linesFromMeansAndBack) {
    constexpr float epsilon = 0.1f;
    const auto line = [](const Scene& s, int x, int y) {
        const auto at = [&](int image) { return s.at(image, x, y, 0); };
        const double divisor = at(3) - at(1) * at(1) + double{epsilon};
        const double a = divisor == 0 ? 0 : (at(2) - at(0) * at(1)) / divisor;
        return Line{a, at(0) - a * at(1)};
    };
    checkKernel({.kernel = "guidedLineKernel",
                 .reference = [=](const Scene& s, int x, int y) { return Pixel{line(s, x, y).b}; },
                 .scalars = [=](KernelExecutionContext& context) { context.set({"epsilon"}, epsilon); },
                 .tolerance = 1e-5,
                 .otherReferences = {{4, [=](const Scene& s, int x, int y) { return Pixel{line(s, x, y).a}; }}},
                 .prepare =
                     [](int index, Pixels& pixels) {  // squares' means are larger than the squares of means
                         pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) += index == 3 ? 3.0f : 0.0f; });
                     },
                 .hostilePixels = false});
    checkKernel({.kernel = "guidedOutputKernel", .reference = [](const Scene& s, int x, int y) {
                     return Pixel{s.at(1, x, y, 0) + s.at(0, x, y, 0) * s.at(2, x, y, 0)};
                 }});
}

TEST_F(GuidedKernels, solvesForThreeSlopes) {
    constexpr float epsilon = 0.01f;
    const auto slope = [=](int number) {
        return [=](const Scene& s, int x, int y) { return Pixel{solved(equations(s, x, y, epsilon))[number]}; };
    };
    checkKernel({.kernel = "guidedSolveKernel",
                 .reference = slope(2),
                 .scalars = [=](KernelExecutionContext& context) { context.set({"epsilon"}, epsilon); },
                 .tolerance = 2e-5,
                 .otherReferences = {{9, slope(0)}, {10, slope(1)}},
                 .prepare =
                     [](int index, Pixels& pixels) {
                         // Of a dominant diagonal: 0, 3 and 5 hold the diagonal.
                         const bool diagonal = index == 0 || index == 3 || index == 5;
                         pixels.forEach([&](int x, int y, int c) {
                             float& v = pixels.at(x, y, c);
                             v = index < 6 ? (diagonal ? 1.2f + 0.3f * v : 0.4f * (v - 0.5f)) : v;
                         });
                     },
                 .hostilePixels = false});
}

/// Singular matrices and slopes that are no numbers, against the same arithmetic on single floats.
TEST_F(GuidedKernels, solvesWhatCannotBeSolved) {
    const auto slopes = [](const Scene& s, int x, int y) {
        constexpr float least = 1e-7f;
        const auto at = [&](int image) { return static_cast<float>(s.at(image, x, y, 0)); };
        float rr = at(0), gg = at(3), bb = at(5);
        const float rg = at(1), rb = at(2), gb = at(4);
        const auto determinant = [&] {
            return rr * gg * bb - rr * gb * gb - rg * rg * bb + rg * gb * rb + rb * rg * gb - rb * gg * rb;
        };
        float det = determinant();
        if (std::abs(det) < least) {
            rr += least;
            gg += least;
            bb += least;
            det = determinant();
        }
        const float rowR[] = {(gg * bb - gb * gb) / det, (rg * bb - rb * gb) / det, (rg * gb - rb * gg) / det};
        const float m11 = (rr * bb - rb * rb) / det, m12 = (rr * gb - rb * rg) / det, m22 = (rr * gg - rg * rg) / det;
        const float a0 = rowR[0] * at(6) - rowR[1] * at(7) + rowR[2] * at(8);
        const float a1 = m11 * at(7) - rowR[1] * at(6) - m12 * at(8);
        const float a2 = rowR[2] * at(6) - m12 * at(7) + m22 * at(8);
        if (std::isnan(a0) || std::isnan(a1) || std::isnan(a2)) return std::array{1.0f, 1.0f, 1.0f};
        return std::array{a0, a1, a2};
    };
    const auto slope = [=](int number) {
        return [=](const Scene& s, int x, int y) { return Pixel{slopes(s, x, y)[number]}; };
    };
    checkKernel({.kernel = "guidedSolveKernel",
                 .reference = slope(2),
                 .scalars = [](KernelExecutionContext& context) { context.set({"epsilon"}, 0.0f); },
                 .tolerance = 0,
                 .otherReferences = {{9, slope(0)}, {10, slope(1)}},
                 .prepare =
                     [](int index, Pixels& pixels) {
                         pixels.forEach([&](int x, int y, int c) {
                             const bool noVariance = (x + y) % 3 == 0;
                             const bool oneDirection = (x + y) % 3 == 1;
                             float& v = pixels.at(x, y, c);
                             if (noVariance && index < 9) v = index == 6 && x % 2 ? std::nanf("") : 0;
                             if (oneDirection && index < 6) v = 0.25f;
                         });
                     }});
}

TEST_F(GuidedKernels, weightedLineBlur) {
    for (const bool horizontal : {true, false})
        for (const int size : horizontal ? std::vector<int>{0, 1, 3, 60} : std::vector<int>{8}) {
            const int k = std::min(size, 42), h = (k & ~1) / 2;
            std::map<int, double> weights;
            double total = 0;
            const auto bell = [&](int t) { return t == 0 ? 1 : std::exp(-t * t / (0.25 * k * k)); };
            for (int t = -h; t <= h; ++t)
                total += bell(t);
            for (int t = -h; t <= h; ++t)
                for (int i = -k; i <= k; ++i)
                    weights[t + i] += bell(t) / total / (2 * k + 1);
            checkKernel({.kernel = "weightedLineBlurKernel",
                         .reference =
                             [=](const Scene& s, int x, int y) {
                                 Pixel pixel{};
                                 for (int c = 0; c < s.count(1); ++c)
                                     if (c >= s.count(0))
                                         pixel[c] = s.at(1, x, y, c);
                                     else
                                         for (const auto& [t, weight] : weights)
                                             pixel[c] += weight * s.clamped(0, x + (horizontal ? t : 0),
                                                                            y + (horizontal ? 0 : t), c);
                                 return pixel;
                             },
                         .scalars =
                             [=](KernelExecutionContext& context) {
                                 context.set({"size"}, size);
                                 context.set({"horizontal"}, horizontal);
                             },
                         .tolerance = 2e-6});
        }
}

TEST_F(GuidedKernels, ratioAndCombination) {
    checkKernel({.kernel = "guidedRatioKernel",
                 .reference =
                     [](const Scene& s, int x, int y) {
                         Pixel pixel{};
                         for (int c = 0; c < s.count(2); ++c)
                             pixel[c] = static_cast<float>(s.at(0, x, y, c)) /
                                        static_cast<float>(s.at(1, x, y, std::min(1, s.count(1) - 1)));
                         return pixel;
                     },
                 .scalars = [](KernelExecutionContext& context) { context.set({"channel"}, 1); }});
    for (const auto& [colour, grey] : {std::pair(true, false), std::pair(false, true), std::pair(false, false)})
        checkKernel({.kernel = "guidedCombineKernel",
                     .reference =
                         [=](const Scene& s, int x, int y) {
                             Pixel pixel{};
                             for (int c = 0; c < s.count(3); ++c)
                                 pixel[c] = s.at(3, x, y, c);
                             double value = s.at(2, x, y, 0);
                             const bool three = colour && s.count(0) == 3;
                             for (int c = 0; c < 3 && (three || grey); ++c)
                                 value += three ? s.at(0, x, y, c) * s.at(1, x, y, c)
                                                : s.at(0, x, y, 0) * s.at(1, x, y, c) / 3;
                             if (!three && !grey) value += s.at(0, x, y, 0) * s.at(1, x, y, 1);
                             pixel[std::min(1, s.count(3) - 1)] = value;
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"colour"}, colour);
                             context.set({"grey"}, grey);
                             context.set({"channel"}, 1);
                         },
                     .hostilePixels = false});
}

TEST_F(GuidedKernels, scattersToTheNearestPlaces) {
    using Pair = std::array<float, 2>;
    // The second just below a half and on halves, the third out of every range.
    const std::pair<Pair, Pair> maps[] = {{Pair{0.4f, -1.5f}, Pair{1.25f, 3.5f}},
                                          {Pair{1, 1}, Pair{0.49999997f, -0.5f}},
                                          {Pair{1e9f, 0}, Pair{0, -1e9f}}};
    const auto over = [](const Box& box) { return IterationController::over(box); };
    for (const auto& [scale, offset] : maps) {
        const auto set = [scale, offset](KernelExecutionContext& context) {
            context.set({"scale"}, scale);
            context.set({"offset"}, offset);
        };
        checkKernel({.kernel = "markSamplesKernel",
                     .reference = wholePicture([scale, offset](const Scene& s) {
                         return scattered(s, 0, scale, offset, [](int, int, int) { return 1.0f; });
                     }),
                     .scalars = set,
                     .range = over});
        checkKernel({.kernel = "nearestScatterKernel",
                     .reference = wholePicture([scale, offset](const Scene& s) {
                         return scattered(s, 1, scale, offset,
                                          [&](int x, int y, int c) { return static_cast<float>(s.at(0, x, y, c)); });
                     }),
                     .scalars = set,
                     .range = over});
    }
}

}  // namespace ViewTint::Tests
