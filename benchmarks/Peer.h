#pragma once

#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "benchmarks/MemoryReference.h"

namespace ViewTint::Benchmarks {

/// As measure(), with `peer`, the same operation by OpenCV on as many threads, run in turns with `work`. Reports also
///   times_faster_than_opencv    the peer's best time against the best of `work`
template <class Work, class Peer>
void measureBesideOpenCV(benchmark::State& state, int threads, double planes, Work&& work, Peer&& peer) {
    cv::setNumThreads(threads);
    peer();  // the memory of its result
    double best = 1e9;
    measure(state, threads, planes, work, [&] { best = std::min(best, secondsFor(peer)); });
    state.counters["times_faster_than_opencv"] = best / (state.counters["ns_per_pixel"] * pixels * 1e-9);
}

}  // namespace ViewTint::Benchmarks
