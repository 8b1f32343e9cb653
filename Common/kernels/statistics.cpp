// Sums over images. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

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

#define STATISTICS(K)             \
    K(maskedSumKernel, VT_SAME_2) \
    K(maskedSquaredDeviationKernel, VT_SAME_2)

VT_FAMILY(statistics, STATISTICS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
