#pragma once

#include <span>

namespace ViewTint::Host {

/// The vectors of a view, and what of it the other view hides; one value for each pixel. Occlusion may be empty.
struct DisparityPlanes {
    std::span<const float> x, y;
    std::span<const float> occlusion;
};

/// How well vectors agree with known ones. Shares are of pixels that the known occlusion leaves visible, or of all
/// without one; NaN where there are none.
struct DisparityComparison {
    double within1 = 0, within2 = 0;  ///< ends of vectors less than 1 and 2 pixels apart
    double occlusionAgrees = 0;       ///< of all pixels: both occluded (0.5 or more) or both not; NaN without two masks
    bool same = false;                ///< not a single vector differs
};

/// All planes have one size; throws std::invalid_argument otherwise.
DisparityComparison compareDisparity(const DisparityPlanes& measured, const DisparityPlanes& known);

}  // namespace ViewTint::Host
