// Statistics of blocks and what becomes of them, one kernel for each step. Compiled once per instruction set.
//
// Each of the first three and the upsampling has a second form, named Wrap, for pictures whose columns close round the
// width of the format: blocks at the right end go on at the left.
#include "ToneAligner/kernels/blockGrid.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

struct BlockParams {
    int size = 5;
    int half = 2;
    int odd = 1;
};
#define VT_BLOCK_SCALARS                                                               \
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(size)}};                 \
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(half), VT_SCALAR(odd)}}; \
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {            \
        p.half = p.size / 2;                                                           \
        p.odd = p.size % 2;                                                            \
    }

struct WrappedBlockParams {
    int size = 5;
    int wrapSize[2] = {-1, -1};
    int half = 2;
    int odd = 1;
};
#define VT_WRAPPED_BLOCK_SCALARS                                                            \
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(size), VT_SCALAR(wrapSize)}}; \
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(half), VT_SCALAR(odd)}};      \
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {                 \
        p.half = p.size / 2;                                                                \
        p.odd = p.size % 2;                                                                 \
    }

/// Calls visit(x, y) for the pixels of the block of a grid cell, and rowEnd() after each row of them. A block that
/// leaves the picture is pushed back inside.
VT_FN void forEachOfBlock(const BlockParams& p, const auto& picture, const auto& cell, auto visit, auto rowEnd) {
    using I = decltype(cell.column());
    const auto corner = [&](I place, int from, int to) {
        const I start = blockCorner(place, p.half, p.odd) + I(from);
        const I end = start + I(p.size);
        return select(end < I(to), end, I(to)) - I(p.size);
    };
    const I x0 = corner(cell.column() - I(cell.left()), picture.left(), picture.right());
    const I y0 = corner(I(cell.row() - cell.bottom()), picture.bottom(), picture.top());
    for (int j = 0; j < p.size; ++j) {
        for (int i = 0; i < p.size; ++i)
            visit(x0 + I(i), y0 + I(j));
        rowEnd();
    }
}
/// A block that leaves the picture on the right goes on at the left.
VT_FN void forEachOfBlock(const WrappedBlockParams& p, const auto& picture, const auto& cell, auto visit, auto rowEnd) {
    using I = decltype(cell.column());
    const int width = p.wrapSize[0] >= 1 ? p.wrapSize[0] : picture.right() - picture.left();
    const I x0 = blockCorner(cell.column() - I(cell.left()), p.half, p.odd);
    const I y0 = blockCorner(I(cell.row() - cell.bottom()), p.half, p.odd) + I(picture.bottom());
    for (int j = 0; j < p.size; ++j) {
        for (int i = 0; i < p.size; ++i) {
            I column = x0 + I(i);
            while (any(column >= I(width)))
                column = select(column >= I(width), column - I(width), column);
            visit(column + I(picture.left()), y0 + I(j));
        }
        rowEnd();
    }
}

/// Weighted sums over a block. Rows are summed first, which keeps what rounding takes small.
template <class V, int count>
class BlockSums {
public:
    VT_INLINE BlockSums() {
        for (int c = 0; c <= count; ++c)
            row_[c] = total_[c] = V(0.f);
    }
    VT_INLINE void add(V weight, const V (&values)[count]) {
        row_[count] += weight;
        for (int c = 0; c < count; ++c)
            row_[c] += weight * values[c];
    }
    VT_INLINE void endRow() {
        for (int c = 0; c <= count; ++c) {
            total_[c] += row_[c];
            row_[c] = V(0.f);
        }
    }
    VT_INLINE V mean(int c) const { return select(total_[count] > V(0.f), total_[c] / total_[count], V(0.f)); }

private:
    V row_[count + 1], total_[count + 1];
};

VT_FN void countOfBlock(const auto& p, auto mask, auto count) {
    auto sum = count.lane(0);
    forEachOfBlock(
        p, mask, count,
        [&](auto x, auto y) { sum += select(mask.fetch(x, y) > count.lane(0), count.lane(1), count.lane(0)); }, [] {});
    count = sum;
}

VT_FN void meanOfBlock(const auto& p, auto A, auto W, auto M) {
    using V = decltype(M.lane(0));
    BlockSums<V, 3> sums;
    forEachOfBlock(
        p, A, M,
        [&](auto x, auto y) {
            const V values[3] = {A.fetch(x, y, 0), A.fetch(x, y, 1), A.fetch(x, y, 2)};
            sums.add(W.fetch(x, y), values);
        },
        [&] { sums.endRow(); });
    for (int c = 0; c < 3; ++c)
        M.put(c, sums.mean(c));
}

VT_FN void deviationOfBlock(const auto& p, auto A, auto M, auto W, auto D) {
    using V = decltype(D.lane(0));
    BlockSums<V, 3> sums;
    forEachOfBlock(
        p, A, D,
        [&](auto x, auto y) {
            V squares[3];
            for (int c = 0; c < 3; ++c) {
                const V d = A.fetch(x, y, c) - M(c);
                squares[c] = d * d;
            }
            sums.add(W.fetch(x, y), squares);
        },
        [&] { sums.endRow(); });
    for (int c = 0; c < 3; ++c)
        D.put(c, sqrt(sums.mean(c)));
}

template <Name N>
using Anywhere = In<N, Pattern::random, EdgeMethod::clamped>;

/// C = the number of pixels of the mask M above 0 in the block of each cell.
struct blockCountKernel : WholePixel<Anywhere<"M">, Out<"C">> {
    using Params = BlockParams;
    VT_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto M, auto C) { countOfBlock(p, M, C); }
};
/// The same with blocks that wrap round.
struct blockCountWrapKernel : WholePixel<Anywhere<"M">, Out<"C">> {
    using Params = WrappedBlockParams;
    VT_WRAPPED_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto M, auto C) { countOfBlock(p, M, C); }
};
/// M = the mean of A, weighted by W, in the block of each cell; 0 where the weights' sum isn't above 0.
struct blockMeanKernel : WholePixel<Anywhere<"A">, Anywhere<"W">, Out<"M">> {
    using Params = BlockParams;
    VT_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto A, auto W, auto M) { meanOfBlock(p, A, W, M); }
};
/// The same with blocks that wrap round.
struct blockMeanWrapKernel : WholePixel<Anywhere<"A">, Anywhere<"W">, Out<"M">> {
    using Params = WrappedBlockParams;
    VT_WRAPPED_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto A, auto W, auto M) { meanOfBlock(p, A, W, M); }
};
/// D = the square root of the mean of (A - M)^2, weighted by W, in the block of each cell, M being the cell's; 0 where
/// the weights' sum isn't above 0.
struct blockDeviationKernel : WholePixel<Anywhere<"A">, In<"M">, Anywhere<"W">, Out<"D">> {
    using Params = BlockParams;
    VT_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto A, auto M, auto W, auto D) { deviationOfBlock(p, A, M, W, D); }
};
/// The same with blocks that wrap round.
struct blockDeviationWrapKernel : WholePixel<Anywhere<"A">, In<"M">, Anywhere<"W">, Out<"D">> {
    using Params = WrappedBlockParams;
    VT_WRAPPED_BLOCK_SCALARS
    VT_FN void body(const Params& p, auto A, auto M, auto W, auto D) { deviationOfBlock(p, A, M, W, D); }
};

/// gain = devT / devS, limited to 0 .. 2, or 1 where |devS| isn't above 1e-8; offset = meanT - gain meanS.
struct blockTransferKernel : WholePixel<In<"meanS">, In<"devS">, In<"meanT">, In<"devT">, Out<"offset">, Out<"gain">> {
    VT_FN void body(const NoParams&, auto meanS, auto devS, auto meanT, auto devT, auto offset, auto gain) {
        for (int c = 0; c < 3; ++c) {
            const auto factor = transferGain(devS(c), devT(c));
            gain.put(c, factor);
            offset.put(c, meanT(c) - factor * meanS(c));
        }
    }
};

/// O = the grid A, scaled up to the picture bilinearly; at its ends the nearest cells.
struct bilinearUpsampleKernel : WholePixel<Anywhere<"A">, Out<"O">> {
    struct Params {
        float stepX = 1;
        float stepY = 1;
    };
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(stepX), VT_SCALAR(stepY)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        scaleOfGrid(images[0], images[1], p.stepX, p.stepY);
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        using V = decltype(O.lane(0));
        const GridScale scale{p.stepX, p.stepY, 0, 0};
        const auto column = scale.column(toFloat(O.column() - IntOf<V>(O.left())));
        const auto row = scale.row(V(static_cast<float>(O.row() - O.bottom())));
        for (int c = 0; c < O.count; ++c)
            O.put(c, bilinear(A, column, row, c));
    }
};
/// The same for a picture whose columns close: left of the first cell lies the last.
struct bilinearUpsampleWrapKernel : WholePixel<Anywhere<"A">, Out<"O">> {
    struct Params {
        int wrapSize[2] = {-1, -1};
        float stepX = 1;
        float stepY = 1;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(wrapSize)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(stepX), VT_SCALAR(stepY)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        scaleOfGrid(images[0], images[1], p.stepX, p.stepY);
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        using V = decltype(O.lane(0));
        const int width = p.wrapSize[0] >= 1 ? p.wrapSize[0] : O.right() - O.left();
        const int height = p.wrapSize[1] >= 1 ? p.wrapSize[1] : O.top() - O.bottom();
        const GridScale scale{p.stepX, p.stepY, width, height};
        const auto column = scale.column(toFloat(O.column() - IntOf<V>(O.left())));
        const auto row = scale.row(V(static_cast<float>(O.row() - O.bottom())));
        for (int c = 0; c < O.count; ++c)
            O.put(c, bilinear(A, column, row, c));
    }
};

/// Components 0 to 2 of O = gain A + offset, A itself where |A| isn't above 1e-8.
struct gainOffsetApplyKernel : WholePixel<In<"A">, In<"offset">, In<"gain">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto offset, auto gain, auto O) {
        for (int c = 0; c < 3; ++c)
            O.put(c, correctedBy(A(c), gain(c), offset(c)));
    }
};

/// Components 0 to 2 of O = of A and B the one nearer to R; B at equal distance.
struct pickCloserKernel : WholePixel<In<"A">, In<"B">, In<"R">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto B, auto R, auto O) {
        for (int c = 0; c < 3; ++c) {
            const auto a = A(c);
            const auto b = B(c);
            const auto r = R(c);
            O.put(c, select(abs(r - a) < abs(r - b), a, b));
        }
    }
};

#define VT_COUNT(X, K) X(K, 1f_1f)
#define VT_MEAN(X, K) X(K, 3f_1f_3f)
#define VT_DEVIATION(X, K) X(K, 3f_3f_1f_3f)
#define VT_TRANSFER(X, K) X(K, 3f_3f_3f_3f_3f_3f)
#define VT_APPLY_GRIDS(X, K) X(K, 3f_3f_3f_3f) X(K, 4f_3f_3f_3f) X(K, 3f_3f_3f_4f) X(K, 4f_3f_3f_4f)
#define VT_MIX_OF(X, K, a, b) X(K, a##_##b##_3f_3f) X(K, a##_##b##_4f_3f) X(K, a##_##b##_3f_4f) X(K, a##_##b##_4f_4f)
#define VT_PICK(X, K) VT_MIX_OF(X, K, 3f, 3f) VT_MIX_OF(X, K, 3f, 4f) VT_MIX_OF(X, K, 4f, 3f) VT_MIX_OF(X, K, 4f, 4f)
#define BLOCKS(K)                             \
    K(blockCountKernel, VT_COUNT)             \
    K(blockCountWrapKernel, VT_COUNT)         \
    K(blockMeanKernel, VT_MEAN)               \
    K(blockMeanWrapKernel, VT_MEAN)           \
    K(blockDeviationKernel, VT_DEVIATION)     \
    K(blockDeviationWrapKernel, VT_DEVIATION) \
    K(blockTransferKernel, VT_TRANSFER)       \
    K(bilinearUpsampleKernel, VT_SAME_2)      \
    K(bilinearUpsampleWrapKernel, VT_SAME_2)  \
    K(gainOffsetApplyKernel, VT_APPLY_GRIDS)  \
    K(pickCloserKernel, VT_PICK)

VT_FAMILY(blocks, BLOCKS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
