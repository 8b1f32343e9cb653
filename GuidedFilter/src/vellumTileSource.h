#pragma once

#include <vector>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::GuidedFilter {

/// Hands out the tiles of a picture with the pixels round them, as the picture was before the first result was written
/// into it: what later tiles still need of it is kept in two strips, beside and below them.
///
/// Tiles come column by column from the left, each column from below.
class TileSource {
public:
    using BufferManager = Vellum::Utils::BufferManagement::BufferManager;
    using Box = Vellum::Image::Box;
    using Image = Vellum::Image::Image;

    /// How the tiles cut the picture up.
    struct Tiles {
        Box bounds;  ///< what of the picture is worked off
        int width;   ///< of a tile
        int margin;  ///< wanted round a tile
    };

    /// The first `channels` channels of `picture`. Strips are kept where results are written into it: where it is
    /// `overwritten`.
    TileSource(BufferManager& manager, const Image& picture, const Tiles& tiles, int channels, bool overwritten);

    /// Fills `entries`, one for each channel, with the pixels of their box, which is that of the tile with its margin.
    /// To be called once for each tile.
    void assemble(const Box& tile, std::vector<Image>& entries);

    /// The picture may be read itself: it stays as it is and ends where its tiles do.
    bool staysReadable() const { return !overwritten_ && picture_.image().box() == tiles_.bounds; }
    /// Its channels, where it may.
    std::vector<Image> channels() const;

private:
    using Managed = Utils::BufferManagement::BufferManagedImage;

    void patch(const Box& tile, std::vector<Image>& entries) const;
    void keep(const Box& tile, const std::vector<Image>& entries);

    Managed picture_;
    Tiles tiles_;
    int channels_;
    bool overwritten_;
    Managed beside_;
    Managed below_;
    Box besideBox_;  ///< what the strips hold
    Box belowBox_;
};

}  // namespace Vellum::GuidedFilter
