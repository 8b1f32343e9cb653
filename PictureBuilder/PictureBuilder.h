#pragma once

#include <array>

#include "PictureBuilder/WarpFilter.h"
#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::PictureBuilder {

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Brings the other view onto the geometry of the view to correct: each pixel is sampled where the disparity points to.
/// What the other view doesn't show is sampled through a disparity that is extended into the hole from its four sides,
/// taking the background's. The alpha of the result tells which pixels can be trusted; its colours are NaN where the
/// filter reaches a pixel of the other view whose colour is none (see Common::countBroken).
///
/// Disparities are in pixels, x to the right, y up, and lead from a pixel to its counterpart.
class PictureBuilder {
public:
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;
    using Image = Vellum::Image::Image;

    /// `fillMethod` 3 and `blendMethod` 1 are the ones there are; `flag` and `edgeFlag` change nothing with them.
    PictureBuilder(BufferManager& bufferManager, bool flag, int fillMethod, int blendMethod, bool edgeFlag,
                   int kernelFlags);

    /// 0 samples view A through components 0 and 1 of the disparity, 1 view B through components 2 and 3.
    void setDirection(int direction) { direction_ = direction; }
    /// Pixels by which holes grow before they are filled.
    void setGrowAmount(float pixels) { growAmount_ = pixels; }
    /// The sigma of the soft seam, in pixels.
    void setFeather(float sigma) { feather_ = sigma; }
    /// Not there with fill method 3.
    void setGrowOcclusion(bool grow) { growOcclusion_ = grow; }
    void setUseInputMask(bool use) { useInputMask_ = use; }
    /// Width and height of the picture's format; both at least 1 make its columns close round the width.
    void setWrapSize(const std::array<int, 2>& size) { wrapSize_ = size; }

    /// `viewA`, `viewB` 4 components, `disparity` 4 (two vectors), `occlusion` 1 (above 0: not visible in the other
    /// view), `result` 4; disparity, occlusion and result have one box. `extra` isn't used.
    /// Throws Cobalt::Base::Exception; a failure of the device passes through.
    void build(const Image& viewA, const Image& viewB, const Image& disparity, const Image& occlusion, Image& result,
               const Image* extra = nullptr);

    // ---- the steps, each usable by itself; all images on the manager's current device

    /// output = the picture at (x, y) + displacement (2 components), in linear light.
    void warp(const Image& picture, const Image& displacement, Image& output);
    /// marks = 1 where the displacement jumps or points out of its box, else 0.
    void markOcclusion(const Image& displacement, Image& marks);
    /// filled = `warped` with what `marks` shows, grown by 3 pixels, sampled anew from `picture`.
    void fillHoles(const Image& picture, const Image& warped, const Image& displacement, const Image& marks,
                   Image& filled);

private:
    WarpFilter filter() const;
    void fillFromCoded(const Image& coded, const Image& warped, const Image& displacement, const Image& marks,
                       Image& filled);
    void extendFromRims(const Image& displacement, const Image& hole, Image& extended);

    BufferManager& bufferManager_;
    int fillMethod_;
    int blendMethod_;
    int direction_ = 0;
    float growAmount_ = 0;
    float feather_ = 1.5f;
    bool growOcclusion_ = false;
    bool useInputMask_ = false;
    std::array<int, 2> wrapSize_{-1, -1};
    int kernelFlags_;
};

}  // namespace Vellum::PictureBuilder
