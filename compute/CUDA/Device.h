#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "compute/CUDA/Driver.h"
#include "compute/MemoryPool.h"
#include "compute/RemoteDevice.h"

namespace Vellum::Compute::CUDA {

/// A GPU. Runs the stored variants of kernels, each loaded at its first launch; memory comes from a recycling pool.
/// Every failed call of the driver throws CUDA::Exception (no room: MemoryException), with the kernel, its range and
/// its bytes. Any thread may use it, one at a time.
class Device : public RemoteDevice {
public:
    /// The devices that the driver knows. Those that can't be used are left out; `problems` tells of them, or why there
    /// is no driver.
    static std::vector<std::unique_ptr<Device>> all(std::vector<std::string>& problems);

    const std::string& name() const override { return name_; }
    Cobalt::Device::APIEnum api() const override { return Cobalt::Device::APIEnum::CUDA; }
    std::size_t totalBytes() const { return totalBytes_; }
    /// "9.0"
    const std::string& computeCapability() const { return computeCapability_; }

    Cobalt::Device::MemoryHandle allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) override;
    void upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                std::size_t bytes) override;
    void download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                  std::size_t bytes) override;
    void run(const KernelCall& call) override;
    void bindThread() override;
    void unbindThread() noexcept override;

    MemoryPool& pool() { return *pool_; }

    class Bound;

protected:
    void launch(const Vellum::JIT::Kernel& kernel, Pass pass, const Grid& grid,
                std::span<const std::byte> arguments) override;
    void synchronise() override;

private:
    class Memory;
    Device(const Driver& driver, int ordinal, Driver::Context context);

    void check(Driver::Result result, const std::string& doing) const;
    Driver::Function functionOf(const Vellum::JIT::Kernel& kernel, Pass pass);

    const Driver& driver_;
    Driver::Context context_;
    std::string name_;
    std::string computeCapability_;
    std::size_t totalBytes_ = 0;
    std::shared_ptr<MemoryPool> pool_;
    std::mutex functionsMutex_;
    std::map<const void*, Driver::Module> modules_;      ///< by the stored text
    std::map<std::string, Driver::Function> functions_;  ///< by key and pass
    const KernelCall* running_ = nullptr;                ///< what failures are told of
};

/// Makes the device current on this thread for a scope, as other libraries that work on it need.
class Device::Bound {
public:
    explicit Bound(Device& device) : device_(device) { device_.bindThread(); }
    ~Bound() { device_.unbindThread(); }
    Bound(const Bound&) = delete;
    Bound& operator=(const Bound&) = delete;

private:
    Device& device_;
};

}  // namespace Vellum::Compute::CUDA
