// Operations on single pixels. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = A.
struct copyKernel : PerComponent<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) { O = A(); }
};

/// O component destChannel = A component sourceChannel; the other components stay. Does nothing where either image
/// lacks its component.
struct copyChannelKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        int sourceChannel = 0;
        int destChannel = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(sourceChannel), VT_SCALAR(destChannel)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        if (p.sourceChannel < 0 || p.sourceChannel >= A.count || p.destChannel < 0 || p.destChannel >= O.count) return;
        O.put(p.destChannel, A(p.sourceChannel));
    }
};

/// O component c = A component c for c from firstChannel to lastChannel, both included, as far as both images have it.
struct copyChannelRangeKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        int firstChannel = 0;
        int lastChannel = 3;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(firstChannel), VT_SCALAR(lastChannel)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        constexpr int both = A.count < O.count ? A.count : O.count;
        for (int c = 0; c < both; ++c)
            if (c >= p.firstChannel && c <= p.lastChannel) O.put(c, A(c));
    }
};

/// O = 0, also for unsigned images.
struct clearKernel : PerComponent<Out<"O">> {
    VT_FN void body(const Params&, auto O) { O = O.lane(0); }
};

/// O component c = value[c].
struct fillConstantKernel : PerComponent<Out<"O">> {
    struct Params {
        float value[4] = {0, 0, 0, 0};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(value)}};
    VT_FN void body(const Params& p, auto O) { O = O.lane(p.value[O.component]); }
};

/// O = 1 - A.
struct invertKernel : PerComponent<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) { O = 1.f - A(); }
};

/// O = B where B > A, else A; so A where either is NaN.
struct maxKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) {
        auto a = A();
        auto b = B();
        O = select(b > a, b, a);
    }
};

/// O = A (1 with binarise) where A > threshold, else 0; so 0 for NaN.
struct thresholdKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float threshold = 0;
        bool binarise = false;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(threshold), VT_SCALAR(binarise)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        auto a = A();
        O = select(a > p.threshold, select(p.binarise, A.lane(1), a), A.lane(0));
    }
};

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

/// O = the sum over A's components of A[c] w[c], from 0 upward; w is weights, divided by the sum of all four with
/// normalise.
struct weightedComponentSumKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float weights[4] = {1.f / 3, 1.f / 3, 1.f / 3, 0};
        bool normalise = true;
        float used[4] = {};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(weights), VT_SCALAR(normalise)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(used)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {
        const float total = p.weights[0] + p.weights[1] + p.weights[2] + p.weights[3];
        for (int c = 0; c < 4; ++c)
            p.used[c] = p.normalise ? p.weights[c] / total : p.weights[c];
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int c = 0; c < A.count; ++c)
            sum += A(c) * p.used[c];
        O = sum;
    }
};

#define VT_MIX(X, K) VT_MIX_OF(X, K, "1") VT_MIX_OF(X, K, "2") VT_MIX_OF(X, K, "3") VT_MIX_OF(X, K, "4")
#define VT_MIX_OF(X, K, n) VT_PAIRS_FROM(X, K, n "f_" n "f_1")
#define POINTWISE(K)                       \
    K(copyKernel, VT_SAME_2)               \
    K(copyChannelKernel, VT_PAIRS)         \
    K(copyChannelRangeKernel, VT_PAIRS)    \
    K(clearKernel, VT_SAME_1_AND_UNSIGNED) \
    K(fillConstantKernel, VT_SAME_1)       \
    K(invertKernel, VT_SAME_2)             \
    K(maxKernel, VT_SAME_3)                \
    K(thresholdKernel, VT_SAME_2)          \
    K(maskMixKernel, VT_MIX)               \
    K(weightedComponentSumKernel, VT_TO_ONE)

VT_FAMILY(pointwise, POINTWISE)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
