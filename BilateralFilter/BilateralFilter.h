#pragma once

#include <array>
#include <functional>
#include <utility>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::BilateralFilter {

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Fills the masked part of a picture from the pixels around it that aren't masked, each weighted by its distance and
/// by how close its colour in a guide is to that of the pixel to fill. The window grows with the distance to the
/// nearest pixel that isn't masked, so that the middle of a large hole is reached too.
class BilateralFilter {
public:
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;
    using Image = Vellum::Image::Image;

    /// `colourSigma` for each channel of the guide. A window reaches `radiusBoost` pixels farther than the nearest
    /// pixel that isn't masked, and 3 at least. `callerField` is kept and not read.
    BilateralFilter(BufferManager& bufferManager, const std::array<float, 3>& colourSigma, int radiusBoost,
                    int callerField);

    /// `values`, `guide` and `output` of 3 components, `mask` of one: how much of the filling each pixel takes; pixels
    /// of up to 0.0001 give. All in one box and on the manager's current device. `output` may not share memory with the
    /// others.
    ///
    /// Blocks of 256 x 256 pixels that hold a pixel more than 64 from the mask's end are filled from lists of the
    /// pixels that give: the time for a pixel grows with their number in its window, not with the window. The values
    /// differ there from those of the plain walk over the window by at most 1e-5 of the greatest value in it. Which
    /// form a block takes depends on the mask alone. Without a pixel that gives the values are copied.
    void apply(const Image& values, const Image& guide, const Image& mask, Image& output);

    /// distance = the number of diagonal steps from the nearest pixel of `seeds` above 0; 0 at seeds that aren't 0.
    /// Where no seed can be reached by diagonal steps it is 10000, or 0 where the last pass of an even number left a
    /// pixel out. Both of one component in one box. `seeds` may be changed.
    void growDistance(Image& seeds, Image& distance);

    /// Called from apply() before each of its pieces, which take a fraction of a second, with how much is done, 0 to 1.
    /// What it throws ends the call; `output` is then unfinished.
    void setProgress(std::function<void(float done)> progress) { progress_ = std::move(progress); }

    /// On the CPU distances grow from lists of pixels. Off: by passes of a kernel, which give the same distances.
    void setFusedPasses(bool fused) { fusedPasses_ = fused; }

private:
    void growDistanceByPasses(Image& seeds, Image& distance);
    void report(double done) const;

    BufferManager& bufferManager_;
    std::array<float, 3> colourSigma_;
    int radiusBoost_;
    [[maybe_unused]] int callerField_;
    bool fusedPasses_ = true;
    std::function<void(float)> progress_;
};

}  // namespace Vellum::BilateralFilter
