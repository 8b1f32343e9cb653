#pragma once

#include "compute/Image.h"

namespace Vellum::Convolution {

/// Sums cell by cell, the image's border repeated outward. `input` and `output` have the same components; component c
/// meets component min(c, components - 1) of the kernel. A kernel without cells gives 0.
void convolveDirectly(const Vellum::Image::Image& input, const Vellum::Image::Image& kernel,
                      Vellum::Image::Image& output);

}  // namespace Vellum::Convolution
