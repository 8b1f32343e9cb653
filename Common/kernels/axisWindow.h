// Host forms of filters with a window along one axis: several registers and rows side by side share what they load.
#pragma once

#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The largest radius that has a host form; a window beyond it takes the body.
inline constexpr int mostWindowRadius = 63;
/// Results in the making, enough to hide how long an addition takes: two registers side by side, and down a column
/// four rows of them, which then load one row in place of four.
inline constexpr int registersAbreast = 2;
inline constexpr int rowsAbreast = 4;

/// Values of neighbouring windows.
template <class V, int rows>
struct Abreast {
    static constexpr int columns = registersAbreast * LaneTraits<V>::width;
    V of[rows][registersAbreast];

    /// f(row, register) for each.
    VT_FN void forEach(auto f) {
#pragma GCC unroll 4
        for (int k = 0; k < rows; ++k)
#pragma GCC unroll 2
            for (int b = 0; b < registersAbreast; ++b)
                f(k, b);
    }
};

/// Runs pieces by K::window<rows>(parameters, tap, results): results.of[k][b] is the window of row k and register b,
/// whose first tap is tap(k, b) and whose last is tap(k + 2 radius, b). It adds in the body's order.
template <class K, Counts T, class V>
class AxisWindow {
public:
    VT_FN void run(const Launch& launch, int radius) {
        const bool alongY = launch.imageParameters[0].rangedAxisMask != 0;
        const bool large = launch.x1 - launch.x0 >= Abreast<V, 1>::columns && launch.y1 - launch.y0 >= rowsAbreast;
        if (radius < 1 || radius > mostWindowRadius || (alongY && !large)) return runRows<K, T, V, Reach::unit>(launch);
        for (int c = launch.c0; c < launch.c1; ++c)
            alongY ? runDown(launch, radius, c) : runAcross(launch, radius, c);
    }

private:
    using Params = typename K::Params;
    static constexpr int columns = Abreast<V, 1>::columns;
    /// What is left to the ends of a row: the pixels that read beyond the image, filled up to whole steps.
    static constexpr int mostEdgePixels = (mostWindowRadius + columns) / columns * columns + columns;

    VT_FN int wholeSteps(int count) { return (count + columns - 1) / columns * columns; }

    /// Windows that go down columns, several rows at a time. Pieces overlap at their ends, where the same is written
    /// twice.
    __attribute__((noinline)) static void runDown(const Launch& launch, int radius, int c) {
        const Params parameters = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& a = launch.images[0];
        const int width = launch.x1 - launch.x0;
        for (int y = launch.y0; y < launch.y1; y += rowsAbreast) {
            const int first = y + rowsAbreast <= launch.y1 ? y : launch.y1 - rowsAbreast;
            const float* source[2 * mostWindowRadius + rowsAbreast];
            float* target[rowsAbreast];
            for (int i = 0; i < 2 * radius + rowsAbreast; ++i)
                source[i] = addressIn(a, launch.x0, clampTo(first - radius + i, a.y0, a.y1 - 1), c);
            for (int k = 0; k < rowsAbreast; ++k)
                target[k] = addressIn(launch.images[1], launch.x0, first + k, c);
            for (int x = 0; x < width; x += columns) {
                const int at = x + columns <= width ? x : width - columns;
                Abreast<V, rowsAbreast> results;
                K::window(
                    parameters,
                    [&](int i, int b)
                        VT_INLINE_LAMBDA { return load<V>(source[i] + at + b * LaneTraits<V>::width, 1); },
                    results);
                results.forEach([&](int k, int b) VT_INLINE_LAMBDA {
                    store(results.of[k][b], target[k] + at + b * LaneTraits<V>::width, 1);
                });
            }
        }
    }

    /// `count` windows along a row, whole steps of them; `first` is the first tap of the first window.
    VT_FN void runSteps(const Params& parameters, const float* first, int count, float* target) {
        for (int x = 0; x < count; x += columns) {
            Abreast<V, 1> results;
            K::window(
                parameters,
                [&](int i, int b) VT_INLINE_LAMBDA { return load<V>(first + x + i + b * LaneTraits<V>::width, 1); },
                results);
            results.forEach([&](int, int b) VT_INLINE_LAMBDA {
                store(results.of[0][b], target + x + b * LaneTraits<V>::width, 1);
            });
        }
    }

    /// Windows that go along rows. Those that leave the image, at both ends, read a copy with the edge repeated.
    __attribute__((noinline)) static void runAcross(const Launch& launch, int radius, int c) {
        const Params parameters = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& a = launch.images[0];
        const int imageWidth = a.x1 - a.x0;
        const int begin = launch.x0 - a.x0;
        const int end = launch.x1 - a.x0;
        const int left = begin >= radius ? begin : clampTo(begin + wholeSteps(radius - begin), begin, end);
        const int inside = (end + radius <= imageWidth ? end : imageWidth - radius) - left;
        const int right = inside > 0 ? left + inside / columns * columns : left;
        for (int y = launch.y0; y < launch.y1; ++y) {
            const float* row = addressIn(a, a.x0, y, c);
            float* target = addressIn(launch.images[1], launch.x0, y, c) - begin;
            const auto runEdge = [&](int x, int count) {
                float source[mostEdgePixels + 2 * mostWindowRadius];
                float results[mostEdgePixels];
                copyClamped(row, imageWidth, x - radius, wholeSteps(count) + 2 * radius, source);
                runSteps(parameters, source, wholeSteps(count), results);
                __builtin_memcpy(target + x, results, count * sizeof(float));
            };
            if (left > begin) runEdge(begin, left - begin);
            runSteps(parameters, row + left - radius, right - left, target + left);
            if (end > right) runEdge(right, end - right);
        }
    }
};

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
