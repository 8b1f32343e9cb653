#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family statistics;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernelThen;
using Vellum::Kernels::statistics;

const ProgramSource sumSource(statistics, "sumKernel");
const ProgramSource gaussianImageSource(statistics, "gaussianImageKernel");
const ProgramSource maskedSumSource(statistics, "maskedSumKernel");
const ProgramSource maskedSquaredDeviationSource(statistics, "maskedSquaredDeviationKernel");

constexpr int onePixel = 1;

/// Takes the two results that both kernels have.
auto readInto(MaskedSums& sums) {
    return [&sums](const Vellum::JIT::KernelExecutionContext& context) {
        sums.sum = context.get<Float4>({"sum"});
        sums.count = context.get<Float4>({"count"});
    };
}

}  // namespace

Float4 sum(const Image& image) {
    Float4 total{};
    runKernelThen(sumSource, {&image}, onePixel, {},
                  [&](const JIT::KernelExecutionContext& context) { total = context.get<Float4>({"sum"}); });
    return total;
}

float makeGaussian(Image& image, float sigma) {
    float total = 0;
    runKernelThen(
        gaussianImageSource, {&image}, onePixel, {},
        [&](const JIT::KernelExecutionContext& context) { total = context.get<Float4>({"sum"})[0]; },
        Compute::Scalar{"sigma", sigma});
    return total;
}

MaskedSums maskedSum(const Image& mask, const Image& image, int flags) {
    MaskedSums sums;
    runKernelThen(maskedSumSource, {&mask, &image}, flags, {}, readInto(sums));
    return sums;
}

MaskedSums maskedSquaredDeviation(const Image& mask, const Image& image, const Float4& mean, int flags) {
    MaskedSums sums;
    runKernelThen(maskedSquaredDeviationSource, {&mask, &image}, flags, {}, readInto(sums),
                  Compute::Scalar{"mean", mean});
    return sums;
}

}  // namespace Vellum::Common
