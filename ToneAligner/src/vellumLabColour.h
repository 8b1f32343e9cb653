#pragma once

#include <array>

#include "compute/Image.h"

namespace Vellum::Tone {

/// Linear RGB with the primaries of Rec. 709 to XYZ with the D65 white point divided out, row by row.
inline constexpr std::array<float, 9> rgbToXyzMatrix{0.4339115f,  0.37622687f, 0.1898616f,   //
                                                     0.21264936f, 0.7151691f,  0.07218152f,  //
                                                     0.01775321f, 0.10946182f, 0.8727849f};
inline constexpr std::array<float, 9> xyzToRgbMatrix{3.0802281f,  -1.5373085f,  -0.5429192f,  //
                                                     -0.9212165f, 1.8759666f,   0.04525001f,  //
                                                     0.05288144f, -0.20400739f, 1.1511259f};

/// Components 0 to 2 of `input`, linear RGB, as scaled Lab in the three components of `output`.
void toLab(const Vellum::Image::Image& input, Vellum::Image::Image& output, int kernelFlags);
/// The inverse; a fourth component of `output` stays.
void fromLab(const Vellum::Image::Image& input, Vellum::Image::Image& output, int kernelFlags);

}  // namespace Vellum::Tone
