#pragma once

#include <filesystem>
#include <optional>

#include "host/files/Picture.h"
#include "host/packing/StereoPacking.h"

namespace ViewTint::Host {

/// Which way the y part of given vectors counts.
enum class VectorY { down, up };

/// The files of one view.
struct ViewFiles {
    std::filesystem::path picture;
    std::optional<std::filesystem::path> disparity;
    std::optional<std::filesystem::path> occlusion;
    std::optional<ColourCast> cast;
};

/// Separate files that become one multi-view OpenEXR file.
///
/// A disparity map with one channel holds positive disparities: pixels = value / disparityScale, and 0, negative or
/// not finite means unknown. An OpenEXR map with channels `x` and `y` (also within layers) holds the vectors from a
/// pixel to its match, x to the right, y as `vectorY` says, also divided by the scale; not finite means unknown.
/// Of an occlusion map the first channel counts, 0 visible to 1 hidden (integer codes 0 to their largest).
struct PackRequest {
    ViewFiles left;
    ViewFiles right;
    std::filesystem::path output;
    double disparityScale = 1.0;
    VectorY vectorY = VectorY::up;
    /// Without one, pictures stored as integers are taken as sRGB, those stored as floats as linear.
    std::optional<Colourspace> colourspace;
    PixelStorage storage = PixelStorage::single;
};

struct PackReport {
    int width = 0;
    int height = 0;
    PackedViewReport left;
    PackedViewReport right;
};

/// Reads, packs and writes. Throws FileError for files that can't be read or written or don't fit together.
PackReport packFiles(const PackRequest& request, const RowCheckpoint& checkpoint = {});

}  // namespace ViewTint::Host
