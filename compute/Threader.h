#pragma once

#include <atomic>

#include <boost/smart_ptr/intrusive_ptr.hpp>

namespace Vellum::Parallel {

/// A pool of worker threads; shared by reference count.
class Threader {
public:
    using Function = void (*)(int index, void* argument);

    Threader() = default;
    Threader(const Threader&) = delete;
    Threader& operator=(const Threader&) = delete;
    virtual ~Threader() = default;

    /// How many threads work at the same time, the caller's among them.
    virtual int threads() const = 0;
    /// Calls function(index, argument) once for each index 0 .. count - 1, in any order, and returns when all have
    /// finished. The first exception reaches the caller.
    virtual void run(Function function, int count, void* argument) = 0;

    friend void intrusive_ptr_add_ref(const Threader* threader) {
        threader->shares_.fetch_add(1, std::memory_order_relaxed);
    }
    friend void intrusive_ptr_release(const Threader* threader) {
        if (threader->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete threader;
    }

private:
    mutable std::atomic<int> shares_{0};
};

using ThreaderPointer = boost::intrusive_ptr<Threader>;

/// On entry [lo, hi) is a whole range, on return the share of worker `index` out of `count`. Shares are contiguous and
/// disjoint, cover the range and differ by at most one in length.
void DivideRange(int& lo, int& hi, int index, int count);

/// False when the whole process is to stay on one thread.
bool ThreadingEnabled();
void SetThreadingEnabled(bool enabled);

/// How many threads the system gives beside those that run, up to `wanted`: they are started, and ended again.
int startableThreads(int wanted);

/// Makes sure that up to `wanted` threads can work at the same time, the caller's among them, and returns how many can:
/// limits of processes or of memory may leave fewer, down to one. oneTBB, which ends the program where it can't have a
/// thread, isn't asked for more than that from then on. `poolsBeside`: how many pools of as many threads other
/// libraries will start, for which room is left.
int securedThreads(int wanted, int poolsBeside = 0);

/// A pool over oneTBB of as many of these threads as can be had. `threads` of 0 takes the machine's.
ThreaderPointer MakeThreader(int threads);

/// Runs a callable(index) for each index 0 .. count - 1.
template <class Callable>
void forEachIndex(Threader& threader, int count, Callable&& callable) {
    threader.run([](int index, void* argument) { (*static_cast<std::remove_reference_t<Callable>*>(argument))(index); },
                 count, &callable);
}

}  // namespace Vellum::Parallel
