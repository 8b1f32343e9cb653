#include "host/packing/StereoPacking.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace ViewTint::Host {

namespace {

using Plane = std::vector<float>;

void requireSizes(const PackedView& view, int width, int height) {
    const std::size_t pixels = std::size_t(width) * std::size_t(height);
    bool fits = view.red.size() == pixels && view.green.size() == pixels && view.blue.size() == pixels;
    fits = fits && (view.alpha.empty() || view.alpha.size() == pixels);
    fits = fits && (!view.occlusion || view.occlusion->size() == pixels);
    fits = fits && (!view.disparity || (view.disparity->width == width && view.disparity->height == height));
    if (!fits) throw std::invalid_argument("all planes of a stereo pair must have one size");
}

void addMissingMaps(StereoPair& pair, const RowCheckpoint& checkpoint) {
    if (!pair.left.disparity && !pair.right.disparity)
        throw std::invalid_argument("a stereo pair needs a disparity map");
    if (!pair.right.disparity) pair.right.disparity = forwardWarp(*pair.left.disparity, checkpoint);
    if (!pair.left.disparity) pair.left.disparity = forwardWarp(*pair.right.disparity, checkpoint);
}

Plane occlusionOf(const PackedView& view, const DisparityMap& other, const RowCheckpoint& checkpoint) {
    const DisparityMap& own = *view.disparity;
    if (!view.occlusion) return occlusionFromVisibility(own, other, 1.0f, checkpoint);
    Plane occlusion = *view.occlusion;
    for (std::size_t i = 0; i < occlusion.size(); ++i)
        if (!own.known(i)) occlusion[i] = 1.0f;
    return occlusion;
}

Plane vectorX(const DisparityMap& map) {
    Plane plane(map.pixels());
    for (std::size_t i = 0; i < plane.size(); ++i)
        plane[i] = map.vectorX(i) + 0.0f;  // makes a negative zero positive
    return plane;
}

NewView makeView(const char* name, PackedView&& view, DisparityMap&& map, Plane&& occlusion) {
    if (view.cast) {
        applyCast(*view.cast, 0, map.width, view.red);
        applyCast(*view.cast, 1, map.width, view.green);
        applyCast(*view.cast, 2, map.width, view.blue);
    }
    const std::size_t pixels = view.red.size();
    const Plane zero(pixels, 0.0f);
    const Plane toMatch = vectorX(map);
    const bool isLeft = map.side == Side::left;

    NewView result;
    result.name = name;
    result.planes.push_back({"R", std::move(view.red)});
    result.planes.push_back({"G", std::move(view.green)});
    result.planes.push_back({"B", std::move(view.blue)});
    result.planes.push_back({"A", view.alpha.empty() ? Plane(pixels, 1.0f) : std::move(view.alpha)});
    result.planes.push_back({"disparityL.x", isLeft ? zero : toMatch});
    result.planes.push_back({"disparityL.y", isLeft ? zero : map.vertical});
    result.planes.push_back({"disparityR.x", isLeft ? toMatch : zero});
    result.planes.push_back({"disparityR.y", isLeft ? map.vertical : zero});
    result.planes.push_back({"mask_occlusion.alpha", std::move(occlusion)});
    return result;
}

PackedViewReport reportOn(const DisparityMap& map, const Plane& occlusion) {
    PackedViewReport report;
    for (std::size_t i = 0; i < map.pixels(); ++i) {
        report.unknown += map.known(i) ? 0 : 1;
        report.occluded += occlusion[i] >= 0.5f ? 1 : 0;
    }
    return report;
}

}  // namespace

PackedPair packStereo(StereoPair pair, const RowCheckpoint& checkpoint) {
    requireSizes(pair.left, pair.width, pair.height);
    requireSizes(pair.right, pair.width, pair.height);
    addMissingMaps(pair, checkpoint);

    DisparityMap leftMap = *pair.left.disparity;
    DisparityMap rightMap = *pair.right.disparity;
    Plane leftOcclusion = occlusionOf(pair.left, rightMap, checkpoint);
    Plane rightOcclusion = occlusionOf(pair.right, leftMap, checkpoint);

    PackedPair result;
    result.left = reportOn(leftMap, leftOcclusion);
    result.right = reportOn(rightMap, rightOcclusion);
    fillFromBackground(leftMap, checkpoint);
    fillFromBackground(rightMap, checkpoint);
    result.views.push_back(makeView("left", std::move(pair.left), std::move(leftMap), std::move(leftOcclusion)));
    result.views.push_back(makeView("right", std::move(pair.right), std::move(rightMap), std::move(rightOcclusion)));
    return result;
}

}  // namespace ViewTint::Host
