#pragma once

#include <optional>
#include <vector>

#include "host/files/MultiViewFile.h"
#include "host/packing/ColourCast.h"
#include "host/packing/DisparityMap.h"

namespace ViewTint::Host {

/// One view to pack. Planes have the lowest row first and all have the stereo pair's size.
struct PackedView {
    std::vector<float> red;
    std::vector<float> green;
    std::vector<float> blue;
    std::vector<float> alpha;                     ///< empty: opaque
    std::optional<DisparityMap> disparity;        ///< may be absent in one view of a pair
    std::optional<std::vector<float>> occlusion;  ///< 1 hidden in the other view, 0 visible
    std::optional<ColourCast> cast;
};

/// A stereo pair to pack.
struct StereoPair {
    int width = 0;
    int height = 0;
    PackedView left;
    PackedView right;
};

/// What the packing found out about a view.
struct PackedViewReport {
    std::size_t unknown = 0;   ///< pixels whose vector was filled in
    std::size_t occluded = 0;  ///< pixels with an occlusion of 0.5 or more
};

struct PackedPair {
    std::vector<NewView> views;  ///< left, right
    PackedViewReport left;
    PackedViewReport right;
};

/// Makes the channels of both views: `R G B A`, `disparityL.x`, `disparityL.y`, `disparityR.x`, `disparityR.y`,
/// `mask_occlusion.alpha`. The left view's `disparityR` leads to its match in the right view and its `disparityL` is
/// 0; in the right view it is the other way round. Vectors are in pixels, x to the right, y up.
///
/// A missing map is the other one's forward warp; missing occlusion comes from visibility. Unknown vectors are filled
/// from the background side and always marked occluded.
/// Throws std::invalid_argument when neither view has a map or a plane has another size. Takes the pair by value: its
/// planes move into the result.
PackedPair packStereo(StereoPair pair, const RowCheckpoint& checkpoint = {});

}  // namespace ViewTint::Host
