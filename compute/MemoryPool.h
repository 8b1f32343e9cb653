#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "compute/Device.h"

namespace Vellum::Compute::Host {

/// Keeps released working memory for the next image of about that size. Touching a fresh 1080p plane costs ten times
/// what writing a kept one does, because the system clears each page first. Thread safe.
class MemoryPool : public std::enable_shared_from_this<MemoryPool> {
public:
    /// Kept memory beyond `budget` bytes goes back to the system.
    explicit MemoryPool(std::size_t budget) : budget_(budget) {}
    ~MemoryPool();

    /// A block of at least `bytes`, by at most five eighths larger, aligned to a cache line (large ones to a huge page). Throws Compute::Exception.
    Cobalt::Device::MemoryHandle allocate(std::size_t bytes);

    /// Gives all kept memory back to the system.
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

    mutable std::mutex mutex_;
    std::map<std::size_t, std::vector<void*>> kept_;
    std::size_t budget_;
    std::size_t bytesInUse_ = 0;
    std::size_t mostBytesInUse_ = 0;
    std::size_t bytesKept_ = 0;
};

}  // namespace Vellum::Compute::Host
