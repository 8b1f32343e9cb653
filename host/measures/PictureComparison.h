#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <span>

#include "host/measures/RgbPicture.h"

namespace ViewTint::Host {

/// How far two pictures differ. A measure without any pixel to stand on is NaN.
struct Comparison {
    /// Peak signal to noise ratio in dB over all compared pixels and channels, of sRGB codes clamped to 0..1.
    /// Infinite for equal codes.
    double psnr = std::numeric_limits<double>::quiet_NaN();
    /// Mean structural similarity of the luma of the sRGB codes, 1 for equal pictures.
    double ssim = std::numeric_limits<double>::quiet_NaN();
    double meanColourDifference = std::numeric_limits<double>::quiet_NaN();          ///< CIEDE2000
    double percentile99ColourDifference = std::numeric_limits<double>::quiet_NaN();  ///< CIEDE2000
    std::int64_t pixels = 0;                                                         ///< compared
    std::int64_t excluded = 0;  ///< selected, but left out because a value in either picture is NaN or infinite
};

/// Compares two pictures of one size, in rows on all threads; the numbers don't depend on how many.
///
/// SSIM: Z. Wang, A. C. Bovik, H. R. Sheikh, E. P. Simoncelli, "Image quality assessment: from error visibility to
/// structural similarity", IEEE Transactions on Image Processing 13 (2004): Gaussian window of 11 x 11 pixels with
/// sigma 1.5, K1 = 0.01, K2 = 0.03, averaged over all windows that lie inside the picture. Pixels that aren't
/// compared have weight 0 in every window, and windows round them are left out.
/// The 99th percentile is the smallest difference that at least 99% of the pixels don't exceed.
///
/// `mask` selects pixels by values other than 0, one for each pixel; an empty one selects all. `checkpoint` is called
/// once in every row, on any thread, and may throw to end the work.
/// Throws std::invalid_argument when the pictures or the mask differ in size.
Comparison comparePictures(const RgbPicture& first, const RgbPicture& second, std::span<const std::uint8_t> mask = {},
                           const std::function<void()>& checkpoint = {});

/// |first - second| of the sRGB codes times `factor`, as linear light that shows as these codes. Pixels with NaN or
/// infinity are black. Throws std::invalid_argument when the pictures differ in size.
RgbPicture differencePicture(const RgbPicture& first, const RgbPicture& second, double factor);

}  // namespace ViewTint::Host
