// Colour arithmetic that several kernels share: each formula stands once.
#pragma once

#include "Common/kernels/largestValue.h"
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Where the cube root of CIE 1976 Lab gives way to a straight line.
inline constexpr float labKnee = 6.f / 29;

template <class V>
struct Triple {
    V a, b, c;
};

template <class V>
VT_FN Triple<V> multiplyMatrix(const float (&m)[9], V x, V y, V z) {
    return {((x * m[0]) + (y * m[1])) + (z * m[2]),  //
            ((x * m[3]) + (y * m[4])) + (z * m[5]),  //
            ((x * m[6]) + (y * m[7])) + (z * m[8])};
}

/// Whether a value can take part in sums of squares: neither NaN nor infinite nor beyond largestValue.
template <class V>
VT_FN auto isValue(V value) {
    return abs(value) <= V(largestValue);
}

/// The lightness curve of CIE 1976 Lab: the cube root, and its tangent below knee^3. NaN and infinity stay themselves,
/// which the tangent sees to.
template <class V>
VT_FN V labCurve(V v, float knee) {
    const auto curved = (v > knee * knee * knee) & (v < V(infinity));
    return select(curved, cbrtOfNormal(v), v / (3 * (knee * knee)) + (2 * knee) / 3);
}

template <class V>
VT_FN V inverseLabCurve(V u, float knee) {
    return select(u > knee, u * u * u, (u + (-2 * knee) / 3) * 3.f * knee * knee);
}

/// Scaled Lab of the curves f(X), f(Y), f(Z).
template <class V>
VT_FN Triple<V> labOfCurves(const Triple<V>& f) {
    return {f.b * 1.16f - 0.16f, (f.a - f.b) * 5.f, (f.b - f.c) + (f.b - f.c)};
}

/// Scaled Lab of XYZ with the white point divided out. Black gives exactly 0 in all three.
template <class V>
VT_FN Triple<V> labOfXyz(V x, V y, V z, float knee) {
    return labOfCurves(Triple<V>{labCurve(x, knee), labCurve(y, knee), labCurve(z, knee)});
}

/// The curves of X, Y and Z of a linear RGB pixel, on which Lab rests. R = G = B makes them equal, to the last bit: the
/// matrix alone would leave rounding in a and b, and a pixel that isn't exactly neutral takes part in casts.
template <class V>
VT_FN Triple<V> curvesOfRgb(const float (&rgbToXyz)[9], V r, V g, V b, float knee) {
    const auto xyz = multiplyMatrix(rgbToXyz, r, g, b);
    const auto grey = (r == g) & (g == b);
    const V fy = labCurve(xyz.b, knee);
    return {select(grey, fy, labCurve(xyz.a, knee)), fy, select(grey, fy, labCurve(xyz.c, knee))};
}

/// Scaled Lab of linear RGB: multiplyMatrix and labOfXyz, but exactly neutral for R = G = B.
template <class V>
VT_FN Triple<V> labOfRgb(const float (&rgbToXyz)[9], V r, V g, V b, float knee) {
    return labOfCurves(curvesOfRgb(rgbToXyz, r, g, b, knee));
}

template <class V>
VT_FN Triple<V> xyzOfLab(V lightness, V a, V b, float knee) {
    const V l = (lightness + 0.16f) / 1.16f;
    return {inverseLabCurve(l + a / 5.f, knee), inverseLabCurve(l, knee), inverseLabCurve(l + b / -2.f, knee)};
}

/// The sRGB transfer curve (IEC 61966-2-1), code to linear light. NaN and infinity stay themselves, which the straight
/// line sees to.
template <class V>
VT_FN V linearOfSrgb(V v) {
    const auto curved = (v > V(0.04045f)) & (v < V(infinity));
    const V t = select(curved, v + V(0.055f), v) / select(curved, V(1.055f), V(12.92f));
    return select(curved, pow12Over5OfNormal(t), t);
}

/// Linear light to code, the same way.
template <class V>
VT_FN V srgbOfLinear(V v) {
    const auto curved = (v > V(0.0031308f)) & (v < V(infinity));
    return select(curved, V(1.055f) * pow5Over12OfNormal(v) - V(0.055f), v * V(12.92f));
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
