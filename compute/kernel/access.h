// How a body touches an image: at its own pixel, within its declared range, or anywhere.
#pragma once

#include "declare.h"
#include "math.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// What the driver promises about the reads of a span.
enum class Reach {
    edge,    ///< any strides; reads may leave the box and follow the declared edge
    inside,  ///< any strides; every read stays in the box
    unit,    ///< as inside, and neighbouring pixels lie next to each other
};

/// One image of one call of a body, at pixel (x, y) and, in bodies for single components, component c. With packed
/// lanes x is the first lane's.
template <class V, class Declaration, int N, Reach R>
struct Access {
    ImageArgument image;
    const ImageParameters& parameters;
    float* here;         // address of (x, y, c)
    int x, y;            // absolute position
    int component;       // the one that a body for single components stands on; else 0
    bool columnsInside;  // with Reach::edge: only rows may leave the box

    /// How many components the image has; 0 in bodies for single components.
    static constexpr int count = N;

    /// A constant in the body's lane type.
    static VT_INLINE V lane(float value) { return V(value); }
    /// Absolute x of each lane, absolute y of all.
    VT_INLINE IntOf<V> column() const { return laneNumbers<V>() + IntOf<V>(x); }
    VT_INLINE int row() const { return y; }
    VT_INLINE int left() const { return image.x0; }
    VT_INLINE int bottom() const { return image.y0; }
    VT_INLINE int right() const { return image.x1; }
    VT_INLINE int top() const { return image.y1; }

    // ---- the body's own pixel

    VT_INLINE V operator()(int c = 0) const { return at(0, 0, c); }
    VT_INLINE operator V() const { return at(0, 0, 0); }
    VT_INLINE void operator=(V v) const { put(0, v); }
    VT_INLINE void put(int c, V v) const { store(v, here + componentOffset(c), strideX()); }

    // ---- within the declared range, read by the declared edge

    VT_INLINE V at(int dx, int dy, int c = 0) const {
        const float* p = here + dx * strideX() + dy * static_cast<long>(image.strideY) + componentOffset(c);
        if constexpr (Declaration::edge == EdgeMethod::none || R != Reach::edge)
            return load<V>(p, strideX());
        else if constexpr (Declaration::edge == EdgeMethod::clamped)
            return clampedAt(dx, dy, c);
        else
            return constantAt(dx, dy, c);
    }

    /// A step along the image's ranged axis.
    VT_INLINE V along(int step, int c = 0) const {
        const int mask = parameters.rangedAxisMask;
        if constexpr (R == Reach::edge && Declaration::edge != EdgeMethod::none)
            return at(step & ~mask, step & mask, c);
        else
            return load<V>(alongAddress(step, c), strideX());
    }
    VT_INLINE void putAlong(int step, V v, int c = 0) const { store(v, alongAddress(step, c), strideX()); }

    // ---- any pixel, in absolute coordinates

    VT_INLINE V fetch(IntOf<V> atX, IntOf<V> atY, int c = 0) const {
        using I = IntOf<V>;
        I column = clampTo(atX - I(image.x0), I(0), I(image.x1 - image.x0 - 1));
        I row = clampTo(atY - I(image.y0), I(0), I(image.y1 - image.y0 - 1));
        const float* plane = image.data + c * static_cast<long>(image.strideC);
        if constexpr (R != Reach::unit) column = column * I(image.strideX);
        V value = gather(plane, column + row * I(image.strideY));
        if constexpr (Declaration::edge == EdgeMethod::constant) {
            auto outside = (atX < I(image.x0)) | (atX >= I(image.x1)) | (atY < I(image.y0)) | (atY >= I(image.y1));
            value = select(outside, V(parameters.constEdgeColor[(component + c) & 3]), value);
        }
        return value;
    }

    /// Writes one value to every pixel of (atX0, atY0) .. (atX1, atY1), both included, after each corner is moved into
    /// the box. Several pixels of a launch may write the same place, if all write the same.
    VT_INLINE void scatter(int atX0, int atY0, int atX1, int atY1, float value, int c = 0) const {
        const int x0 = clampTo(atX0, image.x0, image.x1 - 1), x1 = clampTo(atX1, image.x0, image.x1 - 1);
        const int y0 = clampTo(atY0, image.y0, image.y1 - 1), y1 = clampTo(atY1, image.y0, image.y1 - 1);
        for (int row = y0; row <= y1; ++row)
            for (int column = x0; column <= x1; ++column) {
                float* place = image.data + (column - image.x0) * static_cast<long>(image.strideX) +
                               (row - image.y0) * static_cast<long>(image.strideY) + componentOffset(c);
#if VIEWTINT_CUDA
                *static_cast<volatile float*>(place) = value;
#else
                __atomic_store(place, &value, __ATOMIC_RELAXED);
#endif
            }
    }

private:
    VT_INLINE long strideX() const {
        return R == Reach::unit ? 1 : image.strideX;
    }
    VT_INLINE long componentOffset(int c) const {
        return c * static_cast<long>(image.strideC);
    }
    VT_INLINE float* alongAddress(int step, int c) const {
        const long stride = parameters.rangedAxisMask ? static_cast<long>(image.strideY) : strideX();
        return here + step * stride + componentOffset(c);
    }

    VT_INLINE V clampedAt(int dx, int dy, int c) const {
        const int nearestRow = clampTo(y + dy, image.y0, image.y1 - 1);
        const float* row = here + (nearestRow - y) * static_cast<long>(image.strideY) + componentOffset(c);
        if (LaneTraits<V>::width > 1 && columnsInside) return load<V>(row + dx * strideX(), strideX());
        return gatherColumns(row, dx);
    }

    VT_INLINE V constantAt(int dx, int dy, int c) const {
        using I = IntOf<V>;
        const V outsideValue = V(parameters.constEdgeColor[(component + c) & 3]);
        if (y + dy < image.y0 || y + dy >= image.y1) return outsideValue;
        const float* row = here + dy * static_cast<long>(image.strideY) + componentOffset(c);
        if (LaneTraits<V>::width > 1 && columnsInside) return load<V>(row + dx * strideX(), strideX());
        const I column = laneNumbers<V>() + I(x + dx);
        return select((column < I(image.x0)) | (column >= I(image.x1)), outsideValue, gatherColumns(row, dx));
    }

    /// Lanes of one row, each at the nearest column of the box.
    VT_INLINE V gatherColumns(const float* row, int dx) const {
        using I = IntOf<V>;
        const I column = laneNumbers<V>() + I(x + dx);
        const I nearest = clampTo(column, I(image.x0), I(image.x1 - 1)) - I(image.x0);
        return gather(row - (x - image.x0) * strideX(), nearest * I(static_cast<int>(strideX())));
    }
};

template <class V, class D, int N, Reach R>
VT_FN Access<V, D, N, R> accessAt(const ImageArgument& image, const ImageParameters& parameters, int x, int y, int c,
                                  bool columnsInside) {
    const long strideX = R == Reach::unit ? 1 : image.strideX;
    float* here = image.data + (x - image.x0) * strideX + (y - image.y0) * static_cast<long>(image.strideY) +
                  c * static_cast<long>(image.strideC);
    return {image, parameters, here, x, y, c, columnsInside};
}

/// One call of a kernel's body.
template <class K, Counts T, class V, Reach R, class Sums, class... D, int... I>
VT_FN void callBody(const ImageArgument* images, const ImageParameters* imageParameters, const typename K::Params& p,
                    Sums& sums, ImageList<D...>, Sequence<I...>, int x, int y, int c, bool columnsInside) {
    if constexpr (K::reduction)
        K::body(p, sums, accessAt<V, D, T.of[I], R>(images[I], imageParameters[I], x, y, c, columnsInside)...);
    else
        K::body(p, accessAt<V, D, T.of[I], R>(images[I], imageParameters[I], x, y, c, columnsInside)...);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
