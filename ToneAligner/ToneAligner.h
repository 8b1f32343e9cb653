#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::Tone {

/// Enters this library's kernels into the catalogue.
void registerKernels();

class BlockKernels;

/// result = 1 where the disparity of the view to correct (2 components, in pixels) jumps by more than a pixel between
/// the neighbours of a pixel, else 0. `scale` multiplies the disparity. Without `thin` the marks are as wide as the
/// jumps.
void detectDisparityEdges(const Vellum::Image::Image& disparity, Vellum::Image::Image& result, float scale, bool thin);

/// How far a pixel may be from selected, and how far occluded, and still count.
inline constexpr float countedTolerance = 0.0001f;

/// How many pixels of each picture are broken, see Common::countBroken. An alpha doesn't matter.
struct BrokenPixels {
    std::size_t source = 0;
    std::size_t rebuilt = 0;
    std::size_t mask = 0;
    std::size_t occlusion = 0;
};

/// Turns the fetched images of one render into the corrected view. Made for one render, on the stack.
///
/// Colours are matched in scaled Lab: L = 1.16 f(Y) - 0.16, a = 5 (f(X) - f(Y)), b = 2 (f(Y) - f(Z)), so that L runs
/// from 0 to 1.
class ToneAligner {
public:
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;
    using Image = Vellum::Image::Image;

    enum Mode { basic = 0, idle = 1, oneBlockSize = 2, severalBlockSizes = 3 };

    ToneAligner(BufferManager& bufferManager, int kernelFlags);

    /// The values that the setters below set. Enumerations as numbers.
    struct Settings {
        int mode = severalBlockSizes;
        int blockSize = 5;             ///< edge of a block in pixels; the smallest of several
        bool fillOcclusions = true;    ///< refill what the other view doesn't show from its surroundings
        float colourTolerance = 0.1f;  ///< how unlike in Lab the pixels may be that refill one
        int supportSize = 20;          ///< pixels by which the refill looks beyond the nearest pixel that counts
        int samples = 2;               ///< how many block sizes
        int intervalType = 0;          ///< 0: block sizes at equal steps, else the small ones closer together
        int maxBlockSize = 100;        ///< the largest of several block sizes
        int correctionType = 1;        ///< 0 "Minimum", 1 "Closest", 2 "Average"
        bool fillEmptyBlocks = true;   ///< give blocks with too few pixels what their neighbours have
        float adjustEdges = 0;         ///< pixels by which the disparity's edges grow in the mask of the refill
        float edgeDetect = 0;          ///< 0 .. 1: how weak an edge of the pictures joins that mask
        float featherSize = 1.5f;      ///< sigma of that mask's blur in pixels
        bool outputOcclusionsToAlpha = false;
        float noiseLevel = 0.5f;         ///< 0 .. 1: how strong a grain stays out of the matching
        bool previewCorrection = false;  ///< deliver the difference instead of the picture
        float correctionLimit = 1.0f;    ///< how far L may be corrected away from the average of a wide surrounding
        std::array<int, 2> wrapSize{-1, -1};
        int smoothingRadius = 8;

        bool wraps() const { return wrapSize[0] >= 1 && wrapSize[1] >= 1; }
    };

    void setBlockSize(int pixels) { settings_.blockSize = pixels; }
    void setFillOcclusions(bool fill) { settings_.fillOcclusions = fill; }
    void setColourTolerance(float tolerance) { settings_.colourTolerance = tolerance; }
    void setSupportSize(int pixels) { settings_.supportSize = pixels; }
    void setSamples(int samples) { settings_.samples = samples; }
    void setIntervalType(int type) { settings_.intervalType = type; }
    void setMaxBlockSize(int pixels) { settings_.maxBlockSize = pixels; }
    void setCorrectionType(int type) { settings_.correctionType = type; }
    void setFillEmptyBlocks(bool fill) { settings_.fillEmptyBlocks = fill; }
    void setAdjustEdges(float amount) { settings_.adjustEdges = amount; }
    void setEdgeDetect(float amount) { settings_.edgeDetect = amount; }
    void setFeatherSize(float pixels) { settings_.featherSize = pixels; }
    void setOutputOcclusionsToAlpha(bool output) { settings_.outputOcclusionsToAlpha = output; }
    void setNoiseLevel(float level) { settings_.noiseLevel = level; }
    void setPreviewCorrection(bool preview) { settings_.previewCorrection = preview; }
    void setCorrectionLimit(float limit) { settings_.correctionLimit = limit; }
    /// Width and height of the picture's format; both at least 1 make the picture wrap round.
    void setWrapSize(const std::array<int, 2>& size) { settings_.wrapSize = size; }
    void setSmoothingRadius(int pixels) { settings_.smoothingRadius = pixels; }
    void setMode(int mode) { settings_.mode = mode; }
    const Settings& settings() const { return settings_; }
    void setSettings(const Settings& settings) { settings_ = settings; }

    /// `sourceView` is the view to correct, `rebuiltView` the other view on its geometry (4 components each).
    /// `userMask` (1: selected), `occlusion` (1: not visible in the other view) and `disparityEdges` have one
    /// component. Writes `output`, 4 components. The pictures handed over come back unchanged.
    /// The output is `sourceView` itself, bit for bit, where `userMask` is 0 and where `sourceView` has no colour:
    /// broken pixels take no part. A broken pixel of `rebuiltView` counts as occluded, a broken value of `userMask` as
    /// 0, of `occlusion` and `disparityEdges` as 1. Throws Cobalt::Base::Exception; a failure of the device passes
    /// through.
    void process(const Image& sourceView, const Image& rebuiltView, const Image& userMask, const Image& occlusion,
                 const Image& disparityEdges, Image& output);

    /// What the last process() found. Not with mode `idle`.
    const BrokenPixels& brokenPixels() const { return broken_; }

    // ---- steps of the local modes, each usable by itself; all images on the manager's current device

    /// The block sizes of mode 3, in their order.
    std::vector<int> sampleBlockSizes() const;
    /// Lab pictures of 3 components; `valid` has one, 1 at pixels that take part. `result` is `source` with the mean
    /// and deviation of the blocks around each pixel taken to those of `target`.
    void matchBlocks(const Image& source, const Image& target, const Image& valid, Image& result, int blockSize);
    /// `mask` of one component: 1 where a pixel is to be refilled. Views in linear RGB.
    void buildFillMask(const Image& sourceView, const Image& rebuiltView, const Image& occlusion,
                       const Image& disparityEdges, Image& mask);
    /// Lab pictures of 3 components: `refilled` is `source` plus the correction, which under the mask is the average of
    /// that of nearby pixels of like colour outside it.
    void refill(const Image& corrected, const Image& source, const Image& mask, Image& refilled);
    /// Pictures of 3 or 4 components in linear RGB. Keeps the change of L within the limit of its average in a wide
    /// surrounding. Changes `corrected`; `source` comes back with the rounding of its way to Lab and back.
    void limitCorrection(Image& source, Image& corrected);

    /// Called between the stages of the local modes and between the pieces of the refill, with how much of process() is
    /// done, 0 to 1. What it throws ends the call.
    void setCheckpoint(std::function<void(float done)> checkpoint) { checkpoint_ = std::move(checkpoint); }

    /// Shown the intermediate pictures of the local modes by name, each once it is made:
    /// "V" the pixels that take part in the statistics, "N" and "T" the view to correct and the rebuilt view without
    /// noise, "noise" what was taken off the former, "C" the matched picture in Lab of mode 2, "E0" .. the pictures of
    /// the block sizes of mode 3 and "merged" what became of them, "O" the mask of pixels to refill, "delta" the
    /// correction in Lab before and "refilled" the picture in Lab after the refill, "average" the mean change of L
    /// around a pixel, "limited" and "smoothed" the picture in Lab after limiting and smoothing. RGB unless said.
    using StageObserver = std::function<void(const char* name, const Image& picture)>;
    void setStageObserver(StageObserver observer) { observer_ = std::move(observer); }

    /// Several kernels are run as one pass. Off: the plain sequence of kernels, which gives the same bits in "Basic"
    /// and the same to rounding in the local modes.
    void setFusedPasses(bool fused) { fusedPasses_ = fused; }

private:
    struct Views;
    void processBasic(const Views& views, const Utils::BufferManagement::BufferManagedImage& output);
    void processBasicFused(const Views& views, Image& output);
    class LocalRun;
    BlockKernels blockKernels() const;
    void processLocal(const Views& views, Image& output);
    void show(const char* name, const Image& picture) const;
    void blendByMask(const Views& views, Image& output);

    BufferManager& bufferManager_;
    int kernelFlags_;
    Image gaussianWindow_;
    Settings settings_;
    BrokenPixels broken_;
    bool fusedPasses_ = true;
    std::function<void(float)> checkpoint_;
    StageObserver observer_;
};

}  // namespace Vellum::Tone
