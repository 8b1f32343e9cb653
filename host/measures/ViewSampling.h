#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/measures/RgbPicture.h"

namespace ViewTint::Host {

/// A view carried onto the grid of another one.
struct SampledView {
    RgbPicture picture;
    std::vector<std::uint8_t> mask;  ///< 1 where the pixel was seen in the sampled view, else 0 and black
};

/// Samples `view` bilinearly at the positions that the vectors of the other view point to.
///
/// `vectorX` and `vectorY` (pixels, y up) have a value for each pixel of `view`, which has the other view's size.
/// Left out, and 0 in the mask, are pixels whose vector isn't finite or leads outside the picture, and those whose
/// `occlusion` is 0.5 or more; an empty `occlusion` hides nothing.
/// Throws std::invalid_argument when a span has another size.
SampledView sampleThroughDisparity(const RgbPicture& view, std::span<const float> vectorX,
                                   std::span<const float> vectorY, std::span<const float> occlusion);

}  // namespace ViewTint::Host
