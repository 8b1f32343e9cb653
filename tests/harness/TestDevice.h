#pragma once

#include "compute/HostDevice.h"

namespace ViewTint::Tests {

/// A second device of the CPU's kind whose allocations and launches fail when a test asks for it.
class FailingDevice : public Vellum::Compute::Host::Device {
public:
    using Countdown = int;
    static constexpr Countdown never = -1;

    /// How many more succeed before one fails; every one after that fails too.
    Countdown allocationsLeft = never;
    Countdown launchesLeft = never;
    int allocations = 0;
    int launches = 0;

    Cobalt::Device::MemoryHandle allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) override;
    void run(const Vellum::Compute::KernelCall& call) override;
};

/// A device whose memory host code can't follow: its addresses point nowhere. Holds images and runs nothing.
class OpaqueDevice : public Vellum::Compute::Device {
public:
    const std::string& name() const override { return name_; }
    Cobalt::Device::APIEnum api() const override { return Cobalt::Device::APIEnum::Software; }
    bool hostAccessible() const override { return false; }
    Cobalt::Device::MemoryHandle allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) override;
    void upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                std::size_t bytes) override;
    void download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                  std::size_t bytes) override;
    void run(const Vellum::Compute::KernelCall& call) override;

private:
    class Block;
    std::string name_ = "opaque";
};

/// A context with one FailingDevice.
class TestDevice {
public:
    TestDevice();
    FailingDevice& device() const { return static_cast<FailingDevice&>(context_->device()); }
    const Vellum::Compute::ContextPointer& context() const { return context_; }

private:
    Vellum::Compute::ContextPointer context_;
};

}  // namespace ViewTint::Tests
