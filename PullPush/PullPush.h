#pragma once

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::PullPush {

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Fills the holes of a sparse picture from whatever surrounds them, at any distance: a pyramid is pulled up from the
/// picture and its weights, each level a weighted mean of the one below, and pushed down again, each level keeping its
/// own values where its weight is high.
class PullPush {
public:
    PullPush(Utils::BufferManagement::BufferManager& bufferManager, int kernelFlags)
        : bufferManager_(bufferManager), kernelFlags_(kernelFlags) {}

    /// `image` of 1 to 4 components; `weights` of one, limited to 0 .. 1; `result` like `image`, which may not share
    /// its memory. Boxes may begin anywhere; they must be of one size. Weights of 0 everywhere give 0.
    /// The coarsest level is one pixel in its shorter direction only: in a picture much longer than wide, what lies
    /// farther from any weight than that level's pixels reach stays 0.
    void apply(const Vellum::Image::Image& image, const Vellum::Image::Image& weights, Vellum::Image::Image& result);

private:
    Utils::BufferManagement::BufferManager& bufferManager_;
    int kernelFlags_;
    float scale_ = 0.5f;
};

}  // namespace Vellum::PullPush
