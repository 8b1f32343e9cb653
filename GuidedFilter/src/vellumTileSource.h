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

    /// The first `channels` channels of `picture`, of which `bounds` is worked off in tiles of `tileWidth`, each wanted
    /// with `margin` pixels round it. Strips are kept where the picture is `overwritten`.
    TileSource(BufferManager& manager, const Image& picture, const Box& bounds, int channels, int tileWidth, int margin,
               bool overwritten);

    /// Fills `entries`, one for each channel, with the pixels of `extended`, its corner at their (0, 0), and keeps what
    /// later tiles need of them.
    void assemble(const Box& tile, const Box& extended, std::vector<Image>& entries);

private:
    using Managed = Utils::BufferManagement::BufferManagedImage;

    void patch(const Box& tile, const Box& extended, std::vector<Image>& entries) const;
    void keep(const Box& tile, const Box& extended, const std::vector<Image>& entries);

    Managed picture_;
    Box bounds_;
    int channels_;
    int margin_;
    bool overwritten_;
    Managed beside_;  ///< column 0 is that at the strip's left end; all rows of the bounds
    Managed below_;   ///< row 0 is that at the strip's lower end; the columns of the extended tile
    Box besideBox_;   ///< what the strips hold
    Box belowBox_;
};

}  // namespace Vellum::GuidedFilter
