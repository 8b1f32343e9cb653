// The soft limit, which several kernels share.
#pragma once

#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// A straight line that bends by parabolas into L = limit, with S = softness and k = -(S - L)^2 / (4 S):
/// above L + S, at or below -L - S, and for NaN the result is +L; between S - L and L - S it is v; below that
/// -(-v^2 / 4S - v (S + L) / 2S + k), above it -v^2 / 4S + v (S + L) / 2S + k.
template <class V>
VT_FN V softLimit(V v, float limit, float softness) {
    const float L = limit, S = softness;
    const float k = (S - L) * -(S - L) / (S * 4);
    const float square = -1 / (4 * S);
    const float slope = (S + L) / (2 * S);
    const auto low = -(V(square) * v * v - V(slope) * v + V(k));
    const auto high = V(square) * v * v + V(slope) * v + V(k);
    // The tests in their order; each later one holds only where the earlier ones fail.
    V result(L);
    result = select((v > V(L - S)) & (v < V(S + L)), high, result);
    result = select((v >= V(S - L)) & (v <= V(L - S)), v, result);
    return select((v > V(-L - S)) & (v < V(S - L)), low, result);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
