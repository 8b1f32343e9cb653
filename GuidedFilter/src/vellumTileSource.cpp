#include "vellumTileSource.h"

#include <algorithm>

#include "Common/Common.h"

namespace Vellum::GuidedFilter {

namespace {

using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::Info;

/// A strip of one pixel where none is needed.
Info stripInfo(bool needed, int width, int height, int channels) {
    return {needed ? Box{0, 0, width, height} : Box{0, 0, 1, 1}, static_cast<std::uint32_t>(channels)};
}

/// A box of one channel, to where it lies.
void copyBox(const Image& from, const Box& box, Image& to, int fromChannel, int toChannel) {
    Common::copyChannel(from, box, to, box.x0, box.y0, fromChannel, toChannel);
}

}  // namespace

TileSource::TileSource(BufferManager& manager, const Image& picture, const Tiles& tiles, int channels, bool overwritten)
    : picture_(manager, picture),
      tiles_(tiles),
      channels_(channels),
      overwritten_(overwritten),
      beside_(manager,
              stripInfo(overwritten, std::min(tiles.margin, tiles.bounds.width()), tiles.bounds.height(), channels)),
      below_(manager, stripInfo(overwritten, std::min(tiles.width + 2 * tiles.margin, tiles.bounds.width()),
                                std::min(tiles.margin, tiles.bounds.height()), channels)) {}

void TileSource::assemble(const Box& tile, std::vector<Image>& entries) {
    for (int c = 0; c < channels_; ++c)
        copyBox(picture_.image(), entries[c].box(), entries[c], c, 0);
    if (!overwritten_ || tiles_.margin == 0) return;
    patch(tile, entries);
    keep(tile, entries);
}

std::vector<Image> TileSource::channels() const {
    std::vector<Image> views;
    for (int c = 0; c < channels_; ++c)
        views.push_back(picture_.image().componentView(c));
    return views;
}

/// Puts back what tiles on the left and below have been written over.
void TileSource::patch(const Box& tile, std::vector<Image>& entries) const {
    for (int c = 0; c < channels_; ++c) {
        const Box& box = entries[c].box();
        if (tile.x0 > tiles_.bounds.x0)
            copyBox(beside_.image().subView(besideBox_), {box.x0, tile.y0, tile.x0, box.y1}, entries[c], c, 0);
        if (tile.y0 > tiles_.bounds.y0)
            copyBox(below_.image().subView(belowBox_), {box.x0, box.y0, box.x1, tile.y0}, entries[c], c, 0);
    }
}

void TileSource::keep(const Box& tile, const std::vector<Image>& entries) {
    const Box& bounds = tiles_.bounds;
    const int left = std::max(tile.x1 - tiles_.margin, bounds.x0);
    const int bottom = std::max(tile.y1 - tiles_.margin, bounds.y0);
    const Box besideNext{left, bounds.y0, tile.x1, bounds.y1};
    belowBox_ = {entries[0].box().x0, bottom, entries[0].box().x1, tile.y1};
    // The rows of the strip beside this tile have served, so those of the next column take their place.
    Image beside = beside_.image().subView(besideNext);
    Image below = below_.image().subView(belowBox_);
    for (int c = 0; c < channels_; ++c) {
        copyBox(entries[c], {left, tile.y0, tile.x1, tile.y1}, beside, 0, c);
        copyBox(entries[c], belowBox_, below, 0, c);
    }
    if (tile.y1 == bounds.y1) besideBox_ = besideNext;
}

}  // namespace Vellum::GuidedFilter
