// Running means along whole lines, many lines at a time. The sum of each line is kept in one lane and changes as the
// body's does: minus what leaves the window, then plus what enters it.
#pragma once

#include "compute/kernel/hostForm.h"
#include "compute/kernel/transpose.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Lines that go up columns, from the row of the launch on: whole rows of sums, because walking one register's column
/// over all rows would wait for memory. The last register overlaps the one before.
struct LinesUp {
    static constexpr int width = lanesPerRegister;
    static constexpr int mostColumns = 4096;
    const float* source;
    float* target;
    long sourceStride, targetStride;
    int columns, radius, length;
    float scale;

    VT_HOST_INLINE void run() const {
        Lanes sums[mostColumns / width];
        forEachRegister([&](int i, int x) VT_INLINE_LAMBDA {
            sums[i] = static_cast<float>(radius + 1) * load<Lanes>(source + x, 1);
        });
        for (int y = 1; y <= radius; ++y)
            forEachRegister([&](int i, int x) VT_INLINE_LAMBDA { sums[i] += load<Lanes>(row(y) + x, 1); });
        forEachRegister([&](int i, int x) VT_INLINE_LAMBDA { store(sums[i] * scale, target + x, 1); });
        for (int y = 1; y < length; ++y) {
            const float* leaving = row(y - radius - 1);
            const float* entering = row(y + radius);
            float* means = target + y * targetStride;
            forEachRegister([&](int i, int x) VT_INLINE_LAMBDA {
                const Lanes sum = (sums[i] - load<Lanes>(leaving + x, 1)) + load<Lanes>(entering + x, 1);
                sums[i] = sum;
                store(sum * scale, means + x, 1);
            });
        }
    }

private:
    /// The nearest row for one that isn't there.
    VT_HOST_INLINE const float* row(int y) const { return source + clampTo(y, 0, length - 1) * sourceStride; }
    VT_HOST_INLINE void forEachRegister(auto f) const {
        int i = 0;
        for (; (i + 1) * width < columns; ++i)
            f(i, i * width);
        f(i, columns - width);
    }
};

static __attribute__((noinline)) void runMeansUp(const Launch& launch, int radius, int length, float scale, int c) {
    const ImageArgument& a = launch.images[0];
    const ImageArgument& o = launch.images[1];
    for (int y = launch.y0; y < launch.y1; ++y)
        for (int x = launch.x0; x < launch.x1; x += LinesUp::mostColumns) {
            const int end = x + LinesUp::mostColumns < launch.x1 ? x + LinesUp::mostColumns : launch.x1;
            const int begin = end - x >= LinesUp::width ? x : end - LinesUp::width;
            LinesUp{addressIn(a, begin, y, c),
                    addressIn(o, begin, y, c),
                    a.strideY,
                    o.strideY,
                    end - begin,
                    radius,
                    length,
                    scale}
                .run();
        }
}

/// As many lines along rows as a register has lanes. Blocks of columns are turned, so that each lane is one line's.
struct LinesAcross {
    static constexpr int width = lanesPerRegister;
    const float* source;
    float* target;
    long sourceStride, targetStride;
    int radius, length;
    float scale;

    VT_HOST_INLINE void run() const {
        Lanes sum = static_cast<float>(radius + 1) * column(0, EachLane{});
        for (int x = 1; x <= radius; ++x)
            sum += column(x, EachLane{});
        for (int x = 0; x < length; x += width) {
            const bool inside = x - radius > 0 && x + radius + width <= length;
            sum = inside ? advance<true>(x, sum) : advanceAtEnds(x, sum);
        }
    }

private:
    template <int... I>
    VT_HOST_INLINE Lanes column(int x, Sequence<I...>) const {
        return Lanes(FloatRegister{source[I * sourceStride + x]...});
    }

    VT_HOST_FN void turn(const float* rows, long stride, SquareBlock& block) {
#pragma GCC unroll 16
        for (int i = 0; i < width; ++i) {
            block.of[i] = load<Lanes>(rows, 1);
            rows += stride;
        }
        transpose(block);
    }

    /// Columns from .. from + width - 1. At the ends the nearest stands for one that isn't there.
    template <bool inside>
    VT_HOST_INLINE void columns(int from, SquareBlock& block) const {
        if (inside || (from >= 0 && from + width <= length)) {
            turn(source + from, sourceStride, block);
        } else if (from + width <= 1 || from >= length - 1) {
            const Lanes edge = column(from < 0 ? 0 : length - 1, EachLane{});
            for (Lanes& lanes : block.of)
                lanes = edge;
        } else {
            float copy[width * width];
            for (int i = 0; i < width; ++i)
                copyClamped(source + i * sourceStride, length, from, width, copy + i * width);
            turn(copy, width, block);
        }
    }

    /// Means x .. x + width - 1, from the sum at x - 1. Returns the last one's sum.
    template <bool inside>
    VT_HOST_INLINE Lanes advance(int x, Lanes sum) const {
        SquareBlock entering, leaving;
        columns<inside>(x + radius, entering);
        columns<inside>(x - radius - 1, leaving);
        if (inside || x > 0) sum = (sum - leaving.of[0]) + entering.of[0];
        SquareBlock& means = leaving;
        means.of[0] = sum * scale;
#pragma GCC unroll 16
        for (int i = 1; i < width; ++i) {
            sum = (sum - leaving.of[i]) + entering.of[i];
            means.of[i] = sum * scale;
        }
        transpose(means);
        float* row = target + x;
#pragma GCC unroll 16
        for (int i = 0; i < width; ++i) {
            if (inside || x + width <= length)
                store(means.of[i], row, 1);
            else
                __builtin_memcpy(row, &means.of[i], (length - x) * sizeof(float));
            row += targetStride;
        }
        return sum;
    }
    __attribute__((noinline)) Lanes advanceAtEnds(int x, Lanes sum) const {
        return advance<false>(x, sum);
    }
};

/// Lines that go along rows, from the column of the launch on. The last registers of rows overlap those before.
static __attribute__((noinline)) void runMeansAcross(const Launch& launch, int radius, int length, float scale, int c) {
    const ImageArgument& a = launch.images[0];
    const ImageArgument& o = launch.images[1];
    for (int y = launch.y0; y < launch.y1; y += LinesAcross::width) {
        const int first = y + LinesAcross::width <= launch.y1 ? y : launch.y1 - LinesAcross::width;
        LinesAcross{addressIn(a, launch.x0, first, c),
                    addressIn(o, launch.x0, first, c),
                    a.strideY,
                    o.strideY,
                    radius,
                    length,
                    scale}
            .run();
    }
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
