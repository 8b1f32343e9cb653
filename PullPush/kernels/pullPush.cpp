// The two steps of the fill: a level of the pyramid from the finer one, and back. Compiled once per instruction set.
//
// Values are taken as they are: NaN or infinity reaches every pixel whose stencil covers it, even with weight 0.
#include "rows.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// A pixel of the coarser level from the finer one:
///     w(i, j) = stencil(j, i) min(fineWeights, 1) at (2 x - 1 + i, 2 y - 1 + j), for i and j of 0 to 3
///     coarseValues = sum of w fineValues / sum of w, or where the sum of w is not above 0 the upper sum itself
///     coarseWeights = sum of w, but at least 0
template <class Weight>
struct Pull
    : WholePixel<In<"fineValues", Pattern::random, EdgeMethod::clamped>,
                 In<"fineWeights", Pattern::random, EdgeMethod::clamped>, Out<"coarseValues">, Out<"coarseWeights">> {
    VT_FN void body(const NoParams&, auto fineValues, auto fineWeights, auto coarseValues, auto coarseWeights) {
        using V = decltype(fineWeights.lane(0));
        using I = IntOf<V>;
        constexpr int n = fineValues.count;
        const I left = coarseValues.column() * I(2) - I(1);
        const int bottom = coarseValues.row() * 2 - 1;
        StencilSum<V, n> sum;
        for (int j = 0; j < 4; ++j) {
            const StencilRow stencil = rowOf(j);
            for (int i = 0; i < 4; ++i) {
                const I x = left + I(i), y(bottom + j);
                const V w = sum.addWeight(i == 1 || i == 2 ? stencil.inner : stencil.outer,
                                          Weight::counted(fineWeights.fetch(x, y)));
                for (int c = 0; c < n; ++c)
                    sum.addValue(c, w, fineValues.fetch(x, y, c));
            }
        }
        const auto pulled = sum.pulled();
        for (int c = 0; c < n; ++c)
            coarseValues.put(c, pulled.planes[c]);
        coarseWeights = pulled.weight();
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        constexpr int n = T.of[0], planes = n + 1;
        constexpr int width = LaneTraits<V>::width;
        constexpr int fineWidth = 2 * width + 2;
        Piece<n, planes, 4, fineWidth> finePiece;
        Piece<n, planes, 1, width> coarsePiece;
        for (int y = launch.y0; y < launch.y1; ++y) {
            const ImageRows<n, planes, 4> fine(launch.images, 2 * y - 1);
            const ImageRows<n, planes, 1> coarse(launch.images + 2, launch, y);
            for (int x = launch.x0; x < launch.x1; x += width) {
                const int left = 2 * x - 1;
                if (fine.cover(left, fineWidth) && coarse.cover(x, width)) {
                    pull<V, n>({fine, left}, {coarse, x});
                } else {
                    finePiece.copy(fine, left);
                    pull<V, n>({finePiece, 0}, {coarsePiece, 0});
                    coarsePiece.putBack(coarse, x);
                }
            }
        }
    }

private:
    VT_FN StencilRow rowOf(int j) { return stencilRow(j == 1 || j == 2); }

    /// The pixels of a fine row that meet the stencil's columns 0 to 3: every second one each.
    template <class V>
    struct Places {
        V at[4];

        VT_INLINE explicit Places(const float* row) {
            constexpr int width = LaneTraits<V>::width;
            const V a = load<V>(row + 1, 1), b = load<V>(row + 1 + width, 1);
            at[1] = evenLanes(a, b);
            at[2] = oddLanes(a, b);
            at[0] = lanesBefore(row[0], at[2]);
            at[3] = lanesAfter(at[1], row[2 * width + 1]);
        }
    };

    /// A register of pixels.
    template <class V, int N>
    VT_FN void pull(RowsAt<N + 1, 4> fine, RowsAt<N + 1, 1> coarse) {
        StencilSum<V, N> sum;
        VT_UNROLL
        for (int j = 0; j < 4; ++j) {
            const StencilRow stencil = rowOf(j);
            const Places<V> weights(fine(j, N));
            const V w0 = sum.addWeight(stencil.outer, Weight::counted(weights.at[0]));
            const V w1 = sum.addWeight(stencil.inner, Weight::counted(weights.at[1]));
            const V w2 = sum.addWeight(stencil.inner, Weight::counted(weights.at[2]));
            const V w3 = sum.addWeight(stencil.outer, Weight::counted(weights.at[3]));
            VT_UNROLL
            for (int c = 0; c < N; ++c) {
                const Places<V> values(fine(j, c));
                sum.addValue(c, w0, values.at[0]);
                sum.addValue(c, w1, values.at[1]);
                sum.addValue(c, w2, values.at[2]);
                sum.addValue(c, w3, values.at[3]);
            }
        }
        storePixels(sum.pulled(), coarse, 0);
    }
};

struct pullKernel : Pull<LevelWeight> {};

/// The first pull, from the picture itself: its weights are limited to 0 .. 1 on the way.
struct pullPictureKernel : Pull<GivenWeight> {};

/// What a coarser level gives to pixel (x, y) of the finer one:
///     w = stencil(j', i') min(coarseWeights, 1);  values = sum of w coarseValues / sum of w, 0 without weight
/// summed over the coarse pixels in columns cx = (x + i - 2) div 2 and rows cy = (y + j - 2) div 2 for i and j of 0 to
/// 3, each taken once, as far as i' = x - 2 cx + 1 and j' = y - 2 cy + 1 are places of the stencil. That leaves two
/// columns: for even x = 2 k these are k - 1 (at i' = 3) and k (at 1), for odd x = 2 k + 1 they are k (at 2) and k + 1
/// (at 0); rows alike. It holds at the border and for negative numbers, whichever way the division rounds.
template <class Weight, class... Images>
struct Push : WholePixel<In<"coarseValues", Pattern::random, EdgeMethod::clamped>,
                         In<"coarseWeights", Pattern::random, EdgeMethod::clamped>, Images...> {
protected:
    template <class V, int N>
    VT_FN Weighted<V, N> raisedAt(const auto& coarseValues, const auto& coarseWeights, IntOf<V> x, int y) {
        using I = IntOf<V>;
        const auto oddColumn = (x & I(1)) != I(0);
        StencilSum<V, N> sum;
        for (int j = 0; j < 2; ++j) {
            const StencilRow stencil = rowOf(y, j);
            for (int i = 0; i < 2; ++i) {
                const I cx = firstOf(x) + I(i), cy(firstOf(y) + j);
                const V odd(i == 0 ? stencil.inner : stencil.outer);
                const V even(i == 0 ? stencil.outer : stencil.inner);
                const V w =
                    sum.addWeight(select(oddColumn, odd, even), LevelWeight::counted(coarseWeights.fetch(cx, cy)));
                for (int c = 0; c < N; ++c)
                    sum.addValue(c, w, coarseValues.fetch(cx, cy, c));
            }
        }
        return sum.raised();
    }

    /// Pixels of images `from` become those of images `to`, of which there are P planes.
    template <class V, int N, int P>
    VT_FN void pushRows(const Launch& launch, const ImageArgument* from, const ImageArgument* to) {
        constexpr int width = LaneTraits<V>::width;
        constexpr int coarseWidth = width + 2;
        Piece<N, N + 1, 2, coarseWidth> coarsePiece;
        Piece<N, N + 1, 1, 2 * width> ownPiece;
        Piece<N, P, 1, 2 * width> finePiece;
        for (int y = launch.y0; y < launch.y1; ++y) {
            const ImageRows<N, N + 1, 2> coarse(launch.images, firstOf(y));
            const ImageRows<N, N + 1, 1> own(from, launch, y);
            const ImageRows<N, P, 1> fine(to, launch, y);
            const StencilRow stencils[] = {rowOf(y, 0), rowOf(y, 1)};
            for (int k = launch.x0 >> 1; 2 * k < launch.x1; k += width) {
                if (coarse.cover(k - 1, coarseWidth) && fine.cover(2 * k, 2 * width)) {
                    push<V, N, P>(stencils, {coarse, k - 1}, {own, 2 * k}, {fine, 2 * k});
                } else {
                    coarsePiece.copy(coarse, k - 1);
                    ownPiece.copy(own, 2 * k);
                    push<V, N, P>(stencils, {coarsePiece, 0}, {ownPiece, 0}, {finePiece, 0});
                    finePiece.putBack(fine, 2 * k);
                }
            }
        }
    }

private:
    /// The first of the two coarse columns or rows that count.
    template <class I>
    VT_FN I firstOf(I position) {
        return ((position + I(1)) >> 1) - I(1);
    }
    /// The stencil's row for coarse row firstOf(y) + j.
    VT_FN StencilRow rowOf(int y, int j) { return stencilRow((y + j) & 1); }

    /// Two registers of neighbouring pixels. Those in even columns are computed together and those in odd ones, since
    /// pixels of one kind meet the same places of the stencil.
    template <class V, int N, int P>
    VT_FN void push(const StencilRow* stencils, RowsAt<N + 1, 2> coarse, RowsAt<N + 1, 1> own, RowsAt<P, 1> fine) {
        StencilSum<V, N> even, odd;
        VT_UNROLL
        for (int j = 0; j < 2; ++j) {
            const V outer(stencils[j].outer), inner(stencils[j].inner);
            const float* weights = coarse(j, N);
            const V left = LevelWeight::counted(load<V>(weights, 1));
            const V here = LevelWeight::counted(load<V>(weights + 1, 1));
            const V right = LevelWeight::counted(load<V>(weights + 2, 1));
            const V evenOuter = even.addWeight(outer, left);
            const V evenInner = even.addWeight(inner, here);
            const V oddInner = odd.addWeight(inner, here);
            const V oddOuter = odd.addWeight(outer, right);
            VT_UNROLL
            for (int c = 0; c < N; ++c) {
                const float* values = coarse(j, c);
                even.addValue(c, evenOuter, load<V>(values, 1));
                even.addValue(c, evenInner, load<V>(values + 1, 1));
                odd.addValue(c, oddInner, load<V>(values + 1, 1));
                odd.addValue(c, oddOuter, load<V>(values + 2, 1));
            }
        }
        const auto raisedEven = even.raised();
        const auto raisedOdd = odd.raised();
        Weighted<V, N> low, high;
        VT_UNROLL
        for (int plane = 0; plane < P; ++plane) {
            low.planes[plane] = interleaveLow(raisedEven.planes[plane], raisedOdd.planes[plane]);
            high.planes[plane] = interleaveHigh(raisedEven.planes[plane], raisedOdd.planes[plane]);
        }
        storePushed<V, N, P>(low, own, fine, 0);
        storePushed<V, N, P>(high, own, fine, LaneTraits<V>::width);
    }

    template <class V, int N, int P>
    VT_FN void storePushed(const Weighted<V, N>& raised, RowsAt<N + 1, 1> own, RowsAt<P, 1> fine, int from) {
        const auto pixels = loadPixels<V, N>(own, from);
        storePixels(pushed(raised, pixels, Weight::counted(pixels.weight())), fine, from);
    }
};

/// A pixel of the finer level, in place, with what the coarser level gives as `raised`:
///     a = min(weights, 1);  values = raised (1 - a) + values a;  weights = sum of w (1 - a) + a, but at least 0
struct pushKernel : Push<LevelWeight, Out<"values">, Out<"weights">> {
    VT_FN void body(const Params&, auto coarseValues, auto coarseWeights, auto values, auto weights) {
        using V = decltype(weights.lane(0));
        constexpr int n = values.count;
        Weighted<V, n> own;
        for (int c = 0; c < n; ++c)
            own.planes[c] = values(c);
        own.weight() = weights();
        const auto raised = raisedAt<V, n>(coarseValues, coarseWeights, values.column(), values.row());
        const auto pixel = pushed(raised, own, LevelWeight::counted(own.weight()));
        for (int c = 0; c < n; ++c)
            values.put(c, pixel.planes[c]);
        weights = pixel.weight();
    }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        pushRows<V, T.of[0], T.of[0] + 1>(launch, launch.images + 2, launch.images + 2);
    }
};

/// The last push, from the picture and its weights, limited to 0 .. 1, into the result.
struct pushPictureKernel : Push<GivenWeight, In<"picture">, In<"weights">, Out<"result">> {
    VT_FN void body(const Params&, auto coarseValues, auto coarseWeights, auto picture, auto weights, auto result) {
        using V = decltype(weights.lane(0));
        constexpr int n = picture.count;
        Weighted<V, n> own;
        for (int c = 0; c < n; ++c)
            own.planes[c] = picture(c);
        own.weight() = weights();
        const auto raised = raisedAt<V, n>(coarseValues, coarseWeights, result.column(), result.row());
        const auto pixel = pushed(raised, own, GivenWeight::counted(own.weight()));
        for (int c = 0; c < n; ++c)
            result.put(c, pixel.planes[c]);
    }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        pushRows<V, T.of[0], T.of[0]>(launch, launch.images + 2, launch.images + 4);
    }
};

#define VT_LEVELS(X, K) X(K, 1f_1f_1f_1f) X(K, 2f_1f_2f_1f) X(K, 3f_1f_3f_1f) X(K, 4f_1f_4f_1f)
#define VT_LEVEL_AND_PICTURE(X, K) X(K, 1f_1f_1f_1f_1f) X(K, 2f_1f_2f_1f_2f) X(K, 3f_1f_3f_1f_3f) X(K, 4f_1f_4f_1f_4f)
#define PULL_PUSH(K)                \
    K(pullKernel, VT_LEVELS)        \
    K(pullPictureKernel, VT_LEVELS) \
    K(pushKernel, VT_LEVELS)        \
    K(pushPictureKernel, VT_LEVEL_AND_PICTURE)

VT_FAMILY(pullPush, PULL_PUSH)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
