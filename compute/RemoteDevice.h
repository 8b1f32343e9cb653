#pragma once

#include <cstddef>
#include <span>

#include "compute/Device.h"
#include "compute/Kernel.h"

namespace Vellum::Compute {

/// A device with memory of its own, to which kernel calls are handed as launches over a grid of workers.
class RemoteDevice : public Device {
public:
    bool hostAccessible() const final { return false; }
    void run(const KernelCall& call) override;

protected:
    enum class Pass {
        body,  ///< the first pass, or the only one
        fold,  ///< the second pass of a reduction
    };
    /// Groups of workers, and workers of a group.
    struct Grid {
        int groups[3];
        int workers[2];
    };

    /// Starts a pass of a kernel's variant. The arguments are laid out as compute/kernel/deviceForm.h tells.
    /// Throws Exception where the device fails.
    virtual void launch(const Vellum::JIT::Kernel& kernel, Pass pass, const Grid& grid,
                        std::span<const std::byte> arguments) = 0;
    /// Returns when everything that was started has finished. Throws Exception where that failed.
    virtual void synchronise() = 0;
};

}  // namespace Vellum::Compute
