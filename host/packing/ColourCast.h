#pragma once

#include <array>
#include <optional>
#include <vector>

namespace ViewTint::Host {

/// A known colour cast for making test material, one value for each of red, green and blue. In linear light
/// v' = gain * v^gamma + offset; of a negative v the power is taken of its size and its sign kept.
struct ColourCast {
    std::array<double, 3> gain = {1.0, 1.0, 1.0};
    std::array<double, 3> gamma = {1.0, 1.0, 1.0};
    std::array<double, 3> offset = {0.0, 0.0, 0.0};
    /// Where given, the gain goes over evenly from `gain` in the first column to this one in the last, as behind a beam
    /// splitter.
    std::optional<std::array<double, 3>> gainAtRightEdge = std::nullopt;
};

/// Puts the cast on a plane of the given component: 0 red, 1 green, 2 blue; in rows of `width` pixels. NaN stays NaN.
void applyCast(const ColourCast& cast, int component, int width, std::vector<float>& plane);

}  // namespace ViewTint::Host
