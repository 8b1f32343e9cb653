#include "host/packing/DisparityMap.h"

#include <stdexcept>

namespace ViewTint::Host {

namespace {

constexpr int nowhere = -1;

/// The pixel that a known pixel's vector leads to, or false where that lies outside the picture.
bool findMatch(const DisparityMap& map, int x, int y, std::size_t& match) {
    const std::size_t i = map.index(x, y);
    const double atX = std::round(double(x) + map.vectorX(i));
    const double atY = std::round(double(y) + map.vertical[i]);
    if (!(atX >= 0.0 && atX < map.width && atY >= 0.0 && atY < map.height)) return false;
    match = map.index(int(atX), int(atY));
    return true;
}

void fillRow(DisparityMap& map, int y) {
    // nearestAfter[x] is the first known pixel from x on.
    std::vector<int> nearestAfter(std::size_t(map.width), nowhere);
    int known = nowhere;
    for (int x = map.width - 1; x >= 0; --x) {
        if (map.known(map.index(x, y))) known = x;
        nearestAfter[std::size_t(x)] = known;
    }
    int before = nowhere;
    for (int x = 0; x < map.width; ++x) {
        const int after = nearestAfter[std::size_t(x)];
        if (after == x) {
            before = x;
            continue;
        }
        const std::size_t i = map.index(x, y);
        if (before == nowhere && after == nowhere) {
            map.disparity[i] = 0.0f;
            map.vertical[i] = 0.0f;
            continue;
        }
        const bool takeAfter = before == nowhere || (after != nowhere && map.disparity[map.index(after, y)] <
                                                                             map.disparity[map.index(before, y)]);
        const std::size_t source = map.index(takeAfter ? after : before, y);
        map.disparity[i] = map.disparity[source];
        map.vertical[i] = map.vertical[source];
    }
}

}  // namespace

DisparityMap::DisparityMap(Side mapSide, int mapWidth, int mapHeight)
    : side(mapSide),
      width(mapWidth),
      height(mapHeight),
      disparity(std::size_t(mapWidth) * std::size_t(mapHeight), unknown),
      vertical(disparity.size(), 0.0f) {}

DisparityMap forwardWarp(const DisparityMap& map, const RowCheckpoint& checkpoint) {
    DisparityMap result(map.side == Side::left ? Side::right : Side::left, map.width, map.height);
    for (int y = 0; y < map.height; ++y) {
        if (checkpoint) checkpoint();
        for (int x = 0; x < map.width; ++x) {
            const std::size_t i = map.index(x, y);
            std::size_t match = 0;
            if (!map.known(i) || !findMatch(map, x, y, match)) continue;
            if (!result.known(match) || result.disparity[match] < map.disparity[i]) {
                result.disparity[match] = map.disparity[i];
                result.vertical[match] = 0.0f - map.vertical[i];  // no negative zero for rectified views
            }
        }
    }
    return result;
}

std::vector<float> occlusionFromVisibility(const DisparityMap& own, const DisparityMap& other, float tolerance,
                                           const RowCheckpoint& checkpoint) {
    if (own.width != other.width || own.height != other.height || own.side == other.side)
        throw std::invalid_argument("visibility needs the maps of both views in one size");
    std::vector<float> occlusion(own.pixels(), 1.0f);
    for (int y = 0; y < own.height; ++y) {
        if (checkpoint) checkpoint();
        for (int x = 0; x < own.width; ++x) {
            const std::size_t i = own.index(x, y);
            std::size_t match = 0;
            if (!own.known(i) || !findMatch(own, x, y, match) || !other.known(match)) continue;
            const float missX = own.vectorX(i) + other.vectorX(match);
            const float missY = own.vertical[i] + other.vertical[match];
            if (std::hypot(missX, missY) <= tolerance) occlusion[i] = 0.0f;
        }
    }
    return occlusion;
}

void fillFromBackground(DisparityMap& map, const RowCheckpoint& checkpoint) {
    for (int y = 0; y < map.height; ++y) {
        if (checkpoint) checkpoint();
        fillRow(map, y);
    }
}

}  // namespace ViewTint::Host
