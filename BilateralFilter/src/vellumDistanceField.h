#pragma once

#include "compute/Image.h"

namespace Vellum::BilateralFilter {

/// Distances of pixels that no seed reaches by diagonal steps.
inline constexpr float unreachedDistance = 10000.0f;

/// What BilateralFilter::growDistance tells, on images that host code can read.
void growDistanceOnHost(const Vellum::Image::Image& seeds, Vellum::Image::Image& distance);

}  // namespace Vellum::BilateralFilter
