// What both steps of the fill compute: weights, sums under the stencil, and what becomes of them.
#pragma once

#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

// The stencil of 4 by 4, with exactly these decimals and not thirds: its middle four places, the sides, the corners.
inline constexpr float middle = 1.f;
inline constexpr float side = 0.3333f;
inline constexpr float corner = 0.1111f;

/// One row of the stencil: its two outer and its two inner places.
struct StencilRow {
    float outer, inner;
};
VT_FN StencilRow stencilRow(bool inner) {
    return inner ? StencilRow{side, middle} : StencilRow{corner, side};
}

/// A level's weight as it counts: at most 1. NaN counts as 1, so that its pixel keeps its value.
struct LevelWeight {
    template <class V>
    VT_FN V counted(V weight) {
        return select(weight < 1.f, weight, V(1.f));
    }
};

/// The same of weights as a caller gives them, some of which may be below 0.
struct GivenWeight {
    template <class V>
    VT_FN V counted(V weight) {
        const V a = LevelWeight::counted(weight);
        return select(a < 0.f, V(0.f), a);
    }
};

/// Values of N components and a weight: a pixel, or what is summed of pixels.
template <class V, int N>
struct Weighted {
    V planes[N + 1];  // the components, then the weight

    VT_INLINE V& weight() { return planes[N]; }
    VT_INLINE V weight() const { return planes[N]; }
};

/// The sums under the stencil.
template <class V, int N>
struct StencilSum {
    Weighted<V, N> total;

    VT_INLINE StencilSum() {
        VT_UNROLL
        for (int c = 0; c <= N; ++c)
            total.planes[c] = V(0.f);
    }
    /// Adds a pixel's weight and returns it as its values have to be added.
    VT_INLINE V addWeight(V stencil, V counted) {
        const V w = stencil * counted;
        total.weight() += w;
        return w;
    }
    VT_INLINE void addValue(int c, V w, V value) { total.planes[c] += w * value; }

    /// The pixel of the coarser level.
    VT_INLINE Weighted<V, N> pulled() const {
        Weighted<V, N> pixel;
        VT_UNROLL
        for (int c = 0; c < N; ++c)
            pixel.planes[c] = mean(c, total.planes[c]);
        pixel.weight() = atLeastZero(total.weight());
        return pixel;
    }
    /// What the coarser level gives to a pixel of the finer one.
    VT_INLINE Weighted<V, N> raised() const {
        Weighted<V, N> pixel;
        VT_UNROLL
        for (int c = 0; c < N; ++c)
            pixel.planes[c] = mean(c, V(0.f));
        pixel.weight() = total.weight();
        return pixel;
    }

    static VT_INLINE V atLeastZero(V weight) { return select(weight > 0.f, weight, V(0.f)); }

private:
    VT_INLINE V mean(int c, V withoutWeight) const {
        return select(total.weight() > 0.f, total.planes[c] / total.weight(), withoutWeight);
    }
};

/// A pixel of the finer level: as far as it has weight it keeps its value, the rest is what the coarser level gives.
template <class V, int N>
VT_FN Weighted<V, N> pushed(const Weighted<V, N>& raised, const Weighted<V, N>& own, V counted) {
    const V rest = 1.f - counted;
    Weighted<V, N> pixel;
    VT_UNROLL
    for (int c = 0; c < N; ++c)
        pixel.planes[c] = raised.planes[c] * rest + own.planes[c] * counted;
    pixel.weight() = StencilSum<V, N>::atLeastZero(raised.weight() * rest + counted);
    return pixel;
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
