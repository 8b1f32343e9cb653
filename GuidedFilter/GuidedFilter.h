#pragma once

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::GuidedFilter {

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Smooths a picture while keeping the edges of another, the guidance: around every pixel the output is a linear
/// function of the guidance, output = a * guidance + b, with a and b from the statistics of a square window and
/// averaged over such a window themselves (He, Sun and Tang, "Guided Image Filtering", 2010).
///
/// The picture is worked off in tiles, so that the working memory doesn't grow with it.
class GuidedFilter {
public:
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;
    using Image = Vellum::Image::Image;

    /// How the channels of the guidance serve those of the input.
    enum Guidance {
        meanOfChannels = 0,  ///< their mean guides every channel
        channelByChannel = 1,
        allChannels = 2,  ///< three channels guide each channel of the input together
    };

    /// The window reaches `radius` pixels to each side; variances far below `epsilon` count as flat. Any other
    /// `guidanceMode` filters nothing. `callerField` is kept and not read.
    GuidedFilter(BufferManager& bufferManager, int radius, float epsilon, int guidanceMode, int callerField);

    /// True, as at first: always in tiles. False: a picture at least as wide or as high as a tile is filtered whole.
    void setForceTiling(bool force) { forceTiling_ = force; }
    /// On the CPU several operations run as one pass. Off: the plain sequence of operations, which gives the same bits.
    void setFusedPasses(bool fused) { fusedPasses_ = fused; }

    /// Filters the first three channels of `input` into those of `output`, inside the input's box, which guidance and
    /// output must cover; in tiles, further channels that both have are copied. Where the counts of channels don't suit
    /// the guidance mode the output becomes the input. Any of the three may be the same image: what is read is always
    /// the picture as it was before the call. Works on the manager's current device, wherever the images lie.
    void apply(const Image& input, const Image& guidance, Image& output);

private:
    class Run;

    BufferManager& bufferManager_;
    bool forceTiling_ = true;
    int tileWidth_ = 1024;
    int tileHeight_ = 768;
    int radius_;
    int tileMargin_;
    float epsilon_;
    int guidanceMode_;
    int maxChannels_ = 3;
    [[maybe_unused]] int callerField_;
    bool fusedPasses_ = true;
};

}  // namespace Vellum::GuidedFilter
