#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace ViewTint::Host {

/// Red, green and blue planes in linear light (sRGB primaries), the lowest row first, rows without gaps.
struct RgbPicture {
    RgbPicture() = default;
    /// All pixels black.
    RgbPicture(int pictureWidth, int pictureHeight) : width(pictureWidth), height(pictureHeight) {
        for (auto& plane : planes)
            plane.assign(pixels(), 0.0f);
    }

    int width = 0;
    int height = 0;
    std::array<std::vector<float>, 3> planes;

    std::size_t pixels() const { return std::size_t(width) * std::size_t(height); }
    std::size_t index(int x, int y) const { return std::size_t(y) * std::size_t(width) + std::size_t(x); }
    bool sameSize(const RgbPicture& other) const { return width == other.width && height == other.height; }
    /// Whether a pixel has neither NaN nor infinity.
    bool finite(std::size_t pixel) const {
        return std::isfinite(planes[0][pixel]) && std::isfinite(planes[1][pixel]) && std::isfinite(planes[2][pixel]);
    }
};

}  // namespace ViewTint::Host
