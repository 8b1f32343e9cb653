// Means over square windows of several quantities at once, whose values are made row by row and whose means are used up
// row by row, so that none of them is ever a picture. Adds as two passes of direct sums would: along x from the left,
// times scale, then along y from below, times scale.
#pragma once

#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// From the next radius on, box means run along their lines and add in another order.
inline constexpr int mostDirectRadius = 15;

template <class V, int quantities>
class WindowMeans {
public:
    static constexpr int width = LaneTraits<V>::width;
    static constexpr int stripColumns = 256;
    static constexpr int rowLength = stripColumns + 2 * mostDirectRadius + 2 + 2 * width;

    /// The values of one row, with the pixels that windows reach to the left and right.
    struct Row {
        alignas(64) float of[quantities][rowLength];
    };

    /// For each row y of the range, strip by strip: makeRow(y, x, count, row) puts pixels x .. x + count - 1 of row y
    /// into `row`, whatever the edge gives; useMeans(y, x, count, means) is given the means at x .. x + count - 1, at
    /// most a register of them.
    VT_FN void run(const Launch& range, int radius, float scale, auto makeRow, auto useMeans) {
        for (int x = range.x0; x < range.x1; x += stripColumns) {
            const int columns = range.x1 - x < stripColumns ? range.x1 - x : stripColumns;
            runStrip(x, columns, range.y0, range.y1, radius, scale, makeRow, useMeans);
        }
    }

private:
    /// Rows whose windows are summed side by side: they load a row of sums once.
    static constexpr int rowsAbreast = width == 16 ? 4 : 2;
    static constexpr int mostRing = 2 * mostDirectRadius + rowsAbreast;

    /// Sums along x of the rows that the windows of some neighbouring rows reach.
    struct Ring {
        alignas(64) float of[mostRing][quantities][stripColumns];
    };

    static constexpr int abreast = 2;
    using Sums = V[quantities][abreast];

    /// Adds the taps of some windows side by side, a register's lanes of taps at a time while `left` lasts: lanes s ..
    /// of one register, then of the next. A load from a place that isn't a register's own costs two, and most taps' are
    /// such; a shuffle costs one.
    template <int... S>
    VT_FN void addShifted(const V (&values)[quantities][abreast + 1], int left, Sums& sums, Sequence<S...>) {
        (void)((S < left ? (addTap<S>(values, sums), true) : false) && ...);
    }
    template <int s>
    VT_FN void addTap(const V (&values)[quantities][abreast + 1], Sums& sums) {
#pragma GCC unroll 4
        for (int q = 0; q < quantities; ++q)
#pragma GCC unroll 2
            for (int b = 0; b < abreast; ++b)
                sums[q][b] += shifted<s>(values[q][b], values[q][b + 1], EachLane{});
    }
    template <int s, int... I>
    VT_FN V shifted(V low, V high, Sequence<I...>) {
        return V(__builtin_shufflevector(low.v, high.v, (s + I)...));
    }

    __attribute__((noinline)) static void sumAlongRow(const Row& row, int columns, int radius, float scale,
                                                      float (&sums)[quantities][stripColumns]) {
        const int taps = 2 * radius + 1;
        for (int x = 0; x < columns; x += abreast * width) {
            Sums sum;
#pragma GCC unroll 4
            for (int q = 0; q < quantities; ++q)
#pragma GCC unroll 2
                for (int b = 0; b < abreast; ++b)
                    sum[q][b] = V(0.f);
            if constexpr (width == 16) {
                for (int done = 0; done < taps; done += width) {
                    V values[quantities][abreast + 1];
#pragma GCC unroll 4
                    for (int q = 0; q < quantities; ++q)
#pragma GCC unroll 3
                        for (int b = 0; b <= abreast; ++b)
                            values[q][b] = load<V>(&row.of[q][x + done + b * width], 1);
                    addShifted(values, taps - done, sum, EachLane{});
                }
            } else {
                for (int i = 0; i < taps; ++i)
#pragma GCC unroll 4
                    for (int q = 0; q < quantities; ++q)
#pragma GCC unroll 2
                        for (int b = 0; b < abreast; ++b)
                            sum[q][b] += load<V>(&row.of[q][x + i + b * width], 1);
            }
#pragma GCC unroll 4
            for (int q = 0; q < quantities; ++q)
#pragma GCC unroll 2
                for (int b = 0; b < abreast; ++b)
                    store(sum[q][b] * scale, &sums[q][x + b * width], 1);
        }
    }

    template <int rows>
    VT_FN void useRows(const Ring& ring, int oldest, int ringRows, int x, int columns, int y, int radius, float scale,
                       auto useMeans) {
        for (int column = 0; column < columns; column += width) {
            V sum[rows][quantities];
#pragma GCC unroll 4
            for (int k = 0; k < rows; ++k)
#pragma GCC unroll 4
                for (int q = 0; q < quantities; ++q)
                    sum[k][q] = V(0.f);
            int slot = oldest;
            const int last = 2 * radius + rows - 1;
            const auto addRow = [&](int i, int firstRow, int lastRow) VT_INLINE_LAMBDA {
#pragma GCC unroll 4
                for (int q = 0; q < quantities; ++q) {
                    const V value = load<V>(&ring.of[slot][q][column], 1);
#pragma GCC unroll 4
                    for (int k = 0; k < rows; ++k)
                        if (k >= firstRow && k <= lastRow) sum[k][q] += value;
                }
                slot = slot + 1 == ringRows ? 0 : slot + 1;
                (void)i;
            };
            int i = 0;
            if (2 * radius + 1 >= rows) {
                // The first rows of sums belong to the lowest windows only, the last to the highest.
#pragma GCC unroll 4
                for (; i < rows - 1; ++i)
                    addRow(i, 0, i);
                for (; i <= last - (rows - 1); ++i)
                    addRow(i, 0, rows - 1);
#pragma GCC unroll 4
                for (int j = 1; j < rows; ++j, ++i)
                    addRow(i, j, rows - 1);
            } else {
                for (; i <= last; ++i)
                    addRow(i, i - 2 * radius, i);
            }
            const int count = columns - column < width ? columns - column : width;
#pragma GCC unroll 4
            for (int k = 0; k < rows; ++k) {
#pragma GCC unroll 4
                for (int q = 0; q < quantities; ++q)
                    sum[k][q] = sum[k][q] * scale;
                useMeans(y + k, x + column, count, sum[k]);
            }
        }
    }

    VT_FN void runStrip(int x, int columns, int y0, int y1, int radius, float scale, auto makeRow, auto useMeans) {
        Ring ring;
        Row row;
        const int ringRows = 2 * radius + rowsAbreast;
        const int reached = columns + 2 * radius;
        for (int q = 0; q < quantities; ++q)  // what fills up the last register of a row
            for (int i = reached; i < reached + 2 * width && i < rowLength; ++i)
                row.of[q][i] = 0;
        int next = 0;            // the slot of the next row of sums
        int made = y0 - radius;  // its y
        const auto makeUpTo = [&](int end) VT_INLINE_LAMBDA {
            for (; made < end; ++made) {
                makeRow(made, x - radius, reached, row);
                sumAlongRow(row, columns, radius, scale, ring.of[next]);
                next = next + 1 == ringRows ? 0 : next + 1;
            }
        };
        int y = y0;
        for (; y + rowsAbreast <= y1; y += rowsAbreast) {
            makeUpTo(y + rowsAbreast + radius);
            useRows<rowsAbreast>(ring, next, ringRows, x, columns, y, radius, scale, useMeans);
        }
        for (; y < y1; ++y) {
            makeUpTo(y + 1 + radius);
            // The ring holds more rows than one window reaches.
            const int oldest = next - (2 * radius + 1);
            useRows<1>(ring, oldest < 0 ? oldest + ringRows : oldest, ringRows, x, columns, y, radius, scale, useMeans);
        }
    }
};

/// The first `count` of a register's pixels.
template <class V>
VT_FN V loadSome(const float* from, int count) {
    if (count == LaneTraits<V>::width) return load<V>(from, 1);
    float some[LaneTraits<V>::width] = {};
    __builtin_memcpy(some, from, count * sizeof(float));
    return load<V>(some, 1);
}
template <class V>
VT_FN void storeSome(V value, float* to, int count) {
    if (count == LaneTraits<V>::width) return store(value, to, 1);
    float some[LaneTraits<V>::width];
    store(value, some, 1);
    __builtin_memcpy(to, some, count * sizeof(float));
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
