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

#if VIEWTINT_THREAD_SANITIZER
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);

/// Debian's oneTBB isn't compiled for ThreadSanitizer, which therefore can't see that the caller's writes come before
/// the tasks and the tasks' writes before the caller goes on. This tells it.
class HandOver {
public:
    HandOver() { __tsan_release(&fork_); }
    ~HandOver() { __tsan_acquire(&join_); }
    void taskBegins() { __tsan_acquire(&fork_); }
    void taskEnds() { __tsan_release(&join_); }

private:
    char fork_ = 0;
    char join_ = 0;
};
#else
struct HandOver {
    void taskBegins() {}
    void taskEnds() {}
};
#endif

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
            for (int index = 0; index < count; ++index)
                function(index, argument);
            return;
        }
        [[maybe_unused]] HandOver handOver;
        arena_.execute([&] {
            tbb::parallel_for(
                tbb::blocked_range<int>(0, count, 1),
                [&](const tbb::blocked_range<int>& part) {
                    handOver.taskBegins();
                    for (int index = part.begin(); index < part.end(); ++index)
                        function(index, argument);
                    handOver.taskEnds();
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
