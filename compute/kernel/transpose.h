// Squares of pixels with rows and columns exchanged, for host forms whose lanes are rows.
#pragma once

#include "lane.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// As many registers as a register has lanes.
struct SquareBlock {
    Lanes of[lanesPerRegister];
};

/// Lanes chosen from two registers by number; those of the second follow those of the first.
template <int... I>
VT_FN FloatRegister chooseLanes(FloatRegister a, FloatRegister b, Sequence<I...>) {
    return __builtin_shufflevector(a, b, I...);
}

/// Exchanges the blocks of `distance` lanes that lie beside the diagonal, of each pair of registers `distance` apart.
template <int distance, int... I>
VT_FN void exchangeBlocks(SquareBlock& square, Sequence<I...>) {
#pragma GCC unroll 16
    for (int i = 0; i < lanesPerRegister; ++i) {
        if (i & distance) continue;
        const FloatRegister a = square.of[i].v;
        const FloatRegister b = square.of[i + distance].v;
        square.of[i].v = chooseLanes(a, b, Sequence<(I & distance ? lanesPerRegister + I - distance : I)...>{});
        square.of[i + distance].v =
            chooseLanes(a, b, Sequence<(I & distance ? lanesPerRegister + I : I + distance)...>{});
    }
    if constexpr (distance > 1) exchangeBlocks<distance / 2>(square, EachLane{});
}

VT_FN void transpose(SquareBlock& square) {
    exchangeBlocks<lanesPerRegister / 2>(square, EachLane{});
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
