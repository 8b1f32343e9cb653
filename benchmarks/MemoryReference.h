#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace ViewTint::Benchmarks {

inline constexpr int width = 1920;
inline constexpr int height = 1080;
inline constexpr double pixels = double{width} * height;
inline constexpr std::size_t planeBytes = std::size_t{width} * height * sizeof(float);

/// Seconds to move `bytes` (read and written bytes together) with memcpy on this many threads: the best of many runs
/// over the same number of planes, measured at the call, so that a ratio compares like with like.
double secondsToMove(double bytes, int threads);

/// Sets the host device's threads for a scope.
class Threads {
public:
    explicit Threads(int threads);
    ~Threads();
};

/// Wall-clock time of one call.
template <class Work>
double secondsFor(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Runs `work` as a benchmark on `threads` threads and reports
///   ns_per_pixel    time of one 1080p picture's pixel
///   times_memcpy    time against moving `planes` planes with memcpy on the same threads
/// `planes` counts each one-component plane once for reading and once for writing. Times are wall-clock, the best
/// run's. `between` is called after each run, outside the time.
template <class Work, class Between>
void measure(benchmark::State& state, int threads, double planes, Work&& work, Between&& between) {
    const Threads scope(threads);
    work();  // memory from the pool, kernels looked up
    double best = 1e9;
    for (auto _ : state) {
        const double seconds = secondsFor(work);
        state.SetIterationTime(seconds);
        best = std::min(best, seconds);
        between();
    }
    state.counters["ns_per_pixel"] = best / pixels * 1e9;
    state.counters["times_memcpy"] = best / secondsToMove(planes * planeBytes, threads);
}

template <class Work>
void measure(benchmark::State& state, int threads, double planes, Work&& work) {
    measure(state, threads, planes, work, [] {});
}

}  // namespace ViewTint::Benchmarks
