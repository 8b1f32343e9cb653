// Mixing of pictures. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = (1 - m) B + m A with m = M. Where m is 0 this is B, if A is finite; NaN or infinity in A shows even then.
/// Components of O beyond A's stay.
struct maskMixKernel : WholePixel<In<"A">, In<"B">, In<"M">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto M, auto O) {
        auto m = M();
        constexpr int both = A.count < O.count ? A.count : O.count;
        for (int c = 0; c < both; ++c)
            O.put(c, (1.f - m) * B(c) + m * A(c));
    }
};

/// O = A m, with `invert` A (1 - m), m = M.
struct multiplyByMaskKernel : WholePixel<In<"A">, In<"M">, Out<"O">> {
    struct Params {
        bool invert = false;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(invert)}};
    VT_FN void body(const Params& p, auto A, auto M, auto O) {
        const auto m = M();
        const auto factor = select(p.invert, 1.f - m, m);
        for (int c = 0; c < A.count; ++c)
            O.put(c, A(c) * factor);
    }
};

/// O = w A + (1 - w) B with w = mix, limited to 0 .. 1 with clampMix. Outside its box an image is constEdgeColor.
struct crossFadeKernel : PerComponent<In<"A", Pattern::point, EdgeMethod::constant>,
                                      In<"B", Pattern::point, EdgeMethod::constant>, Out<"O">> {
    struct Params {
        float mix = 0.5f;
        bool clampMix = true;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(mix), VT_SCALAR(clampMix)}};
    VT_FN void body(const Params& p, auto A, auto B, auto O) {
        const float w = p.clampMix ? clampTo(p.mix, 0.f, 1.f) : p.mix;
        O = A() * w + B() * (1 - w);
    }
};

#define VT_MIX(X, K) VT_MIX_OF(X, K, 1) VT_MIX_OF(X, K, 2) VT_MIX_OF(X, K, 3) VT_MIX_OF(X, K, 4)
#define VT_MIX_OF(X, K, n) VT_PAIRS_FROM(X, K, n##f_##n##f_1)
#define VT_THROUGH_MASK(X, K) X(K, 1f_1f_1f) X(K, 2f_1f_2f) X(K, 3f_1f_3f) X(K, 4f_1f_4f)
#define BLENDING(K)                          \
    K(maskMixKernel, VT_MIX)                 \
    K(multiplyByMaskKernel, VT_THROUGH_MASK) \
    K(crossFadeKernel, VT_SAME_3)

VT_FAMILY(blending, BLENDING)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
