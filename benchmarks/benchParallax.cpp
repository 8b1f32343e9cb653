// The estimate of disparity for pairs that bring none, at 1080p.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "MemoryReference.h"
#include "host/parallax/ParallaxEstimate.h"

namespace ViewTint::Benchmarks {
namespace {

using Host::RgbPicture;

/// Smooth noise that repeats nowhere near.
float noise(double u, int y) {
    const auto value = [](std::int64_t x, std::int64_t row) {
        std::uint64_t bits = static_cast<std::uint64_t>(x * 0x9e3779b97f4a7c15 + row * 0x632be59bd9b4e019);
        bits = (bits ^ bits >> 31) * 0xbf58476d1ce4e5b9;
        return static_cast<float>(bits >> 40) / static_cast<float>(1 << 24);
    };
    const double whole = std::floor(u);
    const auto x = static_cast<std::int64_t>(whole);
    const auto part = static_cast<float>(u - whole);
    return value(x, y) * (1 - part) + value(x + 1, y) * part;
}

/// The right view shows everything further left, by as much as `range` tells.
RgbPicture view(double range, bool right) {
    RgbPicture picture(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double disparity = range * (0.55 + 0.45 * std::sin(x * 0.004) * std::cos(y * 0.006));
            const double u = right ? x + disparity : x;
            const float value = 0.2f + 0.4f * noise(u / 11, y / 11) + 0.2f * noise(u / 3, y / 3);
            for (auto& plane : picture.planes)
                plane[picture.index(x, y)] = value;
        }
    return picture;
}

/// The argument: the largest disparity.
void estimate(benchmark::State& state) {
    const double range = static_cast<double>(state.range(0));
    const RgbPicture left = view(range, false), right = view(range, true);
    double matched = 0, best = 1e9;
    for (auto _ : state)
        best = std::min(best, secondsFor([&] { matched = Host::estimateParallax(left, right).matched; }));
    state.counters["matched"] = matched;
    state.counters["planes_copied_meanwhile"] = best / secondsToMove(2.0 * planeBytes, 2);
}

}  // namespace

BENCHMARK(estimate)->Arg(40)->Arg(120)->Arg(220)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
