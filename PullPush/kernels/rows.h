// Rows of images in memory, for forms of kernels that run over whole pieces of a launch.
#pragma once

#include "stencil.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// R rows of P planes each: the addresses of their columns 0.
template <int P, int R>
struct Rows {
    float* planes[R][P];
};

/// The same from some column on.
template <int P, int R>
struct RowsAt {
    const Rows<P, R>& rows;
    long x;

    VT_INLINE float* operator()(int j, int plane) const { return rows.planes[j][plane] + x; }
};

/// Rows of an image of N components and, as plane N, of its weights, with the columns that they have.
template <int N, int P, int R>
struct ImageRows : Rows<P, R> {
    int x0[P], x1[P];

    /// The rows nearest to y, y + 1 .. `images` are the values and the weights.
    VT_INLINE ImageRows(const ImageArgument* images, int y) {
        for (int plane = 0; plane < P; ++plane) {
            const ImageArgument& image = images[plane / N];
            const long component = plane % N;
            x0[plane] = image.x0;
            x1[plane] = image.x1;
            for (int j = 0; j < R; ++j) {
                const long row = clampTo(y + j, image.y0, image.y1 - 1) - image.y0;
                this->planes[j][plane] = image.data + row * image.strideY + component * image.strideC - image.x0;
            }
        }
    }
    /// Only the columns of a launch.
    VT_INLINE ImageRows(const ImageArgument* images, const Launch& launch, int y) : ImageRows(images, y) {
        for (int plane = 0; plane < P; ++plane) {
            x0[plane] = launch.x0;
            x1[plane] = launch.x1;
        }
    }
    VT_INLINE bool cover(int from, int length) const {
        bool inside = true;
        VT_UNROLL
        for (int plane = 0; plane < P; ++plane)
            inside &= from >= x0[plane] && from + length <= x1[plane];
        return inside;
    }
};

/// Room for a piece of such rows, `length` columns long, where it reaches over an end. Its first column is column 0.
template <int N, int P, int R, int length>
struct Piece : Rows<P, R> {
    float room[R][P][3 * length];  // the piece is the middle third

    VT_INLINE Piece() {
        for (int j = 0; j < R; ++j)
            for (int plane = 0; plane < P; ++plane)
                this->planes[j][plane] = room[j][plane] + length;
    }
    /// Columns that the rows lack are the nearest.
    __attribute__((noinline)) void copy(const ImageRows<N, P, R>& rows, int from) {
        for (int j = 0; j < R; ++j)
            for (int plane = 0; plane < P; ++plane)
                copyRow(rows.planes[j][plane], rows.x0[plane], rows.x1[plane], from, this->planes[j][plane]);
    }
    /// Puts back the columns that the rows have.
    __attribute__((noinline)) void putBack(const ImageRows<N, P, R>& rows, int from) const {
        for (int j = 0; j < R; ++j)
            for (int plane = 0; plane < P; ++plane) {
                const int first = clampTo(rows.x0[plane], from, from + length);
                const int end = clampTo(rows.x1[plane], first, from + length);
                __builtin_memcpy(rows.planes[j][plane] + first, this->planes[j][plane] + (first - from),
                                 (end - first) * sizeof(float));
            }
    }

private:
    VT_FN void copyRow(const float* row, int x0, int x1, int from, float* to) {
        const int shift = clampTo(from, x0, x1 - length) - from;
        if (x1 - x0 < length || shift <= -length || shift >= length) {
            for (int i = 0; i < length; ++i)
                to[i] = row[clampTo(from + i, x0, x1 - 1)];
            return;
        }
        // As many columns from inside at one go, then those beyond the end.
        __builtin_memcpy(to + shift, row + from + shift, length * sizeof(float));
        for (int i = 0; i < shift; ++i)
            to[i] = row[x0];
        for (int i = length + shift; i < length; ++i)
            to[i] = row[x1 - 1];
    }
};

template <class V, int N>
VT_FN Weighted<V, N> loadPixels(RowsAt<N + 1, 1> row, int from) {
    Weighted<V, N> pixels;
    VT_UNROLL
    for (int plane = 0; plane <= N; ++plane)
        pixels.planes[plane] = load<V>(row(0, plane) + from, 1);
    return pixels;
}

/// Stores as many planes as the row has.
template <class V, int N, int P>
VT_FN void storePixels(const Weighted<V, N>& pixels, RowsAt<P, 1> row, int from) {
    VT_UNROLL
    for (int plane = 0; plane < P; ++plane)
        store(pixels.planes[plane], row(0, plane) + from, 1);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
