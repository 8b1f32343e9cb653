#include "vellumGlobalMatch.h"

#include <algorithm>
#include <cmath>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family correctionLimit;
extern const Family globalMatch;
}  // namespace Vellum::Kernels

namespace Vellum::Tone {

namespace {

using Compute::ProgramSource;
using Compute::Scalar;
using Vellum::Image::Image;

const ProgramSource linearMapSource(Kernels::globalMatch, "linearMapKernel");
const ProgramSource countedPixelsSource(Kernels::globalMatch, "countedPixelsKernel");
const ProgramSource labSumSource(Kernels::globalMatch, "labSumKernel");
const ProgramSource labDeviationSource(Kernels::globalMatch, "labDeviationKernel");
const ProgramSource keepUnselectedSource(Kernels::globalMatch, "keepUnselectedKernel");
const ProgramSource applyGlobalMatchSource(Kernels::globalMatch, "applyGlobalMatchKernel");

constexpr float flatVariance = 0.00001f;
constexpr float gainLimit = 2.0f;

float perPixel(float sum, float count) {
    return count > 0 ? sum / count : 0.0f;
}

float limitedGain(float varianceA, float varianceB) {
    if (std::abs(varianceA) < flatVariance) return 1.0f;
    const float gain = std::sqrt(varianceB) / std::sqrt(varianceA);
    return gain > -gainLimit ? std::min(gain, gainLimit) : -gainLimit;  // an undefined gain ends at the lower limit
}

}  // namespace

GlobalMap globalMap(const LabStatistics& a, const LabStatistics& b) {
    GlobalMap map;
    for (int c = 0; c < 3; ++c) {
        map.gains[c] = limitedGain(a.variance[c], b.variance[c]);
        map.offsets[c] = b.mean[c] - map.gains[c] * a.mean[c];
    }
    return map;
}

LabStatistics labStatistics(const Image& mask, const Image& lab, int kernelFlags) {
    LabStatistics statistics;
    const auto sums = Common::maskedSum(mask, lab, kernelFlags);
    Common::Float4 mean{};
    for (int c = 0; c < 3; ++c)
        mean[c] = statistics.mean[c] = perPixel(sums.sum[c], sums.count[c]);
    const auto deviations = Common::maskedSquaredDeviation(mask, lab, mean, kernelFlags);
    for (int c = 0; c < 3; ++c)
        statistics.variance[c] = perPixel(deviations.sum[c], deviations.count[c]);
    return statistics;
}

void computeGlobalMatch(const Image& a, const Image& maskA, const Image& b, const Image& maskB, Image& result,
                        int kernelFlags) {
    const auto statisticsA = labStatistics(maskA, a, kernelFlags);
    const auto statisticsB = labStatistics(maskB, b, kernelFlags);
    const GlobalMap map = globalMap(statisticsA, statisticsB);
    Compute::runKernel(linearMapSource, {&a, &result}, kernelFlags, {}, Scalar{"offsets", map.offsets},
                       Scalar{"gains", map.gains});
}

void keepUnselected(const Image& source, const Image& userMask, Image& output, int kernelFlags) {
    Compute::runKernel(keepUnselectedSource, {&source, &userMask, &output}, kernelFlags, {});
}

void countedPixels(const Image& userMask, const Image& occlusion, Image& counted, int kernelFlags) {
    Compute::runKernel(countedPixelsSource, {&userMask, &occlusion, &counted}, kernelFlags, {},
                       Scalar{"tolerance", countedTolerance});
}

LabStatistics toLabWithStatistics(const Image& rgb, const Image& counted, Image& lab, int kernelFlags) {
    LabStatistics statistics;
    Compute::runKernelThen(
        labSumSource, {&rgb, &counted, &lab}, kernelFlags, {},
        [&](const JIT::KernelExecutionContext& context) {
            const auto sum = context.get<std::array<float, 3>>({"sum"});
            const auto count = context.get<float>({"count"});
            for (int c = 0; c < 3; ++c)
                statistics.mean[c] = perPixel(sum[c], count);
        },
        Scalar{"matrix", Common::rgbToXyzMatrix});
    Compute::runKernelThen(
        labDeviationSource, {&lab, &counted}, kernelFlags, {},
        [&](const JIT::KernelExecutionContext& context) {
            const auto sum = context.get<std::array<float, 3>>({"sum"});
            const auto count = context.get<float>({"count"});
            for (int c = 0; c < 3; ++c)
                statistics.variance[c] = perPixel(sum[c], count);
        },
        Scalar{"mean", statistics.mean});
    return statistics;
}

void applyGlobalMatch(const Image& lab, const Image& source, const Image& userMask, const GlobalMap& map, Image& output,
                      int kernelFlags) {
    Compute::runKernel(applyGlobalMatchSource, {&lab, &source, &userMask, &output}, kernelFlags, {},
                       Scalar{"offsets", map.offsets}, Scalar{"gains", map.gains},
                       Scalar{"matrix", Common::xyzToRgbMatrix});
}

}  // namespace Vellum::Tone
