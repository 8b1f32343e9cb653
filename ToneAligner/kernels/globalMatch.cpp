// The global match: one gain and one offset per Lab component. Compiled once per instruction set.
//
// The kernels countedPixelsKernel, labSumKernel, labDeviationKernel and applyGlobalMatchKernel run several steps of the
// plain sequence as one pass over the pictures, with the same arithmetic in the same order, so that both ways give the
// same bits.
#include "Common/kernels/colourMath.h"
#include "ending.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// gain v + offset, but exactly 0 for a v of (nearly) 0: a neutral pixel stays neutral.
template <class V>
VT_FN V mapValue(V v, float gain, float offset) {
    return select(abs(v) < 1e-8f, V(0.f), gain * v + offset);
}

/// O component c = 0 where |A component c| < 1e-8, else gains[c] A + offsets[c], for c of 0 to 2.
struct linearMapKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float offsets[4] = {0, 0, 0, 0};
        float gains[4] = {1, 1, 1, 1};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(offsets), VT_SCALAR(gains)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        for (int c = 0; c < 3; ++c)
            O.put(c, mapValue(A(c), p.gains[c], p.offsets[c]));
    }
};

/// V = 1 at the pixels whose colours count: selected by the user's mask and not occluded, both to within tolerance.
struct countedPixelsKernel : PerComponent<In<"mask">, In<"occlusion">, Out<"V">> {
    struct Params {
        float tolerance = 0;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(tolerance)}};
    VT_FN void body(const Params& p, auto mask, auto occlusion, auto V) {
        const auto unselected = 1.f - mask();
        const auto occluded = occlusion();
        const auto excluded = select(unselected > occluded, unselected, occluded);
        V = 1.f - select(excluded > p.tolerance, V.lane(1), V.lane(0));
    }
};

/// Totals of the three Lab components and the number of pixels.
template <class... Images>
struct LabSums : WholePixelSum<Images...> {
    template <class V>
    struct Sums {
        V sum[3], count;
    };
    struct Results {
        float sum[3], count;
    };
    static constexpr ScalarDeclarations accumulators{2, {VT_RESULT(sum), VT_RESULT(count)}};
};

/// L = the scaled Lab of the linear RGB picture A; sums of L, and the number of pixels, where M > 0.
struct labSumKernel : LabSums<In<"A">, In<"M">, Out<"L">> {
    struct Params {
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(matrix)}};
    VT_FN void body(const Params& p, auto& sums, auto A, auto M, auto L) {
        const auto lab = labOfRgb(p.matrix, A(0), A(1), A(2), labKnee);
        L.put(0, lab.a);
        L.put(1, lab.b);
        L.put(2, lab.c);
        const auto counts = M() > 0.f;
        sums.sum[0] += select(counts, lab.a, L.lane(0));
        sums.sum[1] += select(counts, lab.b, L.lane(0));
        sums.sum[2] += select(counts, lab.c, L.lane(0));
        sums.count += select(counts, L.lane(1), L.lane(0));
    }
};

/// Sums of (L - mean)^2, and the number of pixels, where M > 0.
struct labDeviationKernel : LabSums<In<"L">, In<"M">> {
    struct Params {
        float mean[3] = {0, 0, 0};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(mean)}};
    VT_FN void body(const Params& p, auto& sums, auto L, auto M) {
        const auto counts = M() > 0.f;
        for (int c = 0; c < 3; ++c) {
            const auto d = L(c) - p.mean[c];
            sums.sum[c] += select(counts, d * d, L.lane(0));
        }
        sums.count += select(counts, L.lane(1), L.lane(0));
    }
};

/// O = A where M is 0, and its alpha where that is no value; else O stays.
struct keepUnselectedKernel : WholePixel<In<"A">, In<"M">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto M, auto O) {
        const auto unselected = M() == O.lane(0);
        for (int c = 0; c < O.count; ++c) {
            const auto own = A(c);
            const auto keeps = c == 3 ? unselected | !isValue(own) : unselected;
            O.put(c, select(keeps, own, O(c)));
        }
    }
};

/// The Lab picture L mapped as by linearMapKernel, back in RGB with the alpha of A, mixed over A by M.
struct applyGlobalMatchKernel : WholePixel<In<"L">, In<"A">, In<"M">, Out<"O">> {
    struct Params {
        float offsets[4] = {0, 0, 0, 0};
        float gains[4] = {1, 1, 1, 1};
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(offsets), VT_SCALAR(gains), VT_SCALAR(matrix)}};
    VT_FN void body(const Params& p, auto L, auto A, auto M, auto O) {
        const auto lightness = mapValue(L(0), p.gains[0], p.offsets[0]);
        const auto a = mapValue(L(1), p.gains[1], p.offsets[1]);
        const auto b = mapValue(L(2), p.gains[2], p.offsets[2]);
        const auto xyz = xyzOfLab(lightness, a, b, labKnee);
        const auto rgb = multiplyMatrix(p.matrix, xyz.a, xyz.b, xyz.c);
        const auto m = M();
        O.put(0, endedColour(m, rgb.a, A(0), A(0)));
        O.put(1, endedColour(m, rgb.b, A(1), A(1)));
        O.put(2, endedColour(m, rgb.c, A(2), A(2)));
        O.put(3, endedAlpha(m, A(3), A(3)));
    }
};

#define VT_LAB_SUM(X, K) X(K, 3f_1f_3f) X(K, 4f_1f_3f)
#define VT_LAB_DEVIATION(X, K) X(K, 3f_1f)
#define VT_APPLY(X, K) X(K, 3f_4f_1f_4f)
#define VT_KEEP(X, K) X(K, 4f_1f_4f)
#define VT_ONE_COMPONENT(X, K) X(K, 1f_1f_1f)
#define GLOBAL_MATCH(K)                      \
    K(linearMapKernel, VT_COLOUR_PAIRS)      \
    K(countedPixelsKernel, VT_ONE_COMPONENT) \
    K(keepUnselectedKernel, VT_KEEP)         \
    K(labSumKernel, VT_LAB_SUM)              \
    K(labDeviationKernel, VT_LAB_DEVIATION)  \
    K(applyGlobalMatchKernel, VT_APPLY)

VT_FAMILY(globalMatch, GLOBAL_MATCH)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
