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
VT_HOST_FN Lanes chooseLanes(Lanes a, Lanes b, Sequence<I...> numbers) {
    return {chooseEach(a.v, b.v, numbers)};
}

/// Of each group of four units of `unit` lanes, two of a and then two of b: numbers 0 and 2, or with `odd` 1 and 3. One
/// instruction for units of 1 and of 4 lanes.
template <int unit, int odd, int... I>
VT_HOST_FN Lanes halves(Lanes a, Lanes b, Sequence<I...>) {
    return chooseLanes(a, b,
                       Sequence<(I / unit % 4 < 2 ? 0 : lanesPerRegister) + I / (4 * unit) * 4 * unit + I % unit +
                                unit*(I / unit % 2 * 2 + odd)...>{});
}

/// Transposes squares of four by four units that lie in four registers.
template <int unit>
VT_HOST_FN void transposeUnits(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
    constexpr EachLane each{};
    const Lanes even0 = halves<unit, 0>(a, b, each), even1 = halves<unit, 0>(c, d, each);
    const Lanes odd0 = halves<unit, 1>(a, b, each), odd1 = halves<unit, 1>(c, d, each);
    a = halves<unit, 0>(even0, even1, each);
    b = halves<unit, 0>(odd0, odd1, each);
    c = halves<unit, 1>(even0, even1, each);
    d = halves<unit, 1>(odd0, odd1, each);
}

/// The lower halves of two registers, and the upper halves.
template <int... I>
VT_HOST_FN void exchangeHalves(Lanes& a, Lanes& b, Sequence<I...>) {
    constexpr int half = lanesPerRegister / 2;
    const Lanes lower = chooseLanes(a, b, Sequence<(I < half ? I : I + half)...>{});
    b = chooseLanes(a, b, Sequence<(I < half ? I + half : I + lanesPerRegister)...>{});
    a = lower;
}

/// Lane k of register i becomes lane i of register k: squares of four by four, then those squares among each other.
VT_HOST_FN void transpose(SquareBlock& square) {
    Lanes* r = square.of;
#pragma GCC unroll 4
    for (int i = 0; i < lanesPerRegister; i += 4)
        transposeUnits<1>(r[i], r[i + 1], r[i + 2], r[i + 3]);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        if constexpr (lanesPerRegister == 16) transposeUnits<4>(r[i], r[i + 4], r[i + 8], r[i + 12]);
        if constexpr (lanesPerRegister == 8) exchangeHalves(r[i], r[i + 4], EachLane{});
    }
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
