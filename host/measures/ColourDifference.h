#pragma once

namespace ViewTint::Host {

/// A colour in CIELAB under D65: L* 0 to 100 for surfaces, more for lights.
struct Lab {
    double L = 0.0;
    double a = 0.0;
    double b = 0.0;
};

/// Linear light to the sRGB code value 0 to 1 (IEC 61966-2-1, piecewise curve). Values outside 0 to 1 are clamped
/// first.
double encodeSrgb(double linear);
/// The inverse of encodeSrgb on 0 to 1.
double decodeSrgb(double code);

/// Linear light with sRGB primaries to CIELAB. Nothing is clamped: values below 0 follow the linear part of the
/// lightness curve, values above 1 its cube root.
Lab labFromLinear(double red, double green, double blue);

/// The CIEDE2000 colour difference with all weights 1. Follows G. Sharma, W. Wu, E. N. Dalal, "The CIEDE2000
/// color-difference formula: implementation notes, supplementary test data, and mathematical observations", Color
/// Research and Application 30 (2005), with its rules for hues across 360 degrees and for grey.
double ciede2000(const Lab& first, const Lab& second);

}  // namespace ViewTint::Host
