#include "compute/MemoryPool.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "base/Failure.h"
#include "compute/Exception.h"

namespace Vellum::Compute {

namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t hugePage = std::size_t{2} << 20;
/// No machine has as much; rounding up can't overflow below it.
constexpr std::size_t mostBytes = std::size_t{1} << 59;

[[noreturn]] void raiseShortage(std::size_t bytes) {
    Cobalt::Base::raise(MemoryException("There is not enough memory: " + std::to_string(bytes >> 20) +
                                        " MiB for one image could not be had; " + Cobalt::Base::remedy(ENOMEM) + "."));
}

/// Sizes are rounded up to steps of at most an eighth, so that images of nearly one size share their blocks.
std::size_t roundUp(std::size_t bytes) {
    std::size_t step = 4096;
    while (step * 16 < bytes)
        step *= 2;
    return (bytes + step - 1) / step * step;
}

class SystemMemory : public MemorySource {
public:
    void* take(std::size_t bytes) override {
        const std::size_t alignment = bytes >= hugePage ? hugePage : cacheLine;
        void* address = nullptr;
        if (posix_memalign(&address, alignment, bytes) != 0) return nullptr;
        if (alignment == hugePage) madvise(address, bytes, MADV_HUGEPAGE);
        return address;
    }
    void giveBack(void* address) noexcept override { std::free(address); }
};

}  // namespace

std::shared_ptr<MemorySource> systemMemory() {
    static const auto memory = std::make_shared<SystemMemory>();
    return memory;
}

/// Gives its memory back to the pool that it came from. It holds a share of the pool: an image may outlive its device.
class MemoryPool::Block : public Cobalt::Device::MemoryBlock {
public:
    Block(void* address, std::size_t bytes, std::shared_ptr<MemoryPool> pool)
        : MemoryBlock(address, bytes), pool_(std::move(pool)) {}
    ~Block() override { pool_->release(address(), bytes()); }

private:
    std::shared_ptr<MemoryPool> pool_;
};

MemoryPool::~MemoryPool() {
    trimTo(0);
}

Cobalt::Device::MemoryHandle MemoryPool::allocate(std::size_t bytes) {
    if (bytes > mostBytes) raiseShortage(bytes);
    std::size_t size = roundUp(std::max<std::size_t>(bytes, 1));
    void* address = nullptr;
    {
        const std::scoped_lock lock(mutex_);
        // Four planes serve where three are wanted: kept memory grows less with each kind of work that follows another.
        if (auto found = kept_.lower_bound(size); found != kept_.end() && found->first <= size + size / 2) {
            size = found->first;
            found = std::prev(kept_.upper_bound(size));  // the one that was in use last
            address = found->second;
            kept_.erase(found);
            bytesKept_ -= size;
        }
    }
    if (!address) address = source_->take(size);
    if (!address) {
        trim();
        address = source_->take(size);
    }
    if (!address) raiseShortage(bytes);
    const auto giveBack = [this](void* taken) { source_->giveBack(taken); };
    std::unique_ptr<void, decltype(giveBack)> held(address, giveBack);
    Cobalt::Device::MemoryHandle block(new Block(address, size, shared_from_this()));
    held.release();
    const std::scoped_lock lock(mutex_);
    bytesInUse_ += size;
    mostBytesInUse_ = std::max(mostBytesInUse_, bytesInUse_);
    return block;
}

void MemoryPool::release(void* address, std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    bytesInUse_ -= bytes;
    if (bytesKept_ + bytes <= budget_ && keep(address, bytes)) return;
    source_->giveBack(address);
}

/// False where there is no memory for the list itself: blocks are released in destructors, which must not throw.
bool MemoryPool::keep(void* address, std::size_t bytes) noexcept try {
    kept_.emplace(bytes, address);
    bytesKept_ += bytes;
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void MemoryPool::trimTo(std::size_t bytes) {
    while (bytesKept_ > bytes) {
        const auto largest = std::prev(kept_.end());
        source_->giveBack(largest->second);
        bytesKept_ -= largest->first;
        kept_.erase(largest);
    }
}

void MemoryPool::trim() {
    const std::scoped_lock lock(mutex_);
    trimTo(0);
}

void MemoryPool::setBudget(std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    budget_ = bytes;
    trimTo(budget_);
}

std::size_t MemoryPool::bytesInUse() const {
    const std::scoped_lock lock(mutex_);
    return bytesInUse_;
}

std::size_t MemoryPool::mostBytesInUse() const {
    const std::scoped_lock lock(mutex_);
    return mostBytesInUse_;
}

void MemoryPool::forgetMostBytesInUse() {
    const std::scoped_lock lock(mutex_);
    mostBytesInUse_ = bytesInUse_;
}

std::size_t MemoryPool::bytesKept() const {
    const std::scoped_lock lock(mutex_);
    return bytesKept_;
}

}  // namespace Vellum::Compute
