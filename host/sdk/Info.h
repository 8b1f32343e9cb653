#pragma once

#include "compute/Box.h"
#include "host/sdk/ChannelSet.h"

namespace Fresco::Image {

using Vellum::Image::Box;

/// Width and height of the picture as it is shown, in pixels; its lower left corner is (0, 0).
struct Format {
    int width = 0;
    int height = 0;

    friend bool operator==(const Format&, const Format&) = default;
};

/// What an operator delivers: where pixels are, the format, and the channels that exist.
struct Info {
    Box box;
    Format format;
    ChannelSet channels;

    friend bool operator==(const Info&, const Info&) = default;
};

}  // namespace Fresco::Image
