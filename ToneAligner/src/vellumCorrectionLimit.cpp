#include "vellumCorrectionLimit.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>

#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "compute/Exception.h"
#include "compute/HostDevice.h"
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

constexpr float windowSigma = 100.0f;

/// The helper of the latest limit waits here with its plan and the window's transform, which cost as much as half a
/// limit: frames of a shot share their size.
class KeptHelper {
public:
    explicit KeptHelper(const Image& window) : window_(window), helper_(take(window)) {
        if (helper_) return;
        helper_ = std::make_unique<ConvolutionHelper>(Compute::deviceOf(window));
        helper_->setKernel(window);
    }
    KeptHelper(const KeptHelper&) = delete;
    KeptHelper& operator=(const KeptHelper&) = delete;
    /// Not after a failure, which may have left it half made.
    void keep() {
        const std::scoped_lock lock(mutex);
        waitingWindow = window_;
        waiting = std::move(helper_);
    }
    ConvolutionHelper& operator*() const { return *helper_; }
    ConvolutionHelper* operator->() const { return helper_.get(); }

private:
    static std::unique_ptr<ConvolutionHelper> take(const Image& window) {
        const std::scoped_lock lock(mutex);
        const bool same = waiting && waitingWindow.tile().memory == window.tile().memory;
        return same ? std::move(waiting) : nullptr;
    }

    static inline std::mutex mutex;
    static inline Image waitingWindow;
    static inline std::unique_ptr<ConvolutionHelper> waiting;

    Image window_;
    std::unique_ptr<ConvolutionHelper> helper_;
};

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

const Image& gaussianWindow() {
    static const Image window = makeGaussianWindow(windowSigma, Compute::Host::hostDevice());
    return window;
}

void limitCorrection(BufferManager& bufferManager, Image& source, Image& corrected, const Image& gaussianWindow,
                     float limit, int kernelFlags,
                     const std::function<void(const char* name, const Image& picture)>& observer) {
    checkPictures(source, corrected);
    if (source.box().empty()) return;
    KeptHelper helper(gaussianWindow);
    const BufferManagedImage difference(bufferManager, {source.box(), 1}, helper->transformLayout());
    runKernel(lightnessDifferenceSource, {&source, &corrected, &difference.image()}, kernelFlags, {},
              Scalar{"rgbToXyz", Common::rgbToXyzMatrix});
    const BufferManagedImage mean(bufferManager, localMean(difference.image(), gaussianWindow, *helper));
    helper.keep();
    if (observer) observer("average", mean.image());
    runKernel(limitCorrectionSource, {&mean.image(), &source, &corrected}, kernelFlags, {}, Scalar{"limit", limit},
              Scalar{"softness", limit * kneeOfLimit}, Scalar{"rgbToXyz", Common::rgbToXyzMatrix},
              Scalar{"xyzToRgb", Common::xyzToRgbMatrix});
}

}  // namespace Vellum::Tone
