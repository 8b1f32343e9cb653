#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "compute/Device.h"

namespace Vellum::Compute {

/// Where a pool's memory comes from. Thread safe.
class MemorySource {
public:
    virtual ~MemorySource() = default;
    /// Null where there is none.
    virtual void* take(std::size_t bytes) = 0;
    virtual void giveBack(void* address) noexcept = 0;
};

/// The machine's own memory, aligned to a cache line, large blocks to a huge page.
std::shared_ptr<MemorySource> systemMemory();

/// Keeps released working memory for the next image of about that size. Touching a fresh 1080p plane costs ten times
/// what writing a kept one does, because the system clears each page first. Thread safe.
class MemoryPool : public std::enable_shared_from_this<MemoryPool> {
public:
    /// Kept memory beyond `budget` bytes goes back to its source.
    explicit MemoryPool(std::size_t budget, std::shared_ptr<MemorySource> source = systemMemory())
        : source_(std::move(source)), budget_(budget) {}
    ~MemoryPool();

    /// A block of at least `bytes`, by at most five eighths larger. Throws MemoryException.
    Cobalt::Device::MemoryHandle allocate(std::size_t bytes);

    /// Gives all kept memory back.
    void trim();
    void setBudget(std::size_t bytes);

    std::size_t bytesInUse() const;
    /// The most that has been in use since forgetMostBytesInUse().
    std::size_t mostBytesInUse() const;
    void forgetMostBytesInUse();
    std::size_t bytesKept() const;

private:
    class Block;
    void release(void* address, std::size_t bytes);
    bool keep(void* address, std::size_t bytes) noexcept;
    void trimTo(std::size_t bytes);

    std::shared_ptr<MemorySource> source_;
    mutable std::mutex mutex_;
    std::multimap<std::size_t, void*> kept_;
    std::size_t budget_;
    std::size_t bytesInUse_ = 0;
    std::size_t mostBytesInUse_ = 0;
    std::size_t bytesKept_ = 0;
};

}  // namespace Vellum::Compute
