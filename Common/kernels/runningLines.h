// Running means along whole lines, many lines at a time. The sum of each line is kept in one lane and changes as the
// body's does: minus what leaves the window, then plus what enters it.
#pragma once

#include "Common/kernels/axisWindow.h"
#include "compute/kernel/transpose.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Lines that go up columns, from the row of the launch on: whole rows of sums, because walking one register's column
/// over all rows would wait for memory.
static __attribute__((noinline)) void runMeansDown(const Launch& launch, int radius, int length, float scale, int c) {
    constexpr int width = lanesPerRegister;
    constexpr int mostRegisters = 4096 / width;
    const ImageArgument& a = launch.images[0];
    const ImageArgument& o = launch.images[1];
    for (int y = launch.y0; y < launch.y1; ++y) {
        for (int x0 = launch.x0; x0 < launch.x1; x0 += mostRegisters * width) {
            // The last register overlaps the one before; a part too narrow for it begins further left.
            const int x1 = x0 + mostRegisters * width < launch.x1 ? x0 + mostRegisters * width : launch.x1;
            const int begin = x1 - x0 >= width ? x0 : x1 - width;
            const int registers = (x1 - begin + width - 1) / width;
            const auto column = [&](int i) { return i < registers - 1 ? i * width : x1 - begin - width; };
            const float* source =
                a.data + (begin - a.x0) + (y - a.y0) * static_cast<long>(a.strideY) + c * static_cast<long>(a.strideC);
            float* target =
                o.data + (begin - o.x0) + (y - o.y0) * static_cast<long>(o.strideY) + c * static_cast<long>(o.strideC);
            const auto rowOf = [&](int at) {
                return source + clampTo(at, 0, length - 1) * static_cast<long>(a.strideY);
            };

            Lanes runs[mostRegisters];
            for (int i = 0; i < registers; ++i)
                runs[i] = static_cast<float>(radius + 1) * load<Lanes>(source + column(i), 1);
            for (int at = 1; at <= radius; ++at)
                for (int i = 0; i < registers; ++i)
                    runs[i] += load<Lanes>(rowOf(at) + column(i), 1);
            for (int i = 0; i < registers; ++i)
                store(runs[i] * scale, target + column(i), 1);
            for (int at = 1; at < length; ++at) {
                const float* leaving = rowOf(at - radius - 1);
                const float* entering = rowOf(at + radius);
                float* means = target + at * static_cast<long>(o.strideY);
                const auto advance = [&](int i, int x) VT_INLINE_LAMBDA {
                    const Lanes run = (runs[i] - load<Lanes>(leaving + x, 1)) + load<Lanes>(entering + x, 1);
                    runs[i] = run;
                    store(run * scale, means + x, 1);
                };
                for (int i = 0; i < registers - 1; ++i)
                    advance(i, i * width);
                advance(registers - 1, column(registers - 1));
            }
        }
    }
}

/// As many rows as a register has lanes, read as columns: each lane is one row's.
struct RowsAsLanes {
    const float* rows;
    long stride;
    int length;

    template <int... I>
    VT_INLINE Lanes gatherColumn(int x, Sequence<I...>) const {
        return Lanes(FloatRegister{rows[I * stride + x]...});
    }
    /// The nearest column for one that isn't there.
    VT_INLINE Lanes column(int x) const { return gatherColumn(clampTo(x, 0, length - 1), EachLane{}); }

    /// Columns from .. from + lanesPerRegister - 1.
    VT_INLINE void columns(int from, SquareBlock& block) const {
        if (from >= 0 && from + lanesPerRegister <= length) {
            turn(rows + from, stride, block);
        } else if (from + lanesPerRegister <= 1 || from >= length - 1) {
            const Lanes edge = column(from);
#pragma GCC unroll 16
            for (int i = 0; i < lanesPerRegister; ++i)
                block.of[i] = edge;
        } else {
            float copy[lanesPerRegister * lanesPerRegister];
            for (int i = 0; i < lanesPerRegister; ++i)
                copyClamped(rows + i * stride, length, from, lanesPerRegister, copy + i * lanesPerRegister);
            turn(copy, lanesPerRegister, block);
        }
    }
    VT_FN void turn(const float* rows, long stride, SquareBlock& block) {
#pragma GCC unroll 16
        for (int i = 0; i < lanesPerRegister; ++i) {
            block.of[i] = load<Lanes>(rows, 1);
            rows += stride;
        }
        transpose(block);
    }
};

/// Lines that go along rows: blocks of columns are turned, so that each lane holds one row's sum. The last rows overlap
/// those before.
static __attribute__((noinline)) void runMeansAcross(const Launch& launch, int radius, int length, float scale, int c) {
    constexpr int width = lanesPerRegister;
    const ImageArgument& a = launch.images[0];
    const ImageArgument& o = launch.images[1];
    for (int y = launch.y0; y < launch.y1; y += width) {
        const int first = y + width <= launch.y1 ? y : launch.y1 - width;
        const RowsAsLanes source{a.data + (launch.x0 - a.x0) + (first - a.y0) * static_cast<long>(a.strideY) +
                                     c * static_cast<long>(a.strideC),
                                 a.strideY, length};
        float* rows = o.data + (launch.x0 - o.x0) + (first - o.y0) * static_cast<long>(o.strideY) +
                      c * static_cast<long>(o.strideC);

        Lanes run = static_cast<float>(radius + 1) * source.column(0);
        for (int at = 1; at <= radius; ++at)
            run += source.column(at);
        for (int at = 0; at < length; at += width) {
            SquareBlock entering, leaving;
            source.columns(at + radius, entering);
            source.columns(at - radius - 1, leaving);
            if (at > 0) run = (run - leaving.of[0]) + entering.of[0];
            leaving.of[0] = run * scale;
#pragma GCC unroll 16
            for (int i = 1; i < width; ++i) {
                run = (run - leaving.of[i]) + entering.of[i];
                leaving.of[i] = run * scale;
            }
            transpose(leaving);
            float* target = rows + at;
            if (at + width <= length) {
#pragma GCC unroll 16
                for (int i = 0; i < width; ++i) {
                    store(leaving.of[i], target, 1);
                    target += o.strideY;
                }
            } else {
                const SquareBlock rest = leaving;
                for (int i = 0; i < width; ++i)
                    __builtin_memcpy(target + i * static_cast<long>(o.strideY), &rest.of[i],
                                     (length - at) * sizeof(float));
            }
        }
    }
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
