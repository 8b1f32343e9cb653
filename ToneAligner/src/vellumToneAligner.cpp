#include "ToneAligner/ToneAligner.h"

#include "Common/Common.h"
#include "compute/Exception.h"
#include "vellumGlobalMatch.h"
#include "vellumLabColour.h"

namespace Vellum::Tone {

namespace {

using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;
using Vellum::Image::Image;
using Vellum::Image::Info;

constexpr float maskTolerance = 0.0001f;

Info floatInfo(const Vellum::Image::Box& box, std::uint32_t components) {
    return {box, components, Vellum::Pixel::DataEnum::float32};
}

/// The mask itself where it covers `box`; else an image of that box, 0 where the mask doesn't reach.
Image fittedMask(BufferManager& manager, const Image& mask, const Vellum::Image::Box& box) {
    if (mask.box() == box) return mask;
    Image fitted(floatInfo(box, 1), *manager.currentDevice());
    Common::clear(fitted);
    Common::copy(mask.distributeTo(*fitted.device()), mask.box(), fitted, mask.box().x0, mask.box().y0);
    return fitted;
}

}  // namespace

/// The pictures of one call, as the manager holds them.
struct ToneAligner::Views {
    Views(BufferManager& manager, const Image& sourceView, const Image& rebuiltView, const Image& userMask,
          const Image& occlusion, const Image& disparityEdges, const Image& output)
        : source(manager, sourceView),
          rebuilt(manager, rebuiltView),
          mask(manager, fittedMask(manager, userMask, output.box())),
          occlusion(manager, occlusion),
          edges(manager, disparityEdges),
          output(manager, output) {}

    BufferManagedImage source;
    BufferManagedImage rebuilt;
    BufferManagedImage mask;
    BufferManagedImage occlusion;
    BufferManagedImage edges;
    BufferManagedImage output;
};

ToneAligner::ToneAligner(BufferManager& bufferManager, int kernelFlags)
    : bufferManager_(bufferManager), kernelFlags_(kernelFlags) {}

void ToneAligner::process(const Image& sourceView, const Image& rebuiltView, const Image& userMask,
                          const Image& occlusion, const Image& disparityEdges, Image& output) {
    Views views(bufferManager_, sourceView, rebuiltView, userMask, occlusion, disparityEdges, output);
    switch (mode_) {
        case basic: {
            const bool fused = fusedPasses_ && bufferManager_.currentDevice()->hostAccessible();
            fused ? processBasicFused(views) : processBasic(views);
            break;
        }
        case idle:
            break;
        default:
            Compute::fail("Local Matching isn't available in this version. Set matchingMode to Basic.");
    }
    const Image& result = views.output.image();
    const bool inPlace = result.device() == output.device() && result.data() == output.data();
    if (!inPlace) output.copyFrom(result);
}

/// Each statement is a kernel, so it runs on every device.
void ToneAligner::processBasic(const Views& views) {
    const auto& box = views.output.image().box();
    const BufferManagedImage sourceLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage rebuiltLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage counted(bufferManager_, floatInfo(box, 1));
    const BufferManagedImage countedPerComponent(bufferManager_, floatInfo(box, 3));

    toLab(views.source.image(), sourceLab.image(), kernelFlags_);
    toLab(views.rebuilt.image(), rebuiltLab.image(), kernelFlags_);

    Common::invert(views.mask.image(), counted.image(), kernelFlags_);
    Common::max(views.occlusion.image(), counted.image(), counted.image(), kernelFlags_);
    Common::threshold(counted.image(), counted.image(), maskTolerance, true, kernelFlags_);
    Common::invert(counted.image(), counted.image(), kernelFlags_);
    for (int c = 0; c < 3; ++c)
        Common::copyChannel(counted.image(), countedPerComponent.image(), 0, c);

    computeGlobalMatch(sourceLab.image(), countedPerComponent.image(), rebuiltLab.image(), countedPerComponent.image(),
                       rebuiltLab.image(), kernelFlags_);
    fromLab(rebuiltLab.image(), views.output.image(), kernelFlags_);
    Common::copyChannel(views.source.image(), views.output.image(), 3, 3);
    blendByMask(views);
}

void ToneAligner::processBasicFused(const Views& views) {
    const auto& box = views.output.image().box();
    const BufferManagedImage sourceLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage rebuiltLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage counted(bufferManager_, floatInfo(box, 1));

    countedPixels(views.mask.image(), views.occlusion.image(), counted.image(), kernelFlags_);
    const auto sourceStatistics =
        toLabWithStatistics(views.source.image(), counted.image(), sourceLab.image(), kernelFlags_);
    const auto rebuiltStatistics =
        toLabWithStatistics(views.rebuilt.image(), counted.image(), rebuiltLab.image(), kernelFlags_);
    applyGlobalMatch(sourceLab.image(), views.source.image(), views.mask.image(),
                     globalMap(sourceStatistics, rebuiltStatistics), views.output.image(), kernelFlags_);
}

/// Every mode ends here: outside the mask the view is as it came.
void ToneAligner::blendByMask(const Views& views) {
    Image& output = views.output.image();
    Common::maskMix(output, views.source.image(), views.mask.image(), output, kernelFlags_);
}

}  // namespace Vellum::Tone
