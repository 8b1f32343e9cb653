#include "ToneAligner/ToneAligner.h"

#include "Common/Common.h"
#include "compute/Exception.h"
#include "compute/StageStatistics.h"
#include "vellumCorrectionLimit.h"
#include "vellumGlobalMatch.h"
#include "vellumViews.h"

namespace Vellum::Tone {

namespace {

using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;
using Vellum::Image::Image;
using Vellum::Image::Info;

Info floatInfo(const Vellum::Image::Box& box, std::uint32_t components) {
    return {box, components, Vellum::Pixel::DataEnum::float32};
}

}  // namespace

ToneAligner::ToneAligner(BufferManager& bufferManager, int kernelFlags)
    : bufferManager_(bufferManager), kernelFlags_(kernelFlags), gaussianWindow_(gaussianWindow()) {}

void ToneAligner::limitCorrection(Image& source, Image& corrected) {
    Tone::limitCorrection(bufferManager_, source, corrected, gaussianWindow_, settings_.correctionLimit, kernelFlags_);
}

void ToneAligner::process(const Image& sourceView, const Image& rebuiltView, const Image& userMask,
                          const Image& occlusion, const Image& disparityEdges, Image& output) {
    if (settings_.mode == idle) return;
    if (userMask.box() != output.box()) {
        // A mask of another size selects nothing outside itself.
        const BufferManagedImage fitted(bufferManager_, floatInfo(output.box(), 1));
        const BufferManagedImage mask(bufferManager_, userMask);
        const auto& box = userMask.box();
        Common::clear(fitted.image());
        Common::copy(mask.image(), box, fitted.image(), box.x0, box.y0);
        process(sourceView, rebuiltView, fitted.image(), occlusion, disparityEdges, output);
        return;
    }
    Views views(bufferManager_, sourceView, rebuiltView, userMask, occlusion, disparityEdges);
    {
        const Compute::Stage stage("broken pixels");
        broken_ = views.leaveOutBrokenPixels(bufferManager_, kernelFlags_);
    }
    const bool here = bufferManager_.currentDevice() == output.device();
    if (settings_.mode != basic) {
        processLocal(views, output);
        return;
    }
    const Compute::Stage stage("match");
    if (here && fusedPasses_ && output.device()->hostAccessible()) {
        processBasicFused(views, output);  // reads each pixel before it writes it, so the output may be a source
        return;
    }
    const BufferManagedImage result(bufferManager_, output.info());
    processBasic(views, result);
    output.copyFrom(result.image());
}

/// Each statement is a kernel, so it runs on every device.
void ToneAligner::processBasic(const Views& views, const BufferManagedImage& output) {
    const auto box = output.image().box();
    const BufferManagedImage sourceLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage rebuiltLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage counted(bufferManager_, floatInfo(box, 1));
    const BufferManagedImage countedPerComponent(bufferManager_, floatInfo(box, 3));

    Common::rgbToLab(views.source.image(), sourceLab.image(), kernelFlags_);
    Common::rgbToLab(views.rebuilt.image(), rebuiltLab.image(), kernelFlags_);

    Common::invert(views.mask.image(), counted.image(), kernelFlags_);
    Common::max(views.occlusion.image(), counted.image(), counted.image(), kernelFlags_);
    Common::threshold(counted.image(), counted.image(), countedTolerance, true, kernelFlags_);
    Common::invert(counted.image(), counted.image(), kernelFlags_);
    for (int c = 0; c < 3; ++c)
        Common::copyChannel(counted.image(), countedPerComponent.image(), 0, c);

    computeGlobalMatch(sourceLab.image(), countedPerComponent.image(), rebuiltLab.image(), countedPerComponent.image(),
                       rebuiltLab.image(), kernelFlags_);
    Common::labToRgb(rebuiltLab.image(), output.image(), kernelFlags_);
    Common::copyChannel(views.own(), output.image(), 3, 3);
    blendByMask(views, output.image());
}

void ToneAligner::processBasicFused(const Views& views, Image& output) {
    const auto box = output.box();
    const BufferManagedImage sourceLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage rebuiltLab(bufferManager_, floatInfo(box, 3));
    const BufferManagedImage counted(bufferManager_, floatInfo(box, 1));

    countedPixels(views.mask.image(), views.occlusion.image(), counted.image(), kernelFlags_);
    const auto sourceStatistics =
        toLabWithStatistics(views.source.image(), counted.image(), sourceLab.image(), kernelFlags_);
    const auto rebuiltStatistics =
        toLabWithStatistics(views.rebuilt.image(), counted.image(), rebuiltLab.image(), kernelFlags_);
    applyGlobalMatch(sourceLab.image(), views.own(), views.mask.image(), globalMap(sourceStatistics, rebuiltStatistics),
                     output, kernelFlags_);
}

/// Outside the mask the view is as it came.
void ToneAligner::blendByMask(const Views& views, Image& output) {
    Common::maskMix(output, views.source.image(), views.mask.image(), output, kernelFlags_);
    keepUnselected(views.own(), views.mask.image(), output, kernelFlags_);
}

}  // namespace Vellum::Tone
