// "Local Matching": a gain and an offset of its own for every pixel.
#include <cmath>
#include <vector>

#include "BilateralFilter/BilateralFilter.h"
#include "Common/Common.h"
#include "GuidedFilter/GuidedFilter.h"
#include "compute/RunKernel.h"
#include "compute/StageStatistics.h"
#include "vellumBlockMatch.h"
#include "vellumBlockSizes.h"
#include "vellumCorrectionLimit.h"
#include "vellumFillMask.h"
#include "vellumViews.h"

namespace Vellum::Kernels {
extern const Family localEnding;
}

namespace Vellum::Tone {

namespace {

using Compute::ProgramSource;
using Compute::Scalar;
using Compute::Stage;
using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManager;
using Vellum::Image::Image;
using Vellum::Image::Info;
using Settings = ToneAligner::Settings;

const ProgramSource localEndingSource(Kernels::localEnding, "localEndingKernel");

/// Each channel is guided by its own.
constexpr int perChannel = 1;
constexpr int noiseRadius = 3;
constexpr float smoothingEpsilon = 1e-7f;
/// Chroma may differ by so much less than lightness between a pixel and those that refill it.
constexpr float chromaTolerance = 0.667f;

float noiseEpsilon(float noiseLevel) {
    return std::pow(10.0f, noiseLevel * 5.0f - 8.0f);
}

Info floatInfo(const Vellum::Image::Box& box, std::uint32_t components) {
    return {box, components, Vellum::Pixel::DataEnum::float32};
}

bool shareMemory(const Image& a, const Image& b) {
    return a.tile().memory == b.tile().memory;
}

}  // namespace

std::vector<int> ToneAligner::sampleBlockSizes() const {
    return Tone::sampleBlockSizes(settings_.blockSize, settings_.maxBlockSize, settings_.samples,
                                  settings_.intervalType, settings_.wraps());
}

void ToneAligner::matchBlocks(const Image& source, const Image& target, const Image& valid, Image& result,
                              int blockSize) {
    BlockKernels blocks(bufferManager_, kernelFlags_, settings_.wraps(), settings_.wrapSize);
    Tone::matchBlocks(blocks, source, target, valid, result, blockSize, settings_.fillEmptyBlocks);
}

void ToneAligner::buildFillMask(const Image& sourceView, const Image& rebuiltView, const Image& occlusion,
                                const Image& disparityEdges, Image& mask) {
    Tone::buildFillMask(bufferManager_, {settings_.adjustEdges, settings_.edgeDetect, settings_.featherSize},
                        sourceView, rebuiltView, occlusion, disparityEdges, mask, kernelFlags_);
}

void ToneAligner::refill(const Image& corrected, const Image& source, const Image& mask, Image& refilled) {
    const BufferManagedImage delta(bufferManager_, source.info());
    Common::subtract(corrected, source, delta.image());
    show("delta", delta.image());
    const float lightness = settings_.colourTolerance;
    const float chroma = chromaTolerance * lightness;
    BilateralFilter::BilateralFilter filter(bufferManager_, {lightness, chroma, chroma}, settings_.supportSize,
                                            kernelFlags_);
    filter.apply(delta.image(), source, mask, refilled);
    Common::add(source, refilled, refilled);
}

void ToneAligner::limitCorrection(Image& source, Image& corrected) {
    limitLabOf(source, corrected);
}

void ToneAligner::show(const char* name, const Image& picture) const {
    if (observer_) observer_(name, picture);
}

/// One frame's way through the local modes.
class ToneAligner::LocalRun {
public:
    LocalRun(ToneAligner& aligner, const Views& views, const Image& output)
        : aligner_(aligner),
          settings_(aligner.settings_),
          manager_(aligner.bufferManager_),
          flags_(aligner.kernelFlags_),
          views_(views),
          denoised_(manager_, floatInfo(output.box(), 3)),
          sourceLab_(manager_, floatInfo(output.box(), 3)),
          corrected_(manager_, floatInfo(output.box(), 3)),
          fillMask_(manager_, floatInfo(output.box(), 1)) {}

    void run(Image& output) {
        match();
        fill();
        limit();
        smooth();
        finish(output);
    }

private:
    void show(const char* name, const Image& picture) const { aligner_.show(name, picture); }
    void checkpoint() const {
        if (aligner_.checkpoint_) aligner_.checkpoint_();
    }

    void match();
    void separateNoise(Image& rebuilt);
    void matchSeveralSizes(const Image& target, const Image& valid);
    void fill();
    void limit();
    void smooth();
    void finish(Image& output);

    ToneAligner& aligner_;
    const Settings& settings_;
    BufferManager& manager_;
    int flags_;
    const Views& views_;
    BufferManagedImage denoised_;   ///< the source view without its noise, in RGB
    BufferManagedImage sourceLab_;  ///< the same in Lab; from limit() on the source view itself
    BufferManagedImage corrected_;  ///< Lab
    BufferManagedImage fillMask_;
};

void ToneAligner::LocalRun::match() {
    const BufferManagedImage valid(manager_, floatInfo(views_.occlusion.image().box(), 1));
    const BufferManagedImage target(manager_, corrected_.image().info());
    {
        const Stage stage("valid pixels");
        validPixels(views_.mask.image(), views_.occlusion.image(), views_.edges.image(), valid.image(), flags_);
        show("V", valid.image());
    }
    checkpoint();
    separateNoise(target.image());
    checkpoint();
    const Stage stage("blocks");
    if (settings_.mode == severalBlockSizes) {
        matchSeveralSizes(target.image(), valid.image());
        return;
    }
    aligner_.matchBlocks(sourceLab_.image(), target.image(), valid.image(), corrected_.image(), settings_.blockSize);
    show("C", corrected_.image());
    // With one block size the refill takes the Lab picture for RGB and converts it once more.
    if (settings_.fillOcclusions) Common::rgbToLab(corrected_.image(), corrected_.image(), flags_);
}

void ToneAligner::LocalRun::separateNoise(Image& rebuiltLab) {
    const Stage stage("noise");
    GuidedFilter::GuidedFilter filter(manager_, noiseRadius, noiseEpsilon(settings_.noiseLevel), perChannel, flags_);
    filter.apply(views_.source.image(), views_.source.image(), denoised_.image());
    filter.apply(views_.rebuilt.image(), views_.rebuilt.image(), rebuiltLab);
    show("N", denoised_.image());
    show("T", rebuiltLab);
    if (aligner_.observer_) {
        const BufferManagedImage noise(manager_, denoised_.image().info());
        Common::copy(views_.source.image(), noise.image());
        Common::subtract(noise.image(), denoised_.image(), noise.image());
        show("noise", noise.image());
    }
    Common::rgbToLab(denoised_.image(), sourceLab_.image(), flags_);
    Common::rgbToLab(rebuiltLab, rebuiltLab, flags_);
}

void ToneAligner::LocalRun::fill() {
    checkpoint();
    const Stage stage("refill");
    if (!settings_.fillOcclusions) {
        Common::clear(fillMask_.image());
        return;
    }
    aligner_.buildFillMask(views_.source.image(), views_.rebuilt.image(), views_.occlusion.image(),
                           views_.edges.image(), fillMask_.image());
    show("O", fillMask_.image());
    const BufferManagedImage refilled(manager_, corrected_.image().info());
    aligner_.refill(corrected_.image(), sourceLab_.image(), fillMask_.image(), refilled.image());
    std::swap(corrected_.image(), refilled.image());
    show("refilled", corrected_.image());
}

void ToneAligner::LocalRun::limit() {
    checkpoint();
    const Stage stage("limit");
    Common::rgbToLab(views_.source.image(), sourceLab_.image(), flags_);
    limitLab(manager_, aligner_.gaussianWindow_, sourceLab_.image(), corrected_.image(), settings_.correctionLimit,
             flags_, aligner_.observer_);
    show("limited", corrected_.image());
}

void ToneAligner::LocalRun::smooth() {
    checkpoint();
    const Stage stage("smooth");
    GuidedFilter::GuidedFilter filter(manager_, settings_.smoothingRadius, smoothingEpsilon, perChannel, flags_);
    filter.apply(corrected_.image(), sourceLab_.image(), corrected_.image());
    show("smoothed", corrected_.image());
}

void ToneAligner::LocalRun::finish(Image& output) {
    checkpoint();
    const Stage stage("finish");
    const bool maskToAlpha = settings_.outputOcclusionsToAlpha && !settings_.previewCorrection;
    if (maskToAlpha) Common::copyChannel(fillMask_.image(), output, 0, 3);
    Compute::runKernel(localEndingSource,
                       {&corrected_.image(), &sourceLab_.image(), &denoised_.image(), &views_.source.image(),
                        &views_.mask.image(), &output},
                       flags_, {}, Scalar{"preview", settings_.previewCorrection}, Scalar{"keepAlpha", maskToAlpha},
                       Scalar{"matrix", Common::xyzToRgbMatrix});
}

void ToneAligner::processLocal(const Views& views, Image& output) {
    if (output.device() == bufferManager_.currentDevice() && !shareMemory(views.source.image(), output)) {
        LocalRun(*this, views, output).run(output);
        return;
    }
    const BufferManagedImage result(bufferManager_, output.info());
    LocalRun(*this, views, output).run(result.image());
    output.copyFrom(result.image());
}

}  // namespace Vellum::Tone
