#pragma once

#include <array>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::Tone {

/// Enters this library's kernels into the catalogue.
void registerKernels();

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

    void setBlockSize(int pixels) { blockSize_ = pixels; }
    void setFillOcclusions(bool fill) { fillOcclusions_ = fill; }
    void setColourTolerance(float tolerance) { colourTolerance_ = tolerance; }
    void setSupportSize(int pixels) { supportSize_ = pixels; }
    void setSamples(int samples) { samples_ = samples; }
    void setIntervalType(int type) { intervalType_ = type; }
    void setMaxBlockSize(int pixels) { maxBlockSize_ = pixels; }
    void setCorrectionType(int type) { correctionType_ = type; }
    void setFillEmptyBlocks(bool fill) { fillEmptyBlocks_ = fill; }
    void setAdjustEdges(float amount) { adjustEdges_ = amount; }
    void setEdgeDetect(float amount) { edgeDetect_ = amount; }
    void setFeatherSize(float pixels) { featherSize_ = pixels; }
    void setOutputOcclusionsToAlpha(bool output) { outputOcclusionsToAlpha_ = output; }
    void setNoiseLevel(float level) { noiseLevel_ = level; }
    void setPreviewCorrection(bool preview) { previewCorrection_ = preview; }
    void setCorrectionLimit(float limit) { correctionLimit_ = limit; }
    /// Width and height of the picture's format; both at least 1 make the picture wrap round.
    void setWrapSize(const std::array<int, 2>& size) {
        wrapSize_ = size;
        wrapEnabled_ = size[0] >= 1 && size[1] >= 1;
    }
    void setSmoothingRadius(int pixels) { smoothingRadius_ = pixels; }
    void setMode(int mode) { mode_ = mode; }

    /// `sourceView` is the view to correct, `rebuiltView` the other view on its geometry (4 components each).
    /// `userMask` (1: selected), `occlusion` (1: not visible in the other view) and `disparityEdges` have one
    /// component. Writes `output`, 4 components. The pictures handed over come back unchanged.
    /// Throws Cobalt::Base::Exception; a failure of the device passes through.
    void process(const Image& sourceView, const Image& rebuiltView, const Image& userMask, const Image& occlusion,
                 const Image& disparityEdges, Image& output);

    /// Keeps the lightness that `corrected` changes in `source` within the correction limit of its mean over a wide
    /// Gaussian window. RGB pictures of 3 or 4 components over one box, which the buffer manager holds. Writes
    /// `corrected`; `source` comes back with the rounding of a way to Lab and back. A fourth component stays.
    void limitCorrection(Image& source, Image& corrected);

    /// On the CPU several kernels are run as one pass. Off: the plain sequence of kernels, which gives the same bits.
    void setFusedPasses(bool fused) { fusedPasses_ = fused; }

private:
    struct Views;
    void processBasic(const Views& views, const Utils::BufferManagement::BufferManagedImage& output);
    void processBasicFused(const Views& views, Image& output);
    void blendByMask(const Views& views, Image& output);

    BufferManager& bufferManager_;
    int kernelFlags_;
    Image gaussianWindow_;
    int mode_ = severalBlockSizes;
    int blockSize_ = 5;
    bool fillOcclusions_ = true;
    float colourTolerance_ = 0.1f;
    int supportSize_ = 20;
    int samples_ = 2;
    int intervalType_ = 0;
    int maxBlockSize_ = 100;
    int correctionType_ = 1;
    bool fillEmptyBlocks_ = true;
    float adjustEdges_ = 0;
    float edgeDetect_ = 0;
    float featherSize_ = 1.5f;
    bool outputOcclusionsToAlpha_ = false;
    float noiseLevel_ = 0.5f;
    bool previewCorrection_ = false;
    float correctionLimit_ = 1.0f;
    int smoothingRadius_ = 8;
    bool wrapEnabled_ = false;
    std::array<int, 2> wrapSize_{-1, -1};
    bool fusedPasses_ = true;
};

}  // namespace Vellum::Tone
