#include <fmt/format.h>

#include <numeric>

#include "Common/Common.h"
#include "PictureBuilder/PictureBuilder.h"
#include "ToneAligner/ToneAligner.h"
#include "base/Text.h"
#include "compute/BufferManagement/BufferManager.h"
#include "compute/HostDevice.h"
#include "compute/StageStatistics.h"
#include "framework/ResultCache.h"
#include "node/ViewTintChoices.h"
#include "node/ViewTintPlugin.h"

namespace Cobalt::Research {

namespace {

using Cobalt::Sextant::abortCheck;
using Vellum::Compute::Stage;
using Vellum::Utils::BufferManagement::BufferManager;
using Vellum::Utils::BufferManagement::Fallback;

constexpr auto float32 = Vellum::Pixel::DataEnum::float32;

/// The image itself where it lies there already.
Vellum::Image::Image onTheCpu(const Vellum::Image::Image& image) {
    return image.distributeTo(Vellum::Compute::Host::hostDevice());
}

std::string sentenceOn(const Fallback& fallback) {
    std::string reason = Cobalt::Base::withoutFullStop(fallback.reason);
    if (!reason.empty()) reason = " (" + reason + ")";
    if (fallback.cause == Fallback::Cause::allocation)
        return fallback.otherDevice ? "There is not enough memory on the GPU" + reason + "; the CPU finishes the frame."
                                    : "Memory ran short" + reason + "; the step is tried once more.";
    return fallback.otherDevice ? "The match failed on the GPU" + reason + "; it is done again on the CPU."
                                : "The match failed" + reason + "; it is tried once more.";
}

}  // namespace

/// Counts the stages of a render.
class ViewTintPlugin::Steps {
public:
    explicit Steps(Cobalt::Base::Progress& progress) : progress_(progress) {}

    void message(const char* text) { progress_.message(text); }
    void report() {
        progress_.fraction(stepsDone_ / stepCount_);
        stepsDone_ += 1.0f;
    }
    /// How far the stage after the last report is, 0 to 1.
    void reportWithin(float done) { progress_.fraction((stepsDone_ - 1.0f + done) / stepCount_); }

private:
    Cobalt::Base::Progress& progress_;
    float stepCount_ = 7.0f;
    float stepsDone_ = 0.0f;
};

void ViewTintPlugin::renderStripe(Fresco::Image::ImagePlane& plane) {
    Cobalt::Sextant::SextantProgress progress(this);
    Steps steps(progress);
    matchInputOffset = matchWhat + 1;
    try {
        render(plane, steps);
    } catch (const Cobalt::Base::InterruptedException&) {
        // The host knows that it aborted.
    } catch (const Cobalt::Base::Exception& failure) {
        error(userMessage(failure));
    } catch (...) {
        error("Exception while running kernel on device");
    }
}

void ViewTintPlugin::render(Fresco::Image::ImagePlane& plane, Steps& steps) {
    const Stage stage("fetch and deliver");
    const std::array<int, 2> fullSize = sourceFormat();
    Fresco::Image::Hash renderHash;
    hash(renderHash);
    if (loadResult(plane, renderHash)) return;
    if (!inputsUsable(inputNumber(0, 1), inputNumber(0, 2))) {
        abortCheck(*this);
        error(Cobalt::Sextant::missingViewsMessage("Source"));
        return;
    }
    steps.message("Adjusting colours");
    abortCheck(*this);
    steps.report();
    steps.message("Fetching images");

    Image occlusion;
    if (!fetchOcclusionMask(occlusion)) return;
    BufferManager bufferManager(renderContext()->device(), hostDevice());
    bufferManager.setObserver([this](const Fallback& fallback) { return warning(sentenceOn(fallback)); });
    Image leftView, rightView, disparity;
    if (!fetchSourceViews(leftView, rightView) || !fetchDisparity(disparity)) return;

    const std::size_t brokenVectors = hideBrokenVectors(disparity, occlusion);
    const std::size_t brokenOther = Vellum::Common::countBroken(matchWhat == 0 ? rightView : leftView);
    Image projected;
    Image edgeMask;
    {
        const Vellum::Compute::AutoContextThreadBinder binder(renderContext());
        projected.reset({disparity.box(), 4, float32}, *disparity.device());
        edgeMask.reset(occlusion.info(), *occlusion.device());
        markDisparityEdges(disparity, edgeMask);
        rebuildOtherView(bufferManager, fullSize, leftView, rightView, disparity, occlusion, projected);
    }

    Image mask;
    if (!fetchMask(mask, projected)) {
        abortCheck(*this);
        return;
    }
    // On the CPU what the match is given outlives a card that fails for good.
    const Image target = onTheCpu(matchWhat == 0 ? leftView : rightView);
    for (Image* image : {&projected, &mask, &occlusion, &edgeMask})
        *image = onTheCpu(*image);
    leftView = rightView = disparity = Image();  // give back what was only rebuilt from
    abortCheck(*this);
    steps.report();
    Image corrected({target.box(), 4, float32}, *target.device());
    steps.report();

    Vellum::Tone::ToneAligner aligner(bufferManager, kernelFlags());
    setUp(aligner, fullSize, corrected.box().width());
    aligner.setStageObserver(stageObserver);
    aligner.setCheckpoint([&](float done) {
        abortCheck(*this);
        steps.reportWithin(done);
    });
    steps.report();

    const auto process = [&] { aligner.process(target, projected, mask, occlusion, edgeMask, corrected); };
    try {
        process();
    } catch (...) {
        abortCheck(*this);
        bufferManager.switchToFallback(true);
        process();
    }

    tellBrokenPixels(aligner.brokenPixels().source, brokenOther, brokenVectors, aligner.brokenPixels().mask);
    abortCheck(*this);
    steps.report();
    writeImageToPlane(plane, corrected, colourChannels());
    steps.report();
    {
        const Stage cache("cache");
        ResultCache::storeImage(corrected, colourChannels(), renderHash);
    }
    steps.report();
}

/// True where every channel of the plane was kept from an earlier render.
bool ViewTintPlugin::loadResult(Fresco::Image::ImagePlane& plane, const Fresco::Image::Hash& renderHash) {
    const Stage stage("cache");
    return ResultCache::hasChannels(plane.channels(), renderHash) &&
           ResultCache::load(plane, renderHash).size() == plane.channels().size();
}

std::array<int, 2> ViewTintPlugin::sourceFormat() const {
    const auto* source = dynamic_cast<const Fresco::Image::Iop*>(input(0));
    if (!source) return {0, 0};
    return {source->info().format.width, source->info().format.height};
}

std::size_t ViewTintPlugin::hideBrokenVectors(const Image& disparity, Image& occlusion) const {
    const int first = firstVectorComponent();
    const std::size_t broken = Vellum::Common::countBroken(disparity, first, first + 1);
    if (broken == 0) return 0;
    Image whole({disparity.box(), 1, float32}, *disparity.device());
    Vellum::Common::wholePixels(disparity, whole, first, first + 1);
    Vellum::Common::fillWhereMask(occlusion, whole, {1.0f}, true);
    return broken;
}

void ViewTintPlugin::tellBrokenPixels(std::size_t target, std::size_t other, std::size_t vectors,
                                      std::size_t mask) const {
    const bool left = matchWhat == 0;
    const auto viewName = [&](int offset) {
        Fresco::Image::OutputContext context;
        return fmt::format("the view '{}'",
                           Fresco::Image::OutputContext::view_name(inputContext(0, offset, context).view));
    };
    const std::string occlusion = "mask_occlusion.alpha";
    const std::size_t own = brokenOcclusions_.empty() ? 0 : brokenOcclusions_.front();
    const std::size_t all = std::accumulate(brokenOcclusions_.begin(), brokenOcclusions_.end(), std::size_t{0});
    const std::string message = brokenPixelsMessage({{viewName(1), left ? target : other},
                                                     {viewName(2), left ? other : target},
                                                     {"the disparity", vectors},
                                                     {occlusion, own},
                                                     {"the neighbouring frames' " + occlusion, all - own},
                                                     {"the mask", mask}},
                                                    viewName(left ? 1 : 2));
    if (!message.empty()) warning(message);
}

/// Edges of the vectors that belong to the view to correct.
void ViewTintPlugin::markDisparityEdges(const Image& disparity, Image& edges) const {
    constexpr int occlusionsAndEdges = 1;
    if (occlusionCorrection != occlusionsAndEdges) {
        Vellum::Common::clear(edges);
        return;
    }
    Image vectors({disparity.box(), 2, float32}, *disparity.device());
    const int first = firstVectorComponent();
    Vellum::Common::copyChannel(disparity, vectors, first, 0);
    Vellum::Common::copyChannel(disparity, vectors, first + 1, 1);
    Vellum::Tone::detectDisparityEdges(vectors, edges, 1.0f, true);
}

void ViewTintPlugin::rebuildOtherView(BufferManager& bufferManager, const std::array<int, 2>& fullSize,
                                      const Image& leftView, const Image& rightView, const Image& disparity,
                                      const Image& occlusion, Image& projected) const {
    const Stage stage("rebuild the other view");
    constexpr int rimsExtended = 3;
    constexpr int marksBlended = 1;
    Vellum::PictureBuilder::PictureBuilder builder(bufferManager, false, rimsExtended, marksBlended, true,
                                                   kernelFlags());
    builder.setGrowOcclusion(false);
    builder.setDirection(matchWhat == 0 ? 1 : 0);
    builder.setGrowAmount(0.0f);
    builder.setFeather(1.5f);
    builder.setUseInputMask(false);
    builder.setWrapSize(fullSize);
    builder.build(leftView, rightView, disparity, occlusion, projected);
}

void ViewTintPlugin::setUp(Vellum::Tone::ToneAligner& aligner, const std::array<int, 2>& fullSize, int width) const {
    aligner.setBlockSize(blockSize);
    aligner.setFillOcclusions(occlusionCorrection == 0 || occlusionCorrection == 1);
    aligner.setColourTolerance(colourTolerance);
    aligner.setSupportSize(supportSize);
    aligner.setSamples(samples);
    aligner.setIntervalType(intervalType);
    aligner.setMaxBlockSize(maxBlockSize);
    aligner.setCorrectionType(correctionType);
    aligner.setFillEmptyBlocks(true);
    aligner.setAdjustEdges(adjustEdges);
    aligner.setEdgeDetect(edgeDetect);
    aligner.setFeatherSize(featherSize);
    aligner.setOutputOcclusionsToAlpha(outputOcclusionsToAlpha);
    aligner.setNoiseLevel(noiseLevel);
    aligner.setPreviewCorrection(previewCorrection);
    aligner.setCorrectionLimit(correctionLimit);
    aligner.setWrapSize(fullSize);
    aligner.setSmoothingRadius(smoothingRadius(correctionScale, width));
    aligner.setMode(matcherMode(matchingMode, samples));
}

}  // namespace Cobalt::Research
