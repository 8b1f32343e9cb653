#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family blending;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Kernels::blending;

const ProgramSource maskMixSource(blending, "maskMixKernel");
const ProgramSource multiplyByMaskSource(blending, "multiplyByMaskKernel");
const ProgramSource crossFadeSource(blending, "crossFadeKernel");

constexpr int onePixel = 1;

}  // namespace

void maskMix(const Image& a, const Image& b, const Image& mask, Image& output, int flags) {
    runKernel(maskMixSource, {&a, &b, &mask, &output}, flags, {});
}

void multiplyByMask(const Image& source, const Image& mask, Image& output, bool invert) {
    runKernel(multiplyByMaskSource, {&source, &mask, &output}, onePixel, {}, Compute::Scalar{"invert", invert});
}

void crossFade(const Image& a, const Image& b, Image& output, float mix, bool clampMix, const Float4& outsideA,
               const Float4& outsideB) {
    runKernel(crossFadeSource, {&a, &b, &output}, onePixel, {}, Compute::Scalar{"mix", mix},
              Compute::Scalar{"clampMix", clampMix}, Compute::Scalar{"constEdgeColorA", outsideA},
              Compute::Scalar{"constEdgeColorB", outsideB});
}

}  // namespace Vellum::Common
