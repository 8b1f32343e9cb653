// What counts as a value, for kernels and for the host.
#pragma once

namespace Vellum::Kernels {

/// Values beyond this in magnitude are none: squares of brighter light wouldn't fit into sums.
inline constexpr float largestValue = 1e12f;

}  // namespace Vellum::Kernels
