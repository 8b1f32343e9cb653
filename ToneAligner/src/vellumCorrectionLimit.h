#pragma once

#include <functional>

#include "compute/BufferManagement/BufferManager.h"

namespace Vellum::Tone {

/// A Gaussian bell whose sum is 1, over the box (0, 0, r, r) with r = 3 sigma cut to a whole number, at least 1.
Vellum::Image::Image makeGaussianWindow(float sigma, Vellum::Image::DeviceBase& device);
/// The window of all renders, on the host device: of sigma 100, made at the first call. Not to be written to.
const Vellum::Image::Image& gaussianWindow();

/// Keeps a correction near its local mean. The difference in lightness (the L of scaled Lab) between `source` and
/// `corrected`, linear RGB of 3 or 4 components over one box, is averaged over the window; what lies further than
/// `limit` from that mean is bent to it by a knee of 0.15 limit on either side. Writes `corrected`. `source` comes back
/// from Lab with its rounding; a fourth component of both stays.
///
/// The mean closes round the picture's borders where the transform doesn't pad its size, and fades towards 0 where it
/// does; pictures smaller than about half the window are enlarged to it by their borders first. `observer` is shown the
/// mean as "average".
void limitCorrection(Utils::BufferManagement::BufferManager& bufferManager, Vellum::Image::Image& source,
                     Vellum::Image::Image& corrected, const Vellum::Image::Image& gaussianWindow, float limit,
                     int kernelFlags,
                     const std::function<void(const char* name, const Vellum::Image::Image& picture)>& observer = {});

}  // namespace Vellum::Tone
