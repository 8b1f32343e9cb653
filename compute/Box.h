#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace Vellum::Image {

/// A rectangle of pixels in absolute plane coordinates, half-open: (x, y) lies inside when
/// x0 <= x < x1 and y0 <= y < y1. Rows count upward; corners may be negative.
struct Box {
    std::int32_t x0 = 0;
    std::int32_t y0 = 0;
    std::int32_t x1 = 0;
    std::int32_t y1 = 0;

    // Through unsigned numbers: corners at the ends of the range wrap round instead of being undefined.
    constexpr std::int32_t width() const { return difference(x1, x0); }
    constexpr std::int32_t height() const { return difference(y1, y0); }
    constexpr bool empty() const { return x1 <= x0 || y1 <= y0; }
    constexpr std::int64_t pixels() const { return empty() ? 0 : (std::int64_t{x1} - x0) * (std::int64_t{y1} - y0); }
    constexpr bool contains(const Box& other) const {
        return other.empty() || (x0 <= other.x0 && y0 <= other.y0 && other.x1 <= x1 && other.y1 <= y1);
    }

    friend constexpr bool operator==(const Box&, const Box&) = default;

private:
    static constexpr std::int32_t difference(std::int32_t a, std::int32_t b) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
    }
};

/// The common part of two boxes; empty where they do not overlap.
constexpr Box intersect(const Box& a, const Box& b) {
    return {std::max(a.x0, b.x0), std::max(a.y0, b.y0), std::min(a.x1, b.x1), std::min(a.y1, b.y1)};
}

/// "(x0, y0)-(x1, y1)", for messages.
inline std::string toString(const Box& box) {
    return "(" + std::to_string(box.x0) + ", " + std::to_string(box.y0) + ")-(" + std::to_string(box.x1) + ", " +
           std::to_string(box.y1) + ")";
}

}  // namespace Vellum::Image
