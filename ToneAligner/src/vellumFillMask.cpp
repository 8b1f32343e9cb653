#include "vellumFillMask.h"

#include <algorithm>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family occlusions;
}

namespace Vellum::Tone {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;
using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;

const ProgramSource validPixelsSource(Kernels::occlusions, "validPixelsKernel");
const ProgramSource sobelMagnitudeSource(Kernels::occlusions, "sobelMagnitudeKernel");
const ProgramSource maskMergeSource(Kernels::occlusions, "maskMergeKernel");
const ProgramSource disparityEdgeSource(Kernels::occlusions, "disparityEdgeKernel");

constexpr int onePixel = 1;
/// A third as it is rounded to a float.
constexpr float third = 0.33333334f;
/// No gradient below this makes an edge, so that flat areas stay out.
constexpr float leastGradient = 0.01f;
constexpr float edgeBlur = 1;

/// Adds the edges of one picture to the mask.
void mergePictureEdges(BufferManager& manager, const Image& picture, float threshold, Image& mask, int flags) {
    const BufferManagedImage grey(manager, Common::weightedComponentSum(picture, {third, third, third, 0}, false));
    const BufferManagedImage gradient(manager, grey.image().info());
    const BufferManagedImage work(manager, grey.image().info());
    Common::clamp(grey.image(), grey.image(), 0, 1);
    runKernel(sobelMagnitudeSource, {&grey.image(), &gradient.image()}, flags, {}, Scalar{"limitToOne", false},
              Scalar{"scale", 1.0f});
    Common::threshold(gradient.image(), grey.image(), threshold, true, flags);
    Common::gaussianBlur(grey.image(), work.image(), gradient.image(), edgeBlur);
    runKernel(maskMergeSource, {&mask, &gradient.image(), &mask}, flags, {});
}

}  // namespace

void detectDisparityEdges(const Image& disparity, Image& result, float scale, bool thin) {
    Common::clear(result);
    runKernel(disparityEdgeSource, {&disparity, &result}, onePixel, {}, Scalar{"scale", scale}, Scalar{"thin", thin});
}

void validPixels(const Image& userMask, const Image& occlusion, const Image& disparityEdges, Image& valid,
                 int kernelFlags) {
    runKernel(validPixelsSource, {&userMask, &occlusion, &disparityEdges, &valid}, kernelFlags, {},
              Scalar{"tolerance", countedTolerance});
}

void buildFillMask(BufferManager& bufferManager, const FillMaskSettings& settings, const Image& sourceView,
                   const Image& rebuiltView, const Image& occlusion, const Image& disparityEdges, Image& mask,
                   int kernelFlags) {
    {
        const BufferManagedImage work1(bufferManager, mask.info());
        const BufferManagedImage work2(bufferManager, mask.info());
        Common::growMask(disparityEdges, work1.image(), work2.image(), mask, settings.adjustEdges,
                         settings.featherSize);
        const Image* feathered = &occlusion;
        if (settings.featherSize != 0) {
            Common::gaussianBlur(occlusion, work1.image(), work2.image(), settings.featherSize);
            feathered = &work2.image();
        }
        Common::max(mask, *feathered, mask, kernelFlags);
    }
    if (settings.edgeDetect > 0) {
        const float threshold = std::max(leastGradient, 1 - settings.edgeDetect);
        mergePictureEdges(bufferManager, sourceView, threshold, mask, kernelFlags);
        mergePictureEdges(bufferManager, rebuiltView, threshold, mask, kernelFlags);
    }
}

}  // namespace Vellum::Tone
