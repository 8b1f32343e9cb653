#pragma once

#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <vector>

namespace ViewTint::Host {

enum class Side { left, right };

/// How far each pixel of one view has moved in the other one. Rows count upward, the lowest first.
struct DisparityMap {
    static constexpr float unknown = std::numeric_limits<float>::quiet_NaN();

    /// All disparities unknown.
    DisparityMap(Side mapSide, int mapWidth, int mapHeight);

    Side side;
    int width;
    int height;
    /// In pixels, larger for nearer things: left pixel x and right pixel x - disparity show the same point. NaN where
    /// unknown.
    std::vector<float> disparity;
    /// The y part of the vector from a pixel to its match, in pixels upward; 0 for rectified views.
    std::vector<float> vertical;

    std::size_t pixels() const { return disparity.size(); }
    std::size_t index(int x, int y) const { return std::size_t(y) * std::size_t(width) + std::size_t(x); }
    bool known(std::size_t pixel) const { return std::isfinite(disparity[pixel]) && std::isfinite(vertical[pixel]); }
    /// The x part of the vector from a pixel to its match.
    float vectorX(std::size_t pixel) const { return side == Side::left ? -disparity[pixel] : disparity[pixel]; }
};

/// Called once in every row; may throw to end the work.
using RowCheckpoint = std::function<void()>;

/// The other view's map as this one tells it: each known pixel writes its disparity at its match, rounded to the
/// nearest pixel. Where several meet, the nearest thing wins (the larger disparity). Pixels that nothing meets are
/// unknown.
DisparityMap forwardWarp(const DisparityMap& map, const RowCheckpoint& checkpoint = {});

/// 1 for each pixel of `own` that can't be seen in the other view, else 0: the disparity is unknown, the match lies
/// outside the picture, or the other map sends it back to a place more than `tolerance` pixels away. Maps before
/// filling are wanted; an unknown disparity at the match counts as hidden.
/// Throws std::invalid_argument when the maps differ in size or are of the same side.
std::vector<float> occlusionFromVisibility(const DisparityMap& own, const DisparityMap& other, float tolerance = 1.0f,
                                           const RowCheckpoint& checkpoint = {});

/// Fills unknown pixels along their row from the background: of the nearest known pixels on both sides the one with
/// the smaller disparity. With one known side that one counts; a row without any becomes 0.
void fillFromBackground(DisparityMap& map, const RowCheckpoint& checkpoint = {});

}  // namespace ViewTint::Host
