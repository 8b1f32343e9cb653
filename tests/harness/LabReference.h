#pragma once

#include <array>
#include <cmath>

namespace ViewTint::Tests {

using Triple = std::array<double, 3>;

/// Scaled CIE 1976 Lab in double precision, from the formula: the knee is 6/29.
inline double labCurve(double v) {
    const double t = 6.0 / 29;
    return v > t * t * t ? std::cbrt(v) : v / (3 * t * t) + 2 * t / 3;
}

inline double inverseLabCurve(double u) {
    const double t = 6.0 / 29;
    return u > t ? u * u * u : (u - 2 * t / 3) * 3 * t * t;
}

inline Triple labOfXyz(const Triple& xyz) {
    const double x = labCurve(xyz[0]);
    const double y = labCurve(xyz[1]);
    const double z = labCurve(xyz[2]);
    return {1.16 * y - 0.16, 5 * (x - y), 2 * (y - z)};
}

inline Triple xyzOfLab(const Triple& lab) {
    const double l = (lab[0] + 0.16) / 1.16;
    return {inverseLabCurve(l + lab[1] / 5), inverseLabCurve(l), inverseLabCurve(l - lab[2] / 2)};
}

}  // namespace ViewTint::Tests
