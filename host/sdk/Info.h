#pragma once

#include "compute/Box.h"
#include "host/sdk/ChannelSet.h"

namespace Fresco::Image {

using Vellum::Image::Box;

/// Width and height in pixels of an area whose lower left corner is (0, 0).
struct Format {
    int width = 0;
    int height = 0;

    friend bool operator==(const Format&, const Format&) = default;
};

/// What an operator delivers.
struct Info {
    Box box;        ///< where pixels are
    Format format;  ///< at which the picture closes round: what is shown, where exactly that has pixels; else none
    ChannelSet channels;  ///< that exist
    Format shown;         ///< the picture as it is shown

    friend bool operator==(const Info&, const Info&) = default;
};

}  // namespace Fresco::Image
