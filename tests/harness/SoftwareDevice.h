#pragma once

#include <array>
#include <map>
#include <string>

#include "compute/RemoteDevice.h"

namespace ViewTint::Tests {

/// A device in software that behaves as a GPU does: memory of its own that host code can't touch, a budget of bytes,
/// launches over a grid of workers from the real block of arguments, reductions in two passes, failures on demand.
/// Fresh memory holds NaNs; what a kernel writes beyond its blocks is found out.
class SoftwareDevice : public Vellum::Compute::RemoteDevice {
public:
    enum class Operation { allocation, copy, launch };
    enum class Failing { once, fromThenOn };

    /// Closing the memory to host code costs a call of the system round every operation.
    enum class HostAccess { closed, open };

    explicit SoftwareDevice(std::size_t budget = std::size_t{256} << 20, HostAccess access = HostAccess::closed);
    ~SoftwareDevice() override;

    const std::string& name() const override { return name_; }
    Cobalt::Device::APIEnum api() const override { return Cobalt::Device::APIEnum::Software; }
    Cobalt::Device::MemoryHandle allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) override;
    void upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                std::size_t bytes) override;
    void download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                  std::size_t bytes) override;
    void run(const Vellum::Compute::KernelCall& call) override;

    /// The operation of that number fails, the next one being number 0. Replaces what was asked before.
    void failAt(Operation operation, int number, Failing failing = Failing::once);
    void failNoMore();
    /// How many of them have been tried since the device was made.
    int count(Operation operation) const { return states_[static_cast<int>(operation)].tried; }

    /// The latest failure happened within a kernel call, not while an image was made or copied.
    bool failedInsideCall() const { return failedInsideCall_; }

    std::size_t bytesInUse() const { return inUse_; }
    std::size_t budget() const { return budget_; }
    /// Runs every worker of a grid, with the device's memory accessible.
    void runWorkers(const Vellum::Kernels::CatalogueEntry& entry, int variant, bool fold, const int (&workers)[3],
                    const void* arguments) const;
    /// False once anything was written between the blocks.
    bool gapsIntact() const;

protected:
    void launch(const Vellum::JIT::Kernel& kernel, Pass pass, const Grid& grid,
                std::span<const std::byte> arguments) override;
    void synchronise() override {}

private:
    class Block;
    class Opened;
    struct OperationState {
        int tried = 0;
        int failing = -1;  // number of the one that fails
        Failing how = Failing::once;
    };

    void tryOperation(Operation operation, const std::string& what);
    void release(char* address);
    void checkRange(const Cobalt::Device::MemoryBlock& block, std::size_t offset, std::size_t bytes) const;
    char* place(std::size_t bytes) const;

    std::string name_ = "software device";
    std::size_t budget_;
    HostAccess access_;
    std::size_t arenaBytes_;
    char* arena_;
    std::map<char*, std::size_t> blocks_;
    std::size_t inUse_ = 0;
    std::array<OperationState, 3> states_;
    bool insideCall_ = false;
    bool failedInsideCall_ = false;
};

/// A context whose one device is a SoftwareDevice.
class SoftwareContext {
public:
    explicit SoftwareContext(std::size_t budget = std::size_t{256} << 20);
    SoftwareDevice& device() const { return static_cast<SoftwareDevice&>(context_->device()); }
    const Vellum::Compute::ContextPointer& context() const { return context_; }

private:
    Vellum::Compute::ContextPointer context_;
};

}  // namespace ViewTint::Tests
