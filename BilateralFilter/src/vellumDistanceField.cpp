#include "vellumDistanceField.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "compute/HostDevice.h"

namespace Vellum::BilateralFilter {

namespace {

using Vellum::Image::Box;
using Vellum::Image::Image;

/// Marks a pixel that isn't reached yet. No distance is negative.
constexpr float unreached = -1;

/// A picture of one component by row and column.
class Grid {
public:
    explicit Grid(const Image& image)
        : width_(image.box().width()),
          height_(image.box().height()),
          pixels_(image.data()),
          stepX_(image.tile().layout.x.elements),
          stepY_(image.tile().layout.y.elements) {}

    int width() const { return width_; }
    int height() const { return height_; }
    float& at(int x, int y) const { return pixels_[x * stepX_ + y * stepY_]; }
    /// True where one of `count` pixels from (x, y) on is 0.
    bool holdsZero(int x, int y, int count) const {
        const float* from = &at(x, y);
        if (stepX_ != 1) return true;
        int zeros = 0;
        for (int i = 0; i < count; ++i)
            zeros += from[i] == 0;
        return zeros > 0;
    }
    bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < width_ && y < height_; }

private:
    int width_, height_;
    float* pixels_;
    std::ptrdiff_t stepX_, stepY_;
};

struct Place {
    int x, y;
};
using Front = std::vector<Place>;

constexpr Place diagonals[] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};

bool isBesideSeed(const Grid& seeds, int x, int y) {
    return std::ranges::any_of(diagonals, [&](const Place& step) {
        return seeds.contains(x + step.x, y + step.y) && seeds.at(x + step.x, y + step.y) > 0;
    });
}

/// Rows y0 .. y1 - 1 of the first pass: 0 at seeds, 1 beside them, which is the front, the mark elsewhere. Returns the
/// number of pixels that are neither.
std::int64_t startRows(const Grid& seeds, const Grid& distance, int y0, int y1, Front& front) {
    std::int64_t open = 0;
    const auto startPixel = [&](int x, int y) {
        if (seeds.at(x, y) != 0) return;
        const bool beside = isBesideSeed(seeds, x, y);
        distance.at(x, y) = beside ? 1 : unreached;
        if (beside)
            front.push_back({x, y});
        else
            ++open;
    };
    for (int y = y0; y < y1; ++y) {
        for (int x = 0; x < seeds.width(); ++x)
            distance.at(x, y) = 0;
        // Most of a picture is seeds: whole groups of them are passed by.
        constexpr int group = 32;
        int x = 0;
        for (; x + group <= seeds.width(); x += group)
            if (seeds.holdsZero(x, y, group))
                for (int i = 0; i < group; ++i)
                    startPixel(x + i, y);
        for (; x < seeds.width(); ++x)
            startPixel(x, y);
    }
    return open;
}

struct Start {
    Front front;
    std::int64_t open = 0;
};

Start start(const Grid& seeds, const Grid& distance) {
    constexpr int rowsTogether = 32;
    const int bands = (seeds.height() + rowsTogether - 1) / rowsTogether;
    std::vector<Start> parts(static_cast<std::size_t>(bands));
    const auto threader = Compute::Host::hostDevice().threader();
    Parallel::forEachIndex(*threader, bands, [&](int band) {
        const int y0 = band * rowsTogether;
        parts[band].open =
            startRows(seeds, distance, y0, std::min(y0 + rowsTogether, seeds.height()), parts[band].front);
    });
    Start all;
    for (const Start& part : parts) {
        all.front.insert(all.front.end(), part.front.begin(), part.front.end());
        all.open += part.open;
    }
    return all;
}

/// One pixel round what is new, inside the picture.
Box regionAround(const Front& front, const Grid& grid) {
    Box box{grid.width(), grid.height(), 0, 0};
    for (const auto& [x, y] : front)
        box = {std::min(box.x0, x - 1), std::min(box.y0, y - 1), std::max(box.x1, x + 2), std::max(box.y1, y + 2)};
    return intersect(box, {0, 0, grid.width(), grid.height()});
}

Front nextFront(const Front& front, const Grid& distance, float reached) {
    Front next;
    for (const auto& [x, y] : front)
        for (const Place& step : diagonals) {
            if (!distance.contains(x + step.x, y + step.y)) continue;
            float& there = distance.at(x + step.x, y + step.y);
            if (there != unreached) continue;
            there = reached;
            next.push_back({x + step.x, y + step.y});
        }
    return next;
}

/// Gives the pixels in `box` that nothing has reached a distance.
void setUnreached(const Grid& distance, const Box& box, float value) {
    for (int y = box.y0; y < box.y1; ++y)
        for (int x = box.x0; x < box.x1; ++x)
            if (distance.at(x, y) == unreached) distance.at(x, y) = value;
}

bool contains(const std::vector<Box>& boxes, const Box& box) {
    return std::ranges::any_of(boxes, [&](const Box& other) { return other.contains(box); });
}

}  // namespace

void growDistanceOnHost(const Image& seedImage, Image& distanceImage) {
    const Grid seeds(seedImage), distance(distanceImage);
    auto [front, open] = start(seeds, distance);
    // Passes of the kernel alternate between two images, of which the second pass and every other one write the one
    // that began as 0, each in the region round what was new before.
    int passes = 1;
    std::vector<Box> writtenToFresh;
    while (!front.empty()) {
        if (open > 0 && passes % 2 == 1) {
            const Box region = regionAround(front, distance);
            std::erase_if(writtenToFresh, [&](const Box& earlier) { return region.contains(earlier); });
            if (!contains(writtenToFresh, region)) writtenToFresh.push_back(region);
        }
        front = nextFront(front, distance, static_cast<float>(passes + 1));
        open -= static_cast<std::int64_t>(front.size());
        ++passes;
    }
    if (open == 0) return;
    const Box all{0, 0, distance.width(), distance.height()};
    if (passes % 2 == 0) {
        for (const Box& region : writtenToFresh)
            setUnreached(distance, region, unreachedDistance);
        setUnreached(distance, all, 0);
    } else {
        setUnreached(distance, all, unreachedDistance);
    }
}

}  // namespace Vellum::BilateralFilter
