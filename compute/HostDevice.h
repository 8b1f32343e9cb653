#pragma once

#include <mutex>

#include "compute/Device.h"
#include "compute/MemoryPool.h"

namespace Vellum::Compute::Host {

/// The CPU. Memory comes from a recycling pool, kernels run on a pool of threads.
class Device : public Vellum::Compute::Device {
public:
    Device();

    const std::string& name() const override { return name_; }
    Cobalt::Device::APIEnum api() const override { return Cobalt::Device::APIEnum::Host; }
    bool hostAccessible() const override { return true; }

    Cobalt::Device::MemoryHandle allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) override;
    void upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                std::size_t bytes) override;
    void download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                  std::size_t bytes) override;
    void run(const KernelCall& call) override;

    Vellum::Parallel::ThreaderPointer threader() const;
    /// Takes effect with the next kernel call; one that runs keeps its threads.
    void setThreader(Vellum::Parallel::ThreaderPointer threader);

    MemoryPool& pool() { return *pool_; }

private:
    std::string name_;
    mutable std::mutex threaderMutex_;
    Vellum::Parallel::ThreaderPointer threader_;
    std::shared_ptr<MemoryPool> pool_;
};

/// The device of VellumLibrary::GetCurrentCPUContext().
Device& hostDevice();

/// Sets how many threads the host device uses; 0 takes the machine's number.
void setThreads(int threads);

}  // namespace Vellum::Compute::Host
