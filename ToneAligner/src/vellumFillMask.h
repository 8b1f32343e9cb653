#pragma once

#include "compute/BufferManagement/BufferManager.h"

/// Which pixels take part in the matching, and which are refilled afterwards.
namespace Vellum::Tone {

using Vellum::Image::Image;

/// 1 where `userMask` selects a pixel that is neither occluded nor on an edge of the disparity; else 0. One component
/// each.
void validPixels(const Image& userMask, const Image& occlusion, const Image& disparityEdges, Image& valid,
                 int kernelFlags);

/// How the mask of pixels to refill is made.
struct FillMaskSettings {
    float adjustEdges = 0;    ///< pixels by which edges of the disparity grow, or shrink if negative
    float edgeDetect = 0;     ///< 0 .. 1; above 0 edges of the pictures with a gradient above 1 - edgeDetect join in
    float featherSize = 1.5;  ///< sigma of the blur
};

/// mask = 1 where a pixel is to be refilled, 0 where not, between them at feathered rims. `sourceView` and
/// `rebuiltView` in linear RGB, `occlusion` and `disparityEdges` of one component over the mask's box.
void buildFillMask(Utils::BufferManagement::BufferManager& bufferManager, const FillMaskSettings& settings,
                   const Image& sourceView, const Image& rebuiltView, const Image& occlusion,
                   const Image& disparityEdges, Image& mask, int kernelFlags);

}  // namespace Vellum::Tone
