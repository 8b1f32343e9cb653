#include "vellumBlockMatch.h"

#include <cmath>
#include <string>

#include "Common/Common.h"
#include "PullPush/PullPush.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family blockPasses;
extern const Family blocks;
}  // namespace Vellum::Kernels

namespace Vellum::Tone {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;
using Utils::BufferManagement::BufferManagedImage;
using Vellum::Image::Info;

const ProgramSource blockCountSource(Kernels::blocks, "blockCountKernel");
const ProgramSource blockCountWrapSource(Kernels::blocks, "blockCountWrapKernel");
const ProgramSource blockMeanSource(Kernels::blocks, "blockMeanKernel");
const ProgramSource blockMeanWrapSource(Kernels::blocks, "blockMeanWrapKernel");
const ProgramSource blockDeviationSource(Kernels::blocks, "blockDeviationKernel");
const ProgramSource blockDeviationWrapSource(Kernels::blocks, "blockDeviationWrapKernel");
const ProgramSource blockTransferSource(Kernels::blocks, "blockTransferKernel");
const ProgramSource bilinearUpsampleSource(Kernels::blocks, "bilinearUpsampleKernel");
const ProgramSource bilinearUpsampleWrapSource(Kernels::blocks, "bilinearUpsampleWrapKernel");
const ProgramSource gainOffsetApplySource(Kernels::blocks, "gainOffsetApplyKernel");
const ProgramSource pickCloserSource(Kernels::blocks, "pickCloserKernel");
const ProgramSource blockSegmentsSource(Kernels::blockPasses, "blockSegmentsKernel");
const ProgramSource segmentTransferSource(Kernels::blockPasses, "segmentTransferKernel");
const ProgramSource blockApplySource(Kernels::blockPasses, "blockApplyKernel");
const ProgramSource sampleMergeSource(Kernels::blockPasses, "sampleMergeKernel");

/// For one use: every allocation may move managed pictures to another device, from which a copy of the handle stays.
Image atOrigin(const Image& image) {
    return image.translate({-image.box().x0, -image.box().y0});
}

/// The corrections of a grid of blocks.
struct Grids {
    Grids(const BlockKernels& kernels, const Box& grid)
        : count(kernels.bufferManager, Info{grid, 1}),
          offset(kernels.bufferManager, Info{grid, 3}),
          gain(kernels.bufferManager, Info{grid, 3}) {}

    BufferManagedImage count;  ///< 1 where the block has pixels enough, else 0
    BufferManagedImage offset;
    BufferManagedImage gain;
};

/// A block counts from a quarter of its pixels on.
float leastCount(int size) {
    return static_cast<float>(size * size / 4) - 1;
}

void transferInSteps(const BlockKernels& kernels, const BlockPictures& pictures, Grids& grids, int size) {
    const Info info = grids.offset.image().info();
    const BufferManagedImage sourceMean(kernels.bufferManager, info), targetMean(kernels.bufferManager, info);
    const BufferManagedImage sourceDeviation(kernels.bufferManager, info), targetDeviation(kernels.bufferManager, info);
    Image& count = grids.count.image();
    const Image source = atOrigin(pictures.source), target = atOrigin(pictures.target),
                valid = atOrigin(pictures.valid);
    kernels.countBlocks(valid, count, size);
    Common::threshold(count, count, leastCount(size), true, kernels.kernelFlags);
    kernels.meanBlocks(source, valid, sourceMean.image(), size);
    kernels.meanBlocks(target, valid, targetMean.image(), size);
    kernels.deviationBlocks(source, sourceMean.image(), valid, sourceDeviation.image(), size);
    kernels.deviationBlocks(target, targetMean.image(), valid, targetDeviation.image(), size);
    kernels.blockTransfer(sourceMean.image(), sourceDeviation.image(), targetMean.image(), targetDeviation.image(),
                          grids.offset.image(), grids.gain.image());
    Common::fillWhereMask(grids.offset.image(), count, {0, 0, 0, 0}, true);
    Common::fillWhereMask(grids.gain.image(), count, {1, 1, 1, 1}, true);
}

void transferBySegments(const BlockKernels& kernels, const BlockPictures& pictures, Grids& grids, int size) {
    const Box& grid = grids.count.image().box();
    const Box segments{0, 0, grid.x1 + 1, grid.y1 + 1};
    const BufferManagedImage counts(kernels.bufferManager, Info{segments, 2});
    const BufferManagedImage sourceMean(kernels.bufferManager, Info{segments, 3});
    const BufferManagedImage targetMean(kernels.bufferManager, Info{segments, 3});
    const BufferManagedImage sourceSquares(kernels.bufferManager, Info{segments, 3});
    const BufferManagedImage targetSquares(kernels.bufferManager, Info{segments, 3});
    const Image source = atOrigin(pictures.source), target = atOrigin(pictures.target),
                valid = atOrigin(pictures.valid);
    runKernel(blockSegmentsSource,
              {&source, &target, &valid, &counts.image(), &sourceMean.image(), &targetMean.image(),
               &sourceSquares.image(), &targetSquares.image()},
              kernels.kernelFlags, {}, Scalar{"size", size}, Scalar{"wrapWidth", kernels.wrapSize[0]});
    runKernel(segmentTransferSource,
              {&counts.image(), &sourceMean.image(), &targetMean.image(), &sourceSquares.image(),
               &targetSquares.image(), &grids.count.image(), &grids.offset.image(), &grids.gain.image()},
              kernels.kernelFlags, JIT::IterationController::over(grid), Scalar{"leastCount", leastCount(size)});
}

void fillEmpty(const BlockKernels& kernels, const Image& count, Image& grid) {
    const BufferManagedImage filled(kernels.bufferManager, grid.info());
    PullPush::PullPush(kernels.bufferManager, kernels.kernelFlags).apply(grid, count, filled.image());
    Common::maskMix(grid, filled.image(), count, grid, kernels.kernelFlags);
}

bool fuses(const BlockKernels& kernels) {
    return kernels.fusedPasses && kernels.wrapEnabled;
}

/// Offsets and gains of all blocks.
void transfer(const BlockKernels& kernels, const BlockPictures& pictures, Grids& grids, int size,
              bool fillEmptyBlocks) {
    if (fuses(kernels))
        transferBySegments(kernels, pictures, grids, size);
    else
        transferInSteps(kernels, pictures, grids, size);
    if (!fillEmptyBlocks) return;
    fillEmpty(kernels, grids.count.image(), grids.offset.image());
    fillEmpty(kernels, grids.count.image(), grids.gain.image());
}

void check(const BlockPictures& pictures, const Image& result, int size) {
    const auto sameSize = [&](const Image& image) {
        return image.box().width() == pictures.source.box().width() &&
               image.box().height() == pictures.source.box().height();
    };
    if (size < 2) Compute::fail("Blocks of " + std::to_string(size) + " pixels are too small; they begin at 2.");
    if (!sameSize(pictures.target) || !sameSize(pictures.valid) || !sameSize(result))
        Compute::fail("The block match needs pictures, mask and result of one size.");
}

}  // namespace

Box BlockKernels::gridOf(const Box& picture, int size) {
    const float step = static_cast<float>(size) * 0.5f;
    const auto cells = [&](int length) { return static_cast<int>(std::ceil(static_cast<float>(length) / step)); };
    return {0, 0, cells(picture.width()), cells(picture.height())};
}

void BlockKernels::countBlocks(const Image& mask, Image& count, int size) const {
    if (wrapEnabled)
        runKernel(blockCountWrapSource, {&mask, &count}, kernelFlags, {}, Scalar{"size", size},
                  Scalar{"wrapSize", wrapSize});
    else
        runKernel(blockCountSource, {&mask, &count}, kernelFlags, {}, Scalar{"size", size});
}

void BlockKernels::meanBlocks(const Image& picture, const Image& weights, Image& mean, int size) const {
    if (wrapEnabled)
        runKernel(blockMeanWrapSource, {&picture, &weights, &mean}, kernelFlags, {}, Scalar{"size", size},
                  Scalar{"wrapSize", wrapSize});
    else
        runKernel(blockMeanSource, {&picture, &weights, &mean}, kernelFlags, {}, Scalar{"size", size});
}

void BlockKernels::deviationBlocks(const Image& picture, const Image& mean, const Image& weights, Image& deviation,
                                   int size) const {
    if (wrapEnabled)
        runKernel(blockDeviationWrapSource, {&picture, &mean, &weights, &deviation}, kernelFlags, {},
                  Scalar{"size", size}, Scalar{"wrapSize", wrapSize});
    else
        runKernel(blockDeviationSource, {&picture, &mean, &weights, &deviation}, kernelFlags, {}, Scalar{"size", size});
}

void BlockKernels::blockTransfer(const Image& sourceMean, const Image& sourceDeviation, const Image& targetMean,
                                 const Image& targetDeviation, Image& offset, Image& gain) const {
    runKernel(blockTransferSource, {&sourceMean, &sourceDeviation, &targetMean, &targetDeviation, &offset, &gain},
              kernelFlags, {});
}

void BlockKernels::upsample(const Image& grid, Image& picture) const {
    if (wrapEnabled)
        runKernel(bilinearUpsampleWrapSource, {&grid, &picture}, kernelFlags, {}, Scalar{"wrapSize", wrapSize});
    else
        runKernel(bilinearUpsampleSource, {&grid, &picture}, kernelFlags, {});
}

void BlockKernels::applyGainOffset(const Image& source, const Image& offset, const Image& gain, Image& result) const {
    runKernel(gainOffsetApplySource, {&source, &offset, &gain, &result}, kernelFlags, {});
}

void matchBlocks(const BlockKernels& kernels, const BlockPictures& pictures, Image& result, int size,
                 bool fillEmptyBlocks) {
    check(pictures, result, size);
    Grids grids(kernels, BlockKernels::gridOf(result.box(), size));
    transfer(kernels, pictures, grids, size, fillEmptyBlocks);
    if (fuses(kernels)) {
        const Image source = atOrigin(pictures.source);
        Image output = atOrigin(result);
        runKernel(blockApplySource, {&source, &grids.offset.image(), &grids.gain.image(), &output}, kernels.kernelFlags,
                  {}, Scalar{"wrapSize", kernels.wrapSize});
        return;
    }
    const Box box{0, 0, result.box().width(), result.box().height()};
    const BufferManagedImage offset(kernels.bufferManager, Info{box, 3});
    const BufferManagedImage gain(kernels.bufferManager, Info{box, 3});
    kernels.upsample(grids.offset.image(), offset.image());
    kernels.upsample(grids.gain.image(), gain.image());
    Image output = atOrigin(result);
    kernels.applyGainOffset(atOrigin(pictures.source), offset.image(), gain.image(), output);
}

void matchAndMerge(const BlockKernels& kernels, const BlockPictures& pictures, const Image& reference, MergeRule rule,
                   Image& result, int size, bool fillEmptyBlocks) {
    if (fuses(kernels)) {
        check(pictures, result, size);
        Grids grids(kernels, BlockKernels::gridOf(result.box(), size));
        transfer(kernels, pictures, grids, size, fillEmptyBlocks);
        const Image source = atOrigin(pictures.source), compared = atOrigin(reference);
        Image output = atOrigin(result);
        runKernel(sampleMergeSource, {&source, &grids.offset.image(), &grids.gain.image(), &compared, &output},
                  kernels.kernelFlags, {}, Scalar{"wrapSize", kernels.wrapSize}, Scalar{"rule", static_cast<int>(rule)},
                  Scalar{"matrix", Common::xyzToRgbMatrix});
        return;
    }
    const BufferManagedImage sample(kernels.bufferManager, result.info());
    matchBlocks(kernels, pictures, sample.image(), size, fillEmptyBlocks);
    Common::labToRgb(sample.image(), sample.image(), kernels.kernelFlags);
    mergeSample(sample.image(), reference, rule, result, kernels.kernelFlags);
}

void mergeSample(const Image& sample, const Image& reference, MergeRule rule, Image& result, int kernelFlags) {
    switch (rule) {
        case MergeRule::first:
            Common::copy(sample, result);
            break;
        case MergeRule::closer:
            runKernel(pickCloserSource, {&sample, &result, &reference, &result}, kernelFlags, {});
            break;
        case MergeRule::add: {
            Image difference = sample.makeLike(*sample.device());
            Common::copy(reference, difference);
            Common::subtract(sample, difference, difference);
            Common::add(result, difference, result);
            break;
        }
    }
}

std::vector<int> sampleBlockSizes(int blockSize, int maxBlockSize, int samples, int intervalType, bool wrapEnabled) {
    const bool growing = intervalType != 0;
    float top = static_cast<float>(maxBlockSize);
    if (wrapEnabled) top += static_cast<float>(blockSize) * 0.25f;
    const int steps = samples - 1;
    const int divisor = samples >= 3 && growing ? steps * (steps + 1) / 2 : steps;
    const float step = (top - static_cast<float>(blockSize)) / static_cast<float>(divisor);
    const auto rounded = [](float size) { return static_cast<int>(double{size} + 0.5); };
    std::vector<int> sizes;
    int previous = blockSize;
    for (int i = 0; i < samples; ++i) {
        int size = blockSize;
        if (i == steps)
            size = static_cast<int>(top);
        else if (growing)
            size = rounded(static_cast<float>(previous) + static_cast<float>(i) * step);
        else if (i > 0)
            size = rounded(static_cast<float>(previous) + step);
        previous = size;
        sizes.push_back(size);
    }
    return sizes;
}

}  // namespace Vellum::Tone
