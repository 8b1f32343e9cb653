// Sums over images. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// A total per component.
template <class... Images>
struct PlainSums : PerComponentSum<Images...> {
    template <class V>
    struct Sums {
        V sum;
    };
    struct Results {
        float sum[4];
    };
    static constexpr ScalarDeclarations accumulators{1, {VT_RESULT(sum)}};
};

/// For each component: the sum of A.
struct sumKernel : PlainSums<In<"A">> {
    VT_FN void body(const Params&, auto& sums, auto A) { sums.sum += A(); }
};

/// O = exp(-d^2 / (2 sigma^2)), d being the distance to the middle of O's box, and exactly 0 where the exponent isn't
/// above -20; and the sum of O.
struct gaussianImageKernel : PlainSums<Out<"O">> {
    struct Params {
        float sigma = 1;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(sigma)}};
    VT_FN void body(const Params& p, auto& sums, auto O) {
        using V = decltype(O.lane(0));
        const float middleX = static_cast<float>(O.left() - 1 + O.right()) * 0.5f;
        const float middleY = static_cast<float>(O.bottom() - 1 + O.top()) * 0.5f;
        const V dx = toFloat(O.column()) - V(middleX);
        const V dy = V(static_cast<float>(O.row()) - middleY);
        const V exponent = -(dx * dx + dy * dy) / V(2 * p.sigma * p.sigma);
        const V value = select(exponent > V(-20.f), exp(exponent), V(0.f));
        O = value;
        sums.sum += value;
    }
};

/// A total and a number of pixels per component.
struct MaskedSums : PerComponentSum<In<"M">, In<"A">> {
    template <class V>
    struct Sums {
        V sum, count;
    };
    struct Results {
        float sum[4], count[4];
    };
    static constexpr ScalarDeclarations accumulators{2, {VT_RESULT(sum), VT_RESULT(count)}};
};

/// For each component: the sum of A and the number of pixels where the mask's own component is above 0. A mask of NaN
/// doesn't count.
struct maskedSumKernel : MaskedSums {
    VT_FN void body(const Params&, auto& sums, auto M, auto A) {
        const auto counts = M() > 0.f;
        sums.sum += select(counts, A(), A.lane(0));
        sums.count += select(counts, A.lane(1), A.lane(0));
    }
};

/// The same with (A - mean)^2 in place of A.
struct maskedSquaredDeviationKernel : MaskedSums {
    struct Params {
        float mean[4] = {0, 0, 0, 0};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(mean)}};
    VT_FN void body(const Params& p, auto& sums, auto M, auto A) {
        const auto counts = M() > 0.f;
        const auto d = A() - p.mean[A.component];
        sums.sum += select(counts, d * d, A.lane(0));
        sums.count += select(counts, A.lane(1), A.lane(0));
    }
};

#define VT_ONE(X, K) X(K, 1f)
#define STATISTICS(K)              \
    K(sumKernel, VT_SAME_1)        \
    K(gaussianImageKernel, VT_ONE) \
    K(maskedSumKernel, VT_SAME_2)  \
    K(maskedSquaredDeviationKernel, VT_SAME_2)

VT_FAMILY(statistics, STATISTICS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
