#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/measures/RgbPicture.h"

namespace ViewTint::Host {

/// A picture of a contact sheet with the words under it.
struct SheetTile {
    std::string caption;  ///< ASCII; wrapped to the tile's width
    RgbPicture picture;
};

/// 8-bit sRGB, interleaved, the top row first.
struct Raster {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;
};

constexpr int sheetMaximumWidth = 2400;

/// Lays the tiles out in rows from the top and encodes them as sRGB. All pictures are shrunk by one factor where
/// the sheet would be wider than `maximumWidth` pixels; small ones keep their size. NaN and infinity show as black.
Raster drawContactSheet(const std::vector<std::vector<SheetTile>>& rows, int maximumWidth = sheetMaximumWidth);

}  // namespace ViewTint::Host
