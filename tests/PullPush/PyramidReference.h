// The two steps of the fill in double precision, straight from their definition.
#pragma once

#include <algorithm>

#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

inline constexpr float stencil[4][4] = {{0.1111f, 0.3333f, 0.3333f, 0.1111f},
                                        {0.3333f, 1, 1, 0.3333f},
                                        {0.3333f, 1, 1, 0.3333f},
                                        {0.1111f, 0.3333f, 0.3333f, 0.1111f}};

inline double atMostOne(double weight) {
    return weight < 1 ? weight : 1;
}

/// A pixel of either level: its values and its weight.
struct Filled {
    Pixel values{};
    double weight = 0;
};

/// Sums over the stencil.
struct StencilTotals {
    Pixel values{};
    double weight = 0;

    void add(double factor, const Filled& pixel) {
        const double w = factor * atMostOne(pixel.weight);
        for (int c = 0; c < 4; ++c)
            values[c] += w * pixel.values[c];
        weight += w;
    }
};

/// `fine(x, y)` gives the nearest pixel of the finer level.
template <class Fine>
Filled pulledPixel(const Fine& fine, int x, int y) {
    StencilTotals totals;
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            totals.add(stencil[j][i], fine(2 * x - 1 + i, 2 * y - 1 + j));
    Filled pixel{totals.values, totals.weight > 0 ? totals.weight : 0};
    for (double& value : pixel.values)
        if (totals.weight > 0) value /= totals.weight;
    return pixel;
}

/// `coarse(x, y)` gives the nearest pixel of the coarser level, `own` is the finer level's at (x, y).
template <class Coarse>
Filled pushedPixel(const Coarse& coarse, const Filled& own, int x, int y) {
    constexpr int none = -1000000;
    StencilTotals totals;
    for (int j = 0, lastRow = none; j < 4; ++j) {
        const int cy = (y + j - 2) / 2;
        if (cy == lastRow) continue;
        lastRow = cy;
        for (int i = 0, lastColumn = none; i < 4; ++i) {
            const int cx = (x + i - 2) / 2;
            if (cx == lastColumn) continue;
            lastColumn = cx;
            const int iy = y - 2 * cy + 1;
            const int ix = x - 2 * cx + 1;
            if (ix >= 0 && ix <= 3 && iy >= 0 && iy <= 3) totals.add(stencil[iy][ix], coarse(cx, cy));
        }
    }
    const double a = atMostOne(own.weight);
    Filled pixel;
    for (int c = 0; c < 4; ++c)
        pixel.values[c] = (totals.weight > 0 ? totals.values[c] / totals.weight : 0) * (1 - a) + own.values[c] * a;
    const double weight = totals.weight * (1 - a) + a;
    pixel.weight = weight > 0 ? weight : 0;
    return pixel;
}

}  // namespace ViewTint::Tests
