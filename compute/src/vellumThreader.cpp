#include "compute/Threader.h"

#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cstdint>
#include <thread>

namespace Vellum::Parallel {

namespace {

std::atomic<bool> threadingEnabled{true};
constexpr int mostThreads = 1024;

/// Work is handed out index by index: a static split waits for the slower half whenever another program takes a core.
class TbbThreader : public Threader {
public:
    explicit TbbThreader(int threads) : arena_(threads) {
        // oneTBB starts no more workers than the machine has cores unless it is told that more may run.
        static const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, mostThreads);
    }

    int threads() const override { return arena_.max_concurrency(); }

    void run(Function function, int count, void* argument) override {
        if (count <= 1 || threads() <= 1) {
            for (int index = 0; index < count; ++index) function(index, argument);
            return;
        }
        arena_.execute([&] {
            tbb::parallel_for(
                tbb::blocked_range<int>(0, count, 1),
                [&](const tbb::blocked_range<int>& part) {
                    for (int index = part.begin(); index < part.end(); ++index) function(index, argument);
                },
                tbb::simple_partitioner());
        });
    }

private:
    tbb::task_arena arena_;
};

}  // namespace

void DivideRange(int& lo, int& hi, int index, int count) {
    const std::int64_t first = lo;
    const std::int64_t length = std::int64_t{hi} - lo;
    lo = static_cast<int>(first + length * index / count);
    hi = static_cast<int>(first + length * (index + 1) / count);
}

bool ThreadingEnabled() {
    return threadingEnabled.load(std::memory_order_relaxed);
}

void SetThreadingEnabled(bool enabled) {
    threadingEnabled = enabled;
}

ThreaderPointer MakeThreader(int threads) {
    const int wanted = threads > 0 ? threads : static_cast<int>(std::thread::hardware_concurrency());
    return new TbbThreader(std::clamp(wanted, 1, mostThreads));
}

}  // namespace Vellum::Parallel
