#include "compute/Threader.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Vellum::Parallel {

namespace {

std::atomic<bool> threadingEnabled{true};
constexpr int mostThreads = 1024;
/// Threads that read and write while pictures are rendered.
constexpr int others = 2;

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
    explicit TbbThreader(int threads) : arena_(threads) {}

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

// ---- which threads can be had -------------------------------------------------------------------------------------

constexpr std::size_t usualStack = std::size_t{8} << 20;

std::size_t stackBytes() {
    pthread_attr_t attributes;
    std::size_t bytes = usualStack;
    if (pthread_attr_init(&attributes) != 0) return bytes;
    pthread_attr_getstacksize(&attributes, &bytes);
    pthread_attr_destroy(&attributes);
    return std::max(bytes, usualStack);
}

/// How many threads the stacks of which leave three quarters of the addresses that a limit allows to pictures.
int affordable(int wanted) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return wanted;
    // Each thread's own heap would reserve 64 MiB.
    ::mallopt(M_ARENA_MAX, 1);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const std::size_t used = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t free = limit.rlim_cur > used ? limit.rlim_cur - used : 0;
    return static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(wanted), free / 4 / stackBytes()));
}

/// oneTBB starts its threads when they are first needed. This needs them now, before memory is taken for pictures.
[[maybe_unused]] void startWorkers(int threads) {
    constexpr std::chrono::milliseconds longest{100};
    const auto end = std::chrono::steady_clock::now() + longest;
    std::mutex mutex;
    std::condition_variable all;
    int here = 0;
    tbb::task_arena arena(threads);
    arena.execute([&] {
        tbb::parallel_for(
            0, threads, 1,
            [&](int) {
                std::unique_lock lock(mutex);
                if (++here == threads) all.notify_all();
                all.wait_until(lock, end, [&] { return here == threads; });
            },
            tbb::simple_partitioner());
    });
}

}  // namespace

int startableThreads(int wanted) {
    std::mutex started;
    std::vector<pthread_t> threads;
    threads.reserve(static_cast<std::size_t>(std::max(wanted, 0)));
    std::unique_lock waiting(started);  // all at the same time
    const auto body = [](void* mutex) -> void* {
        const std::lock_guard wait(*static_cast<std::mutex*>(mutex));
        return nullptr;
    };
    for (pthread_t thread; std::ssize(threads) < wanted && pthread_create(&thread, nullptr, body, &started) == 0;)
        threads.push_back(thread);
    waiting.unlock();
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    return static_cast<int>(threads.size());
}

int securedThreads(int wanted, int poolsBeside) {
    static std::mutex mutex;
    static int secured = 1;
    static std::unique_ptr<tbb::global_control> shortage;
    const std::lock_guard lock(mutex);
    // oneTBB starts no more workers than the machine has cores unless it is told that more may run.
    static const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, mostThreads);
    wanted = std::clamp(wanted, 1, mostThreads);
    if (wanted <= secured) return wanted;
    if (shortage) return secured;
    const auto allowed = tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism);
    if (static_cast<std::size_t>(wanted) > allowed) return wanted;  // no more than these are ever started
    const auto needed = [&](int threads) { return threads - secured + poolsBeside * threads + others; };
    const int had = startableThreads(affordable(needed(wanted)));
    int threads = wanted;
    while (threads > secured && needed(threads) > had)
        --threads;
    if (threads < wanted)
        shortage = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                         static_cast<std::size_t>(threads));
#if !VIEWTINT_THREAD_SANITIZER  // blind inside oneTBB, it would think the stack that the workers meet on still in use
    if (threads > secured) startWorkers(threads);
#endif
    return secured = threads;
}

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
    return new TbbThreader(securedThreads(wanted));
}

}  // namespace Vellum::Parallel
