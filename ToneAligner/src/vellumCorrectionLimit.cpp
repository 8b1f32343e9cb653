#include "vellumCorrectionLimit.h"

#include <algorithm>

#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family correctionLimit;
}

namespace Vellum::Tone {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;
using Convolution::ConvolutionHelper;
using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;
using Vellum::Image::Box;
using Vellum::Image::DeviceBase;
using Vellum::Image::Image;

const ProgramSource lightnessDifferenceSource(Kernels::correctionLimit, "lightnessDifferenceKernel");
const ProgramSource limitCorrectionSource(Kernels::correctionLimit, "limitCorrectionKernel");

constexpr float kneeOfLimit = 0.15f;

/// The window's halves lie at the ends of the transformed box: each must find room in it.
Box enlarged(const Box& box, const Box& window) {
    return {box.x0, box.y0, std::max(box.x1, box.x0 + window.width() / 2 + 1),
            std::max(box.y1, box.y0 + window.height() / 2 + 1)};
}

/// The mean over the window, on the window's device, over the picture's box.
Image localMean(const Image& picture, const Image& window, ConvolutionHelper& helper) {
    Image here = picture.distributeTo(*window.device());
    const Box box = enlarged(picture.box(), window.box());
    if (box != picture.box()) {
        Image larger({box, 1}, *window.device(), helper.transformLayout());
        Common::copyClamped(here, larger);
        here = larger;
    }
    Image mean = here.makeLike(*window.device());
    helper.convolve(here, mean);
    return mean.subView(picture.box());
}

void checkPictures(const Image& source, const Image& corrected) {
    const auto colour = [](const Image& image) { return image.components() == 3 || image.components() == 4; };
    if (colour(source) && colour(corrected) && source.box() == corrected.box()) return;
    const auto described = [](const Image& image) {
        return toString(image.box()) + " with " + std::to_string(image.components()) + " components";
    };
    Compute::fail("A correction can be limited between two pictures of 3 or 4 components over one box, not between " +
                  described(source) + " and " + described(corrected) + ".");
}

}  // namespace

Image makeGaussianWindow(float sigma, DeviceBase& device) {
    const int size = std::max(1, static_cast<int>(3.0f * sigma));
    Image window({{0, 0, size, size}, 1}, device);
    Common::multiplyConstant(window, window, 1.0f / Common::makeGaussian(window, sigma));
    return window;
}

void limitCorrection(BufferManager& bufferManager, Image& source, Image& corrected, const Image& gaussianWindow,
                     float limit, int kernelFlags) {
    checkPictures(source, corrected);
    if (source.box().empty()) return;
    ConvolutionHelper helper(Compute::deviceOf(gaussianWindow));
    helper.setKernel(gaussianWindow);
    const BufferManagedImage difference(bufferManager, {source.box(), 1}, helper.transformLayout());
    runKernel(lightnessDifferenceSource, {&source, &corrected, &difference.image()}, kernelFlags, {},
              Scalar{"rgbToXyz", Common::rgbToXyzMatrix});
    const BufferManagedImage mean(bufferManager, localMean(difference.image(), gaussianWindow, helper));
    runKernel(limitCorrectionSource, {&mean.image(), &source, &corrected}, kernelFlags, {}, Scalar{"limit", limit},
              Scalar{"softness", limit * kneeOfLimit}, Scalar{"rgbToXyz", Common::rgbToXyzMatrix},
              Scalar{"xyzToRgb", Common::xyzToRgbMatrix});
}

}  // namespace Vellum::Tone
