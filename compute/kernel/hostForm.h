// What kernels' forms for whole pieces have in common: rows of pixels that lie next to each other.
#pragma once

#include "kernel.h"

/// After the parameters of a lambda that has to disappear into the loop round it.
#define VT_INLINE_LAMBDA __attribute__((always_inline))

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

VT_FN float* addressIn(const ImageArgument& image, int x, int y, int c) {
    return image.data + (x - image.x0) + (y - image.y0) * static_cast<long>(image.strideY) +
           c * static_cast<long>(image.strideC);
}

/// Pixels from .. from + count - 1 of a row, the nearest of 0 .. width - 1 for one that isn't there.
VT_FN void copyClamped(const float* row, int width, int from, int count, float* target) {
    const int begin = clampTo(-from, 0, count);
    const int end = clampTo(width - from, begin, count);
    for (int i = 0; i < begin; ++i)
        target[i] = row[0];
    __builtin_memcpy(target + begin, row + from + begin, (end - begin) * sizeof(float));
    for (int i = end; i < count; ++i)
        target[i] = row[width - 1];
}

/// The first `count` of a register's pixels; the others are 0.
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
