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
