// "Local Matching": a gain and an offset of its own for every pixel.
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "BilateralFilter/BilateralFilter.h"
#include "Common/Common.h"
#include "GuidedFilter/GuidedFilter.h"
#include "compute/RunKernel.h"
#include "compute/StageStatistics.h"
#include "vellumBlockMatch.h"
#include "vellumCorrectionLimit.h"
#include "vellumFillMask.h"
#include "vellumViews.h"

namespace Vellum::Kernels {
extern const Family brokenPixels;
extern const Family localEnding;
}  // namespace Vellum::Kernels

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

const ProgramSource brokenPixelsSource(Kernels::brokenPixels, "brokenPixelsKernel");
const ProgramSource wholePixelsSource(Kernels::brokenPixels, "wholePixelsKernel");
const ProgramSource localEndingSource(Kernels::localEnding, "localEndingKernel");

/// How much of a frame is done before and after the refill, which is the longest part where much is hidden.
constexpr float refillBegins = 0.3f, refillEnds = 0.8f;
/// Each channel is guided by its own.
constexpr int perChannel = 1;
constexpr int noiseRadius = 3;
/// Of correctionType.
constexpr int minimum = 0, closest = 1, average = 2;
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
    Tone::matchBlocks(blockKernels(), {source, target, valid}, result, blockSize, settings_.fillEmptyBlocks);
}

BlockKernels ToneAligner::blockKernels() const {
    BlockKernels kernels(bufferManager_, kernelFlags_, settings_.wraps(), settings_.wrapSize);
    kernels.fusedPasses = fusedPasses_;
    return kernels;
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
    if (checkpoint_)
        filter.setProgress([&](float done) { checkpoint_(refillBegins + done * (refillEnds - refillBegins)); });
    filter.apply(delta.image(), source, mask, refilled);
    Common::add(source, refilled, refilled);
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
    void checkpoint(float done) const {
        if (aligner_.checkpoint_) aligner_.checkpoint_(done);
    }

    /// The views in RGB, without pixels that are no colours.
    const Image& source() const { return wholeSource_ ? wholeSource_->image() : views_.source.image(); }
    const Image& rebuilt() const { return wholeRebuilt_ ? wholeRebuilt_->image() : views_.rebuilt.image(); }

    void match();
    void leaveOutBrokenPixels(Image& valid);
    void separateNoise(Image& rebuilt);
    void matchOneSize(const BlockPictures& pictures);
    void matchSeveralSizes(const BlockPictures& pictures);
    void mergeSizes(const BlockPictures& pictures, const Image& reference, MergeRule firstRule, MergeRule rule);
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
    BufferManagedImage corrected_;  ///< in Lab from match() to fill(), in RGB to limit(), then in Lab
    BufferManagedImage fillMask_;
    std::optional<BufferManagedImage> wholeSource_, wholeRebuilt_;
};

void ToneAligner::LocalRun::match() {
    const BufferManagedImage valid(manager_, floatInfo(views_.occlusion.image().box(), 1));
    const BufferManagedImage target(manager_, corrected_.image().info());
    {
        const Stage stage("valid pixels");
        validPixels(views_.mask.image(), views_.occlusion.image(), views_.edges.image(), valid.image(), flags_);
        leaveOutBrokenPixels(valid.image());
        show("V", valid.image());
    }
    checkpoint(0.02f);
    separateNoise(target.image());
    checkpoint(0.1f);
    const Stage stage("blocks");
    const BlockPictures pictures{sourceLab_.image(), target.image(), valid.image()};
    if (settings_.mode == severalBlockSizes)
        matchSeveralSizes(pictures);
    else
        matchOneSize(pictures);
}

/// Means over windows, blocks and the whole picture would carry one NaN everywhere.
void ToneAligner::LocalRun::leaveOutBrokenPixels(Image& valid) {
    float broken = 0;
    Compute::runKernelThen(brokenPixelsSource, {&views_.source.image(), &views_.rebuilt.image(), &valid}, flags_, {},
                           [&](auto& context) { broken = context.template get<float>({"broken"}); });
    if (broken == 0) return;
    const auto whole = [&](std::optional<BufferManagedImage>& made, const BufferManagedImage& view) {
        made.emplace(manager_, denoised_.image().info());
        Compute::runKernel(wholePixelsSource, {&view.image(), &made->image()}, flags_, {});
    };
    whole(wholeSource_, views_.source);
    whole(wholeRebuilt_, views_.rebuilt);
}

/// The refill takes the Lab picture of one block size for RGB and converts it once more.
void ToneAligner::LocalRun::matchOneSize(const BlockPictures& pictures) {
    Tone::matchBlocks(aligner_.blockKernels(), pictures, corrected_.image(), settings_.blockSize,
                      settings_.fillEmptyBlocks);
    show("C", corrected_.image());
}

void ToneAligner::LocalRun::matchSeveralSizes(const BlockPictures& pictures) {
    Image& merged = corrected_.image();
    Common::clear(merged);
    switch (settings_.correctionType) {
        case minimum:
            mergeSizes(pictures, denoised_.image(), MergeRule::first, MergeRule::closer);
            break;
        case closest:
            mergeSizes(pictures, rebuilt(), MergeRule::first, MergeRule::closer);
            break;
        case average:
            mergeSizes(pictures, denoised_.image(), MergeRule::add, MergeRule::add);
            Common::multiplyConstant(merged, merged, 1.0f / static_cast<float>(settings_.samples));
            Common::add(denoised_.image(), merged, merged);
            break;
        default: {
            const std::vector<int> sizes = aligner_.sampleBlockSizes();
            if (!sizes.empty())
                matchAndMerge(aligner_.blockKernels(), pictures, denoised_.image(), MergeRule::first, merged,
                              sizes.front(), settings_.fillEmptyBlocks);
        }
    }
    show("merged", merged);
}

void ToneAligner::LocalRun::mergeSizes(const BlockPictures& pictures, const Image& reference, MergeRule firstRule,
                                       MergeRule rule) {
    const BlockKernels kernels = aligner_.blockKernels();
    int sample = 0;
    for (const int size : aligner_.sampleBlockSizes()) {
        checkpoint(0.2f);
        const MergeRule now = sample == 0 ? firstRule : rule;
        if (aligner_.observer_) {
            const BufferManagedImage picture(manager_, corrected_.image().info());
            Tone::matchBlocks(kernels, pictures, picture.image(), size, settings_.fillEmptyBlocks);
            Common::labToRgb(picture.image(), picture.image(), flags_);
            show(("E" + std::to_string(sample)).c_str(), picture.image());
            mergeSample(picture.image(), reference, now, corrected_.image(), flags_);
        } else {
            matchAndMerge(kernels, pictures, reference, now, corrected_.image(), size, settings_.fillEmptyBlocks);
        }
        ++sample;
    }
}

void ToneAligner::LocalRun::separateNoise(Image& rebuiltLab) {
    const Stage stage("noise");
    GuidedFilter::GuidedFilter filter(manager_, noiseRadius, noiseEpsilon(settings_.noiseLevel), perChannel, flags_);
    filter.apply(source(), source(), denoised_.image());
    filter.apply(rebuilt(), rebuilt(), rebuiltLab);
    show("N", denoised_.image());
    show("T", rebuiltLab);
    if (aligner_.observer_) {
        const BufferManagedImage noise(manager_, denoised_.image().info());
        Common::copy(source(), noise.image());
        Common::subtract(noise.image(), denoised_.image(), noise.image());
        show("noise", noise.image());
    }
    Common::rgbToLab(denoised_.image(), sourceLab_.image(), flags_);
    Common::rgbToLab(rebuiltLab, rebuiltLab, flags_);
}

void ToneAligner::LocalRun::fill() {
    checkpoint(refillBegins);
    const Stage stage("refill");
    Image& corrected = corrected_.image();
    const bool inLab = settings_.mode == oneBlockSize;
    if (!settings_.fillOcclusions) {
        Common::clear(fillMask_.image());
        if (inLab) Common::labToRgb(corrected, corrected, flags_);
        return;
    }
    Common::rgbToLab(corrected, corrected, flags_);
    aligner_.buildFillMask(source(), rebuilt(), views_.occlusion.image(), views_.edges.image(), fillMask_.image());
    show("O", fillMask_.image());
    const BufferManagedImage refilled(manager_, corrected_.image().info());
    aligner_.refill(corrected_.image(), sourceLab_.image(), fillMask_.image(), refilled.image());
    show("refilled", refilled.image());
    Common::labToRgb(refilled.image(), corrected_.image(), flags_);
}

void ToneAligner::LocalRun::limit() {
    checkpoint(refillEnds);
    const Stage stage("limit");
    Common::copy(source(), sourceLab_.image());
    Tone::limitCorrection(manager_, sourceLab_.image(), corrected_.image(), aligner_.gaussianWindow_,
                          settings_.correctionLimit, flags_, aligner_.observer_);
    show("limited", corrected_.image());
}

void ToneAligner::LocalRun::smooth() {
    checkpoint(0.9f);
    const Stage stage("smooth");
    Common::rgbToLab(corrected_.image(), corrected_.image(), flags_);
    Common::rgbToLab(sourceLab_.image(), sourceLab_.image(), flags_);
    GuidedFilter::GuidedFilter filter(manager_, settings_.smoothingRadius, smoothingEpsilon, perChannel, flags_);
    filter.apply(corrected_.image(), sourceLab_.image(), corrected_.image());
    show("smoothed", corrected_.image());
}

void ToneAligner::LocalRun::finish(Image& output) {
    checkpoint(0.97f);
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
