#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "benchmarks/MemoryReference.h"

namespace ViewTint::Benchmarks {

/// Measures `work` as measure() does, on as many threads as the benchmark's first argument says, and OpenCV's `peer` on
/// as many in the same run; reports `times_faster_than_opencv`, best run against best run.
template <class Work, class Peer>
void compare(benchmark::State& state, double planes, Work&& work, Peer&& peer) {
    constexpr int runs = 30;
    const int threads = static_cast<int>(state.range(0));
    measure(state, threads, planes, work);
    cv::setNumThreads(threads);
    peer();
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        peer();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.counters["times_faster_than_opencv"] = best / (state.counters["ns_per_pixel"] * pixels * 1e-9);
}

}  // namespace ViewTint::Benchmarks
