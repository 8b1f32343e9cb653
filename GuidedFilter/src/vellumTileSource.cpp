#include "vellumTileSource.h"

#include <algorithm>

#include "Common/Common.h"

namespace Vellum::GuidedFilter {

namespace {

constexpr auto floats = Vellum::Pixel::DataEnum::float32;

/// Size of a strip that isn't needed.
constexpr int none = 1;

}  // namespace

TileSource::TileSource(BufferManager& manager, const Image& picture, const Box& bounds, int channels, int tileWidth,
                       int margin, bool overwritten)
    : picture_(manager, picture),
      bounds_(bounds),
      channels_(channels),
      margin_(margin),
      overwritten_(overwritten),
      beside_(manager,
              {{0, 0, overwritten ? std::min(margin, bounds.width()) : none, overwritten ? bounds.height() : none},
               static_cast<std::uint32_t>(channels),
               floats}),
      below_(manager, {{0, 0, overwritten ? std::min(tileWidth + 2 * margin, bounds.width()) : none,
                        overwritten ? std::min(margin, bounds.height()) : none},
                       static_cast<std::uint32_t>(channels),
                       floats}) {}

void TileSource::assemble(const Box& tile, const Box& extended, std::vector<Image>& entries) {
    for (int c = 0; c < channels_; ++c)
        Common::copyChannel(picture_.image(), extended, entries[c], 0, 0, c, 0);
    if (!overwritten_) return;
    patch(tile, extended, entries);
    keep(tile, extended, entries);
}

/// Puts back what tiles on the left and below have been written over.
void TileSource::patch(const Box& tile, const Box& extended, std::vector<Image>& entries) const {
    for (int c = 0; c < channels_; ++c) {
        if (tile.x0 > bounds_.x0) {
            const Box left{extended.x0, tile.y0, tile.x0, extended.y1};
            const Box inStrip{left.x0 - besideBox_.x0, left.y0 - besideBox_.y0, left.x1 - besideBox_.x0,
                              left.y1 - besideBox_.y0};
            Common::copyChannel(beside_.image(), inStrip, entries[c], 0, left.y0 - extended.y0, c, 0);
        }
        if (tile.y0 > bounds_.y0) {
            const Box inStrip{0, extended.y0 - belowBox_.y0, extended.width(), tile.y0 - belowBox_.y0};
            Common::copyChannel(below_.image(), inStrip, entries[c], 0, 0, c, 0);
        }
    }
}

void TileSource::keep(const Box& tile, const Box& extended, const std::vector<Image>& entries) {
    // The rows of the strip beside this tile have served, so those of the next column take their place.
    const int left = std::max(tile.x1 - margin_, bounds_.x0);
    const int bottom = std::max(tile.y1 - margin_, bounds_.y0);
    for (int c = 0; c < channels_; ++c) {
        const Box beside{left - extended.x0, tile.y0 - extended.y0, tile.x1 - extended.x0, tile.y1 - extended.y0};
        Common::copyChannel(entries[c], beside, beside_.image(), 0, tile.y0 - bounds_.y0, 0, c);
        const Box below{0, bottom - extended.y0, extended.width(), tile.y1 - extended.y0};
        Common::copyChannel(entries[c], below, below_.image(), 0, 0, 0, c);
    }
    if (tile.y1 == bounds_.y1) besideBox_ = {left, bounds_.y0, tile.x1, bounds_.y1};
    belowBox_ = {extended.x0, bottom, extended.x1, tile.y1};
}

}  // namespace Vellum::GuidedFilter
