#include "FFT/FourierTransform.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family padding;
}

namespace Vellum::FFT {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;

const ProgramSource padKernelSource(Kernels::padding, "padKernelKernel");
const ProgramSource padImageSource(Kernels::padding, "padImageKernel");
const ProgramSource cropSource(Kernels::padding, "cropKernel");

constexpr int packedCode = 19;

Image realImage(const FourierTransformHelper& helper, const Box& box, Compute::Device& device) {
    const Format format = helper.realFormat();
    return Image({box, format.components, format.type}, device, helper.realLayout());
}

}  // namespace

Image FourierTransformHelper::paddedImage(const Image& image, int channel, const Box& padded) const {
    Image result = realImage(*this, padded, device());
    runKernel(padImageSource, {&image, &result}, packedCode, {}, Scalar{"channel", channel});
    return result;
}

Image FourierTransformHelper::paddedKernel(const Image& kernel, int channel, const Box& padded) const {
    Image result = realImage(*this, padded, device());
    result.clear();
    runKernel(padKernelSource, {&kernel, &result}, packedCode, JIT::IterationController::over(kernel.box()),
              Scalar{"channel", channel});
    return result;
}

void FourierTransformHelper::crop(const Image& reversed, Image& output, int channel) const {
    const Box& box = output.box();
    const std::array<int, 4> corners{box.x0, box.y0, box.x1, box.y1};
    const float scale = 1.0f / static_cast<float>(reversed.box().pixels());
    runKernel(cropSource, {&reversed, &output}, packedCode, {}, Scalar{"channel", channel}, Scalar{"box", corners},
              Scalar{"scale", scale});
}

}  // namespace Vellum::FFT
