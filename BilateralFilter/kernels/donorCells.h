// The lists of pixels that give, as the host writes and donorFillKernel reads them.
#pragma once

namespace Vellum::Kernels {

/// A picture is cut into square cells of this side.
inline constexpr int donorCellSide = 8;
inline constexpr int donorsPerCell = donorCellSide * donorCellSide;
/// Of a donor: x, y, guide and value.
inline constexpr int donorFloats = 8;

/// What is known of the donors of one cell together.
struct DonorCell {
    float count;
    float left, bottom, right, top;  ///< of the donors, both ends included, in pixels from the picture's corner
    float least[3], most[3];         ///< of their guide, without what isn't a number
    float sum[3];                    ///< of their values
};
inline constexpr int donorCellFloats = sizeof(DonorCell) / sizeof(float);

}  // namespace Vellum::Kernels
