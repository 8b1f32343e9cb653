// A picture sampled where a displacement points to. Compiled once per instruction set.
#include "Common/kernels/colourMath.h"
#include "lanczos.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The whole number that p + 0.5 is cut to, toward zero; 0 for NaN. Limited to what an index can hold.
template <class V>
VT_FN IntOf<V> tapCentre(V p) {
    const V moved = p + V(0.5f);
    return toInt(clampTo(select(moved == moved, moved, V(0.f)), V(-1e9f), V(1e9f)));
}

/// A column of a picture that closes round its width: below 0 the width is added, above the width subtracted, until it
/// lies in 0 .. width, both included. Exact to 16 million columns.
template <class I, class V>
VT_FN I wrapColumn(I column, int width) {
    if (width < 1) return column;
    const I w(width);
    const V perWidth(1.f / static_cast<float>(width));
    const I first = select(column < I(0), I(0), I(1));  // from the left it ends in 0 .. width - 1, else in 1 .. width
    const I distance = column - first;
    const I turns = toInt(floor(toFloat(distance) * perWidth));
    const I rest = distance - turns * w;
    const I low = select(rest < I(0), rest + w, rest);  // the quotient may be one off
    const I wrapped = select(low >= w, low - w, low) + first;
    return select((column < I(0)) | (column > w), wrapped, column);
}

/// Reads a picture's pixel (x, y), rows clamped, columns clamped or closed round a width.
template <bool Wraps>
struct Columns {
    int width = 0;
    template <class V, class Source>
    VT_INLINE V read(const Source& image, IntOf<V> x, IntOf<V> y, int c) const {
        if constexpr (Wraps)
            return image.fetch(wrapColumn<IntOf<V>, V>(x, width), y, c);
        else
            return image.fetch(x, y, c);
    }
};

template <class V>
struct Weights {
    V x[lanczosTaps], y[lanczosTaps];
    V sum;  // of the products of all pairs
    VT_INLINE Weights(V tx, V ty) {
        lanczosWeights(tx, x);
        lanczosWeights(ty, y);
        V sumX(0.f), sumY(0.f);
        for (int i = 0; i < lanczosTaps; ++i) {
            sumX += x[i];
            sumY += y[i];
        }
        sum = sumX * sumY;
    }
};

template <class V>
VT_FN V normalised(V total, V weight) {
    return select(weight > V(0.f), total / weight, V(0.f));
}

/// The pixel at (px, py) by the Lanczos window of half-width 3: columns of taps first, then along the row.
template <class V, bool Wraps, class Source, int N>
VT_FN void sampleLanczos3(const Source& image, Columns<Wraps> columns, V px, V py, V (&result)[N]) {
    using I = IntOf<V>;
    const I x = tapCentre(px);
    const I y = tapCentre(py);
    const Weights<V> w(px - toFloat(x), py - toFloat(y));
    for (int c = 0; c < N; ++c) {
        V total(0.f);
        for (int i = 0; i < lanczosTaps; ++i) {
            V column(0.f);
            for (int j = 0; j < lanczosTaps; ++j)
                column += w.y[j] * columns.template read<V>(image, x + I(i - 3), y + I(j - 3), c);
            total += w.x[i] * column;
        }
        result[c] = normalised(total, w.sum);
    }
}

/// The same for any half-width, tap by tap.
template <class V, bool Wraps, class Source, int N>
VT_FN void sampleLanczos(const Source& image, Columns<Wraps> columns, int halfWidth, V px, V py, V (&result)[N]) {
    using I = IntOf<V>;
    const I x = tapCentre(px);
    const I y = tapCentre(py);
    const V tx = px - toFloat(x);
    const V ty = py - toFloat(y);
    const float a = static_cast<float>(halfWidth);
    V weight(0.f);
    for (int c = 0; c < N; ++c)
        result[c] = V(0.f);
    for (int j = -halfWidth; j <= halfWidth; ++j) {
        const V wy = lanczosWeight(ty - V(static_cast<float>(j)), a);
        for (int i = -halfWidth; i <= halfWidth; ++i) {
            const V w = lanczosWeight(tx - V(static_cast<float>(i)), a) * wy;
            weight += w;
            for (int c = 0; c < N; ++c)
                result[c] += w * columns.template read<V>(image, x + I(i), y + I(j), c);
        }
    }
    for (int c = 0; c < N; ++c)
        result[c] = normalised(result[c], weight);
}

template <class V>
VT_FN IntOf<V> floorToInt(V p) {
    return toInt(clampTo(floor(select(p == p, p, V(0.f))), V(-1e9f), V(1e9f)));
}

template <class V, bool Wraps, class Source, int N>
VT_FN void sampleBilinear(const Source& image, Columns<Wraps> columns, V px, V py, V (&result)[N]) {
    using I = IntOf<V>;
    const I x0 = floorToInt(px), x1 = floorToInt(px + V(1.f));
    const I y0 = floorToInt(py), y1 = floorToInt(py + V(1.f));
    const V fx = px - floor(px);
    const V fy = py - floor(py);
    const auto there = (abs(px) < V(1e9f)) & (abs(py) < V(1e9f));  // neither NaN nor infinite
    for (int c = 0; c < N; ++c) {
        const V low = (V(1.f) - fx) * columns.template read<V>(image, x0, y0, c) +
                      fx * columns.template read<V>(image, x1, y0, c);
        const V high = (V(1.f) - fx) * columns.template read<V>(image, x0, y1, c) +
                       fx * columns.template read<V>(image, x1, y1, c);
        result[c] = select(there, (V(1.f) - fy) * low + fy * high, V(0.f));
    }
}

struct WarpParams {
    bool lanczos = true;
    int halfWidth = 3;
};
struct WarpWrapParams {
    bool lanczos = true;
    int halfWidth = 3;
    int wrapSize[2] = {-1, -1};
};

struct WarpWhereParams {
    bool lanczos = true;
    int halfWidth = 3;
    bool decode = true;
};
struct WarpWhereWrapParams {
    bool lanczos = true;
    int halfWidth = 3;
    bool decode = true;
    int wrapSize[2] = {-1, -1};
};

template <class P>
VT_FN auto columnsOf(const P& p) {
    if constexpr (requires { p.wrapSize; })
        return Columns<true>{p.wrapSize[0]};
    else
        return Columns<false>{};
}

/// From sRGB code to linear light, alpha as it is.
template <class V, int N>
VT_FN void decode(V (&result)[N]) {
    for (int c = 0; c < N && c < 3; ++c)
        result[c] = linearOfSrgb(result[c]);
}

template <class V, class Source, class P, int N>
VT_FN void samplePicture(const P& p, const Source& image, V px, V py, V (&result)[N]) {
    if (!p.lanczos)
        sampleBilinear(image, columnsOf(p), px, py, result);
    else if (p.halfWidth == 3)
        sampleLanczos3(image, columnsOf(p), px, py, result);
    else
        sampleLanczos(image, columnsOf(p), p.halfWidth, px, py, result);
}

// ---- the form for packed pictures of four components: a tap's four components lie side by side, and seven taps in two
// to eight registers

typedef float Quad __attribute__((vector_size(16)));

VT_HOST_FN Quad loadQuad(const float* p) {
    Quad q;
    __builtin_memcpy(&q, p, sizeof q);
    return q;
}

/// Floats of a row of taps, and one pixel more, so that rows are whole registers.
inline constexpr int patchRow = 4 * (lanczosTaps + 1);

/// Where the seven taps of each pixel of a register lie, and their weights.
template <class V>
struct TapTable {
    static constexpr int width = LaneTraits<V>::width;
    alignas(64) float x[lanczosTaps][width];
    alignas(64) float y[lanczosTaps][width];
    alignas(64) float sum[width];
    alignas(64) int column[width];
    alignas(64) int row[width];

    VT_INLINE TapTable(V px, V py) {
        const auto cx = tapCentre(px);
        const auto cy = tapCentre(py);
        const Weights<V> w(px - toFloat(cx), py - toFloat(cy));
        for (int i = 0; i < lanczosTaps; ++i) {
            store(w.x[i], x[i], 1);
            store(w.y[i], y[i], 1);
        }
        store(w.sum, sum, 1);
        __builtin_memcpy(column, &cx, sizeof column);
        __builtin_memcpy(row, &cy, sizeof row);
    }
};

/// The part of a picture in which all taps, and one pixel more along the row, are there and no column wraps.
struct TapLimits {
    int x0, x1, y0, y1;
    VT_INLINE TapLimits(const ImageArgument& image, Columns<false>)
        : x0(image.x0 + 3), x1(image.x1 - 4), y0(image.y0 + 3), y1(image.y1 - 3) {}
    VT_INLINE TapLimits(const ImageArgument& image, Columns<true> columns) : TapLimits(image, Columns<false>{}) {
        if (columns.width < 1) return;
        if (x0 < 3) x0 = 3;
        if (x1 > columns.width - 2) x1 = columns.width - 2;
    }
    VT_INLINE bool contain(int x, int y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
};

/// The sum of sampleLanczos3 for lane `lane` of the table, in the same order of adding, not yet normalised. `corner` is
/// the first tap's pixel; the row after the last tap's pixel is read once more and not used.
template <class V>
VT_HOST_FN Quad sumTaps(const float* corner, long strideY, const TapTable<V>& taps, int lane) {
    constexpr int width = LaneTraits<V>::width;
    constexpr int registers = patchRow / width;
    V columns[registers];  // kept in registers only where the loops over it are unrolled
#pragma GCC unroll 8
    for (int k = 0; k < registers; ++k)
        columns[k] = V(0.f);
#pragma GCC unroll 8
    for (int j = 0; j < lanczosTaps; ++j) {
        const V weight(taps.y[j][lane]);
#pragma GCC unroll 8
        for (int k = 0; k < registers; ++k)
            columns[k] += weight * load<V>(corner + k * width, 1);
        corner += strideY;
    }
    alignas(64) float column[patchRow];
#pragma GCC unroll 8
    for (int k = 0; k < registers; ++k)
        store(columns[k], column + k * width, 1);
    Quad total = {};
#pragma GCC unroll 8
    for (int i = 0; i < lanczosTaps; ++i) {
        const float weight = taps.x[i][lane];
        total += Quad{weight, weight, weight, weight} * loadQuad(column + 4 * i);
    }
    return total;
}

VT_FN float* pixelOf(const ImageArgument& image, int x, int y) {
    return image.data + (x - image.x0) * static_cast<long>(image.strideX) +
           (y - image.y0) * static_cast<long>(image.strideY);
}

/// The pixels under taps that leave the picture or wrap, gathered into rows of eight.
template <bool Wraps>
__attribute__((noinline)) void gatherPatch(const ImageArgument& image, Columns<Wraps> columns, int x, int y,
                                           float* patch) {
    for (int j = 0; j < lanczosTaps; ++j) {
        const int row = clampTo(y + j - 3, image.y0, image.y1 - 1);
        for (int i = 0; i < lanczosTaps; ++i) {
            int column = x + i - 3;
            if constexpr (Wraps) column = wrapColumn<int, float>(column, columns.width);
            const float* pixel = pixelOf(image, clampTo(column, image.x0, image.x1 - 1), row);
            __builtin_memcpy(patch + j * patchRow + 4 * i, pixel, sizeof(Quad));
        }
    }
}

/// The pixels of one register at (x, y) of the launch's image 0, displaced by its image 1. `patch` is working memory.
template <class V, bool Wraps>
VT_FN void warpRegister(const Launch& launch, Columns<Wraps> columns, const TapLimits& limits, float* patch, int x,
                        int y, V (&result)[4]) {
    constexpr int width = LaneTraits<V>::width;
    const ImageArgument& image = launch.images[0];
    const ImageArgument& displacement = launch.images[1];
    const float* d = pixelOf(displacement, x, y);
    const V px = toFloat(laneNumbers<V>() + IntOf<V>(x)) + load<V>(d, displacement.strideX);
    const V py = V(static_cast<float>(y)) + load<V>(d + displacement.strideC, displacement.strideX);
    const TapTable<V> taps(px, py);

    alignas(64) float pixels[4 * width];
    for (int lane = 0; lane < width; ++lane) {
        const int column = taps.column[lane];
        const int row = taps.row[lane];
        Quad total;
        if (limits.contain(column, row)) {
            total = sumTaps<V>(pixelOf(image, column - 3, row - 3), image.strideY, taps, lane);
        } else {
            gatherPatch(image, columns, column, row, patch);
            total = sumTaps<V>(patch, patchRow, taps, lane);
        }
        __builtin_memcpy(pixels + 4 * lane, &total, sizeof total);
    }
    const V weights = load<V>(taps.sum, 1);
    for (int c = 0; c < 4; ++c)
        result[c] = normalised(load<V>(pixels + c, 4), weights);
}

VT_FN bool isPackedOfFour(const ImageArgument& image) {
    return image.strideX == 4 && image.strideC == 1;
}

template <class K, class V, Counts T>
__attribute__((noinline)) void warpPacked(const Launch& launch) {
    constexpr int width = LaneTraits<V>::width;
    const auto& parameters = *static_cast<const typename K::Params*>(launch.parameters);
    const auto columns = columnsOf(parameters);
    const TapLimits limits(launch.images[0], columns);
    const ImageArgument& output = launch.images[K::imageCount - 1];
    alignas(64) float patch[lanczosTaps * patchRow] = {};
    for (int y = launch.y0; y < launch.y1; ++y) {
        int x = launch.x0;
        for (; x + width <= launch.x1; x += width) {
            V result[4];
            if constexpr (K::where) {
                const ImageArgument& where = launch.images[2];
                const auto wanted = load<V>(pixelOf(where, x, y), where.strideX) > V(0.f);
                if (!any(wanted)) continue;
                warpRegister<V>(launch, columns, limits, patch, x, y, result);
                if (parameters.decode) decode(result);
                for (int c = 0; c < 4; ++c) {
                    float* place = pixelOf(output, x, y) + c * static_cast<long>(output.strideC);
                    store(select(wanted, result[c], load<V>(place, output.strideX)), place, output.strideX);
                }
            } else {
                warpRegister<V>(launch, columns, limits, patch, x, y, result);
                for (int c = 0; c < 4; ++c)
                    store(result[c], pixelOf(output, x, y) + c * static_cast<long>(output.strideC), output.strideX);
            }
        }
        runSpan<K, T, float, Reach::edge>(launch, x, launch.x1, y, 0, false);
    }
}

template <class K, class V, Counts T>
VT_FN void warpHostForm(const Launch& launch) {
    if constexpr (T.of[0] == 4) {
        const auto& p = *static_cast<const typename K::Params*>(launch.parameters);
        if (p.lanczos && p.halfWidth == 3) return warpPacked<K, V, T>(launch);
    }
    runRows<K, T, V, Reach::inside>(launch);
}

// ---- kernels

template <class P>
struct Warp : WholePixel<In<"image", Pattern::random, EdgeMethod::clamped>, In<"displacement">, Out<"O">> {
    using Params = P;
    static constexpr bool where = false;
    static bool hostFormTakes(const ImageArgument* images) { return isPackedOfFour(images[0]); }
    VT_FN void body(const P& p, auto image, auto displacement, auto O) {
        using V = decltype(displacement(0));
        V result[O.count];
        samplePicture(p, image, toFloat(O.column()) + displacement(0), V(static_cast<float>(O.row())) + displacement(1),
                      result);
        for (int c = 0; c < O.count; ++c)
            O.put(c, result[c]);
    }
};

/// O = the picture at (x + displacement 0, y + displacement 1), read clamped: by the Lanczos window of halfWidth,
/// normalised by the sum of the weights (0 where that isn't above 0, so for NaN and infinite displacements); without
/// lanczos bilinear.
struct warpKernel : Warp<WarpParams> {
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(lanczos), VT_SCALAR(halfWidth)}};
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        warpHostForm<warpKernel, V, T>(launch);
    }
};

/// The same for a picture whose columns close round wrapSize[0]; the weight uses the column as it is, only the read
/// wraps.
struct warpWrapKernel : Warp<WarpWrapParams> {
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(lanczos), VT_SCALAR(halfWidth), VT_SCALAR(wrapSize)}};
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        warpHostForm<warpWrapKernel, V, T>(launch);
    }
};

template <class P>
struct WarpWhere
    : WholePixel<In<"image", Pattern::random, EdgeMethod::clamped>, In<"displacement">, In<"where">, Out<"O">> {
    using Params = P;
    static constexpr bool where = true;
    static bool hostFormTakes(const ImageArgument* images) { return isPackedOfFour(images[0]); }
    VT_FN void body(const P& p, auto image, auto displacement, auto where, auto O) {
        using V = decltype(displacement(0));
        const auto wanted = where() > V(0.f);
        if (!any(wanted)) return;
        V result[O.count];
        samplePicture(p, image, toFloat(O.column()) + displacement(0), V(static_cast<float>(O.row())) + displacement(1),
                      result);
        if (p.decode) decode(result);
        for (int c = 0; c < O.count; ++c)
            O.put(c, select(wanted, result[c], O(c)));
    }
};

/// As warpKernel where `where` is above 0, and decoded from sRGB with `decode`; other pixels of O stay.
struct warpWhereKernel : WarpWhere<WarpWhereParams> {
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(lanczos), VT_SCALAR(halfWidth), VT_SCALAR(decode)}};
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        warpHostForm<warpWhereKernel, V, T>(launch);
    }
};

/// The same for a picture whose columns close round wrapSize[0].
struct warpWhereWrapKernel : WarpWhere<WarpWhereWrapParams> {
    static constexpr ScalarDeclarations scalars{
        4, {VT_SCALAR(lanczos), VT_SCALAR(halfWidth), VT_SCALAR(decode), VT_SCALAR(wrapSize)}};
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        warpHostForm<warpWhereWrapKernel, V, T>(launch);
    }
};

/// O = A, with `encode` its components 0 to 2 as sRGB codes. These are all NaN where one of them is no value, so that a
/// filter marks every pixel that such a colour touches; an alpha that is none becomes 0.
struct codedPictureKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        bool encode = true;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(encode)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        constexpr int colours = O.count < 3 ? O.count : 3;
        auto whole = isValue(A(0));
        for (int c = 1; c < colours; ++c)
            whole = whole & isValue(A(c));
        for (int c = 0; c < colours; ++c)
            O.put(c, select(whole, p.encode ? srgbOfLinear(A(c)) : A(c), O.lane(notANumber)));
        if constexpr (O.count == 4) O.put(3, select(isValue(A(3)), A(3), O.lane(0)));
    }
    // The picture goes into another layout; the curve is worth the widest registers all the same.
    static bool hostFormTakes(const ImageArgument* images) { return images[0].strideX != 1 || images[1].strideX != 1; }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        runRows<codedPictureKernel, T, V, Reach::inside>(launch);
    }
};

#define VT_WARP_WHERE(X, K) X(K, 4f_2f_1f_4f)
#define VT_WARP(X, K) X(K, 1f_2f_1f) X(K, 2f_2f_2f) X(K, 3f_2f_3f) X(K, 4f_2f_4f)
#define WARP(K)                       \
    K(codedPictureKernel, VT_SAME_2)  \
    K(warpKernel, VT_WARP)            \
    K(warpWrapKernel, VT_WARP)        \
    K(warpWhereKernel, VT_WARP_WHERE) \
    K(warpWhereWrapKernel, VT_WARP_WHERE)

VT_FAMILY(warp, WARP)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
