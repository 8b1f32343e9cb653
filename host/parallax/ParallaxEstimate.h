#pragma once

#include <functional>
#include <vector>

#include "host/measures/RgbPicture.h"
#include "host/packing/DisparityMap.h"

namespace ViewTint::Host {

/// Where the pixels of a stereo pair are found again, estimated from the pictures alone.
struct ParallaxEstimate {
    DisparityMap left, right;  ///< every pixel has a value: unknown ones the background's
    std::vector<float> leftOcclusion,
        rightOcclusion;  ///< 1 where the other view doesn't show the pixel, or nothing is known
    double matched = 0;  ///< the share of both views' pixels that were found in the other
};

/// The longest side of views whose disparity can be estimated: the library counts places in 16 bits.
inline constexpr int longestEstimatedSide = 32766;

/// Estimates both directions by semi-global matching (H. Hirschmueller, "Stereo Processing by Semiglobal Matching and
/// Mutual Information", PAMI 2008, as OpenCV has it) of pictures whose local mean and contrast are taken out, so that
/// neither exposure nor casts nor light matter. The range of disparities and a vertical misalignment of some pixels
/// (shift, roll, keystone) are found first. What the two directions don't agree on within a pixel, and what looks
/// otherwise in the other view, is unknown. The same pictures give the same bits, whatever the threads.
///
/// The views have one size; no side is longer than longestEstimatedSide. `checkpoint` is called between the steps and
/// may throw.
ParallaxEstimate estimateParallax(const RgbPicture& left, const RgbPicture& right,
                                  const std::function<void()>& checkpoint = {});

}  // namespace ViewTint::Host
