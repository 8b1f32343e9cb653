#include "benchmarks/MemoryReference.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

constexpr int repetitions = 30;

/// Memory that has been touched.
std::unique_ptr<char[]> touched(std::size_t bytes) {
    auto memory = std::make_unique<char[]>(bytes);
    std::memset(memory.get(), 1, bytes);
    return memory;
}

}  // namespace

double secondsToMove(double bytes, int threads) {
    const auto half = static_cast<std::size_t>(bytes / 2);
    const auto source = touched(half);
    const auto target = touched(half);
    const auto threader = Vellum::Parallel::MakeThreader(threads);
    const int pieces = threads == 1 ? 1 : threads * 4;
    double best = 1e9;
    for (int i = 0; i < repetitions; ++i) {
        const double seconds = secondsFor([&] {
            Vellum::Parallel::forEachIndex(*threader, pieces, [&](int index) {
                const std::size_t from = half / pieces * index;
                const std::size_t to = index == pieces - 1 ? half : half / pieces * (index + 1);
                std::memcpy(target.get() + from, source.get() + from, to - from);
            });
            benchmark::ClobberMemory();
        });
        best = std::min(best, seconds);
    }
    return best;
}

Threads::Threads(int threads) {
    Vellum::Compute::Host::setThreads(threads);
}

Threads::~Threads() {
    Vellum::Compute::Host::setThreads(0);
}

}  // namespace ViewTint::Benchmarks
