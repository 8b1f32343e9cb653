// The Lanczos window of half-width a: L(t) = sinc(t) sinc(t / a) for |t| <= a, else 0, with sinc(u) = sin(pi u) / (pi
// u). Duchon, "Lanczos filtering in one and two dimensions", 1979.
#pragma once

#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

template <class V>
VT_FN V sinc(V u) {
    const V x = u * V(3.14159265f);
    return select(abs(u) <= V(1e-6f), V(1.f), sinPi(u) / x);
}

/// L(t) for any half-width; NaN gives NaN.
template <class V>
VT_FN V lanczosWeight(V t, float halfWidth) {
    return select(abs(t) > V(halfWidth), V(0.f), sinc(t) * sinc(t / V(halfWidth)));
}

inline constexpr int lanczosTaps = 7;

/// L(t - i) for i of -3 to 3 with a half-width of 3, as w[i + 3]. Two sines serve all taps: with r the distance to the
/// nearest whole number, sin(pi (r - m)) is plus or minus sin(pi r), and sin(pi (r - m) / 3) a rotation by m sixths of
/// a turn. Meant for t of -1.5 to 0.5; elsewhere L is 0 or the taps don't reach it. Within 3e-7 of L.
template <class V>
VT_FN void lanczosWeights(V t, V (&w)[lanczosTaps]) {
    constexpr float half = 0.5f;
    constexpr float root = 0.866025404f;                      // sin(60 degrees)
    constexpr float cosines[] = {1, half, -half, -1, -half};  // of 0 to 4 sixths
    constexpr float sines[] = {0, root, root, 0, -root};
    const auto below = t < V(-0.5f);  // the nearest whole number is -1, not 0
    const V r = select(below, t + V(1.f), t);
    const V s = sinPi(r);
    const V slow = sinPi(r * V(1.f / 3));
    const V slowCosine = sinPi(r * V(1.f / 3) + V(0.5f));

    V about[lanczosTaps + 1];  // L(r - m) for m of -3 to 4
    for (int m = -3; m <= 4; ++m) {
        const int turns = m < 0 ? -m : m;
        const float sine = m < 0 ? -sines[turns] : sines[turns];
        const V product = s * (slow * V(cosines[turns]) - slowCosine * V(sine));
        const V distance = r - V(static_cast<float>(m));
        const V scaled = product * V(turns % 2 ? -0.303963551f : 0.303963551f);  // 3 / pi^2
        V weight = scaled / (distance * distance);
        weight = select(abs(distance) <= V(1e-6f), V(1.f), weight);
        about[m + 3] = select(abs(distance) > V(3.f), V(0.f), weight);
    }
    for (int i = 0; i < lanczosTaps; ++i)
        w[i] = select(below, about[i + 1], about[i]);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
