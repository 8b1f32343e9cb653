#pragma once

#include <half.h>

#include <algorithm>
#include <cmath>

namespace ViewTint::Host {

/// Half precision ends at 65504: larger finite values would turn into infinity, which spreads in later steps.
inline half toHalf(float value) {
    constexpr float largest = 65504.0f;
    return half(std::isfinite(value) ? std::clamp(value, -largest, largest) : value);
}

}  // namespace ViewTint::Host
