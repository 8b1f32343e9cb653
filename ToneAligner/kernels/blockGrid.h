// The grid of blocks: squares of `size` pixels that overlap by half.
#pragma once

#include "Common/kernels/colourMath.h"
#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The corner of the block in a column or row of the grid. An odd size advances by its smaller and its larger half in
/// turn, so that two steps are one block.
template <class I>
VT_FN I blockCorner(I place, int half, int odd) {
    return place * I(half) + (place >> 1) * I(odd);
}

VT_FN int smaller(int a, int b) {
    return a < b ? a : b;
}

/// A column that went round a panorama, as one of the picture.
VT_FN int wrappedColumn(int column, int width) {
    const int rest = column % width;
    return rest < 0 ? rest + width : rest;
}

/// What a correction does to a pixel of nearly 0: nothing.
template <class V>
VT_FN V correctedBy(V value, V gain, V offset) {
    return select(abs(value) > V(1e-8f), gain * value + offset, value);
}

/// The gain that takes a deviation to another: of 0 to 2, and 1 where there is (nearly) nothing to take.
template <class V>
VT_FN V transferGain(V source, V target) {
    return select(abs(source) > V(1e-8f), clampTo(target / source, V(0.f), V(2.f)), V(1.f));
}

/// Where bilinear samples lie along one axis: two places of the grid, and the share of the second.
template <class V>
struct GridPlace {
    IntOf<V> first, second;
    V share;
};

/// From pixels of a picture to places of its grid.
struct GridScale {
    float stepX, stepY;
    int wrapWidth, wrapHeight;  ///< 0: the picture's ends are ends

    template <class V>
    VT_INLINE V along(V pixel, float step) const {
        return pixel * step + step * 0.5f - 0.5f;
    }
    template <class V>
    VT_INLINE GridPlace<V> column(V x) const {
        V g = along(x, stepX);
        if (wrapWidth > 0) {
            const V width(static_cast<float>(wrapWidth));
            for (g = g + width; any(g >= width);)  // a picture may be wider than the format: the exact remainder
                g = select(g >= width, g - width, g);
            const V whole = floor(g);
            const V next = whole + V(1.f);
            return {toInt(whole), toInt(select(next >= width, next - width, next)), g - whole};
        }
        return ends(g);
    }
    template <class V>
    VT_INLINE GridPlace<V> row(V y) const {
        V g = along(y, stepY);
        if (wrapWidth > 0) {
            g = clampTo(g, V(0.f), V(static_cast<float>(wrapHeight)));
            const V whole = floor(g);
            const V last(static_cast<float>(wrapHeight - 1));
            const V next = whole + V(1.f);
            return {toInt(whole), toInt(select(next < last, next, last)), g - whole};
        }
        return ends(g);
    }

private:
    template <class V>
    VT_INLINE GridPlace<V> ends(V g) const {
        const V whole = floor(g);
        return {toInt(whole), toInt(floor(g + V(1.f))), g - whole};
    }
};

VT_FN void scaleOfGrid(const ImageArgument& grid, const ImageArgument& picture, float& stepX, float& stepY) {
    stepX = static_cast<float>(grid.x1 - grid.x0) / static_cast<float>(picture.x1 - picture.x0);
    stepY = static_cast<float>(grid.y1 - grid.y0) / static_cast<float>(picture.y1 - picture.y0);
}

template <class V>
VT_FN V mixed(V a, V b, V share) {
    return (V(1.f) - share) * a + share * b;
}

/// The four samples around a pixel, mixed along x, then along y. Places count from the grid's corner, reads are
/// clamped.
template <class V>
VT_FN V bilinear(const auto& grid, const GridPlace<V>& column, const GridPlace<V>& row, int c) {
    using I = IntOf<V>;
    const I x0 = column.first + I(grid.left()), x1 = column.second + I(grid.left());
    const I y0 = row.first + I(grid.bottom()), y1 = row.second + I(grid.bottom());
    const V below = mixed(grid.fetch(x0, y0, c), grid.fetch(x1, y0, c), column.share);
    const V above = mixed(grid.fetch(x0, y1, c), grid.fetch(x1, y1, c), column.share);
    return mixed(below, above, row.share);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
