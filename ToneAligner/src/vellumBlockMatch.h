#pragma once

#include <array>
#include <vector>

#include "compute/BufferManagement/BufferManager.h"

/// A gain and an offset for every pixel, from the statistics of blocks.
namespace Vellum::Tone {

using Vellum::Image::Box;
using Vellum::Image::Image;

/// The kernels of the block match. With wrapping on they take blocks on the right end as going on at the left.
class BlockKernels {
public:
    using BufferManager = Utils::BufferManagement::BufferManager;

    BlockKernels(BufferManager& manager, int kernelFlags, bool wrapEnabled, const std::array<int, 2>& wrapSize)
        : bufferManager(manager), kernelFlags(kernelFlags), wrapEnabled(wrapEnabled), wrapSize(wrapSize) {}

    /// The grid of blocks of `size` pixels over a picture, a cell for each: they overlap by half.
    static Box gridOf(const Box& picture, int size);

    // Pictures begin at (0, 0). Grids have 3 components, `count` one.
    void countBlocks(const Image& mask, Image& count, int size) const;
    void meanBlocks(const Image& picture, const Image& weights, Image& mean, int size) const;
    void deviationBlocks(const Image& picture, const Image& mean, const Image& weights, Image& deviation,
                         int size) const;
    void blockTransfer(const Image& sourceMean, const Image& sourceDeviation, const Image& targetMean,
                       const Image& targetDeviation, Image& offset, Image& gain) const;
    void upsample(const Image& grid, Image& picture) const;
    void applyGainOffset(const Image& source, const Image& offset, const Image& gain, Image& result) const;

    BufferManager& bufferManager;
    int kernelFlags;
    bool wrapEnabled;
    std::array<int, 2> wrapSize;
    /// With wrapping on several steps are run as one pass. Off: one kernel for each, which give the same to rounding.
    bool fusedPasses = true;
};

/// How the pictures of several block sizes become one, component by component.
enum class MergeRule {
    first = 0,   ///< the sample itself
    closer = 1,  ///< the sample where it is nearer to the reference than what there is
    add = 2      ///< plus the sample's difference from the reference
};

/// What matchBlocks works on: Lab pictures of 3 components, and the pixels that take part (1 component, above 0). All
/// of one size; boxes may begin anywhere.
struct BlockPictures {
    const Image& source;
    const Image& target;
    const Image& valid;
};

/// result = `source` with a gain and an offset at every pixel, such that blocks of `size` pixels take the mean and
/// deviation of `target`. A block with too few pixels takes those of its neighbours, or with `fillEmptyBlocks` off
/// stays as it is.
void matchBlocks(const BlockKernels& kernels, const BlockPictures& pictures, Image& result, int size,
                 bool fillEmptyBlocks);

/// The same picture in RGB, merged into `result`; `reference` (RGB of 3 or 4 components) is what the rule says.
void matchAndMerge(const BlockKernels& kernels, const BlockPictures& pictures, const Image& reference, MergeRule rule,
                   Image& result, int size, bool fillEmptyBlocks);

/// The block sizes of several samples: from blockSize to maxBlockSize, with wrapping a quarter of blockSize beyond.
/// Equal steps, or with an intervalType other than 0 steps that grow.
std::vector<int> sampleBlockSizes(int blockSize, int maxBlockSize, int samples, int intervalType, bool wrapEnabled);

/// Merges the RGB picture of one block size into `result`, as matchAndMerge does.
void mergeSample(const Image& sample, const Image& reference, MergeRule rule, Image& result, int kernelFlags);

}  // namespace Vellum::Tone
