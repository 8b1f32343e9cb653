#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family brokenPixels;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Compute::Scalar;
using Vellum::Kernels::brokenPixels;

const ProgramSource countBrokenSource(brokenPixels, "countBrokenKernel");
const ProgramSource wholePixelsSource(brokenPixels, "wholePixelsKernel");
const ProgramSource replaceBrokenSource(brokenPixels, "replaceBrokenKernel");
const ProgramSource mendPixelsSource(brokenPixels, "mendPixelsKernel");

constexpr int packed = 19;

}  // namespace

std::size_t countBroken(const Image& image, int firstComponent, int lastComponent) {
    float broken = 0;
    Compute::runKernelThen(
        countBrokenSource, {&image}, packed, {},
        [&](const JIT::KernelExecutionContext& context) { broken = context.get<float>({"broken"}); },
        Scalar{"firstComponent", firstComponent}, Scalar{"lastComponent", lastComponent});
    return static_cast<std::size_t>(broken);
}

void wholePixels(const Image& image, Image& output, int firstComponent, int lastComponent) {
    runKernel(wholePixelsSource, {&image, &output}, packed, {}, Scalar{"firstComponent", firstComponent},
              Scalar{"lastComponent", lastComponent});
}

void replaceBroken(const Image& source, Image& output, float replacement) {
    runKernel(replaceBrokenSource, {&source, &output}, packed, {}, Scalar{"replacement", replacement});
}

void mendPixels(const Image& source, const Image& replacement, Image& output) {
    runKernel(mendPixelsSource, {&source, &replacement, &output}, packed, {});
}

}  // namespace Vellum::Common
