#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "base/NameAtom.h"
#include "compute/Threader.h"

namespace Cobalt::Device {

/// Kinds of device, numbered as in the target tags of kernel keys.
enum class APIEnum : std::uint32_t { Host = 2, CUDA = 4, Software = 5 };

/// Tag of the names of memory kinds.
struct Memory;
using MemoryKind = Cobalt::Base::NameAtom<Memory>;

/// The one kind of memory in use, "buffer".
const MemoryKind& bufferMemory();
/// "texture": interned, never used.
const MemoryKind& textureMemory();

class DeviceBase;

/// A block of memory on a device. Shared by reference count; the last share releases it.
class MemoryBlock {
public:
    MemoryBlock(void* address, std::size_t bytes) : address_(address), bytes_(bytes) {}
    MemoryBlock(const MemoryBlock&) = delete;
    MemoryBlock& operator=(const MemoryBlock&) = delete;
    virtual ~MemoryBlock() = default;

    /// The device's own address: only host code on a host-accessible device may read through it.
    void* address() const { return address_; }
    std::size_t bytes() const { return bytes_; }
    /// Where it lies. Whoever makes a block says so before an image is made from it.
    DeviceBase* device() const { return device_; }
    void placeOn(DeviceBase& device) { device_ = &device; }

    friend void intrusive_ptr_add_ref(const MemoryBlock* block) {
        block->shares_.fetch_add(1, std::memory_order_relaxed);
    }
    friend void intrusive_ptr_release(const MemoryBlock* block) {
        if (block->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete block;
    }

private:
    void* address_;
    std::size_t bytes_;
    DeviceBase* device_ = nullptr;
    mutable std::atomic<int> shares_{0};
};

using MemoryHandle = boost::intrusive_ptr<MemoryBlock>;

/// A place where images lie: the CPU or a GPU.
class DeviceBase {
public:
    virtual ~DeviceBase() = default;

    virtual const std::string& name() const = 0;
    virtual APIEnum api() const = 0;
    /// True where host code may follow the addresses of this device's memory.
    virtual bool hostAccessible() const = 0;

    /// Contents are unspecified. Throws Cobalt::Base::Exception where the device has no room.
    virtual MemoryHandle allocate(std::size_t bytes, const MemoryKind& kind) = 0;
    virtual void upload(MemoryBlock& destination, std::size_t offset, const void* source, std::size_t bytes) = 0;
    virtual void download(void* destination, const MemoryBlock& source, std::size_t offset, std::size_t bytes) = 0;
};

}  // namespace Cobalt::Device

namespace Vellum::Compute {

class Context;
struct KernelCall;

/// A device that can run kernels.
class Device : public Cobalt::Device::DeviceBase {
public:
    /// Throws Exception for a device that belongs to none.
    Context& context() const;

    /// Runs one kernel over one range and returns when its results are visible. Throws Compute::Exception.
    virtual void run(const KernelCall& call) = 0;

    /// Makes the device the calling thread's current one, where its interface has such a thing; nests.
    virtual void bindThread() {}
    virtual void unbindThread() noexcept {}

private:
    friend class Context;
    Context* context_ = nullptr;
};

/// The devices that work together; shared by reference count.
class Context {
public:
    explicit Context(std::vector<std::unique_ptr<Device>> devices);

    const std::vector<std::unique_ptr<Device>>& devices() const { return devices_; }
    /// The first device. A context has at least one.
    Device& device() const { return *devices_.front(); }

    friend void intrusive_ptr_add_ref(const Context* context) {
        context->shares_.fetch_add(1, std::memory_order_relaxed);
    }
    friend void intrusive_ptr_release(const Context* context) {
        if (context->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete context;
    }

private:
    std::vector<std::unique_ptr<Device>> devices_;
    mutable std::atomic<int> shares_{0};
};

using ContextPointer = boost::intrusive_ptr<Context>;

/// Binds the calling thread to a context for a scope, for devices whose interface has a current one per thread.
class AutoContextThreadBinder {
public:
    explicit AutoContextThreadBinder(ContextPointer context) : context_(std::move(context)) {
        context_->device().bindThread();
    }
    ~AutoContextThreadBinder() { context_->device().unbindThread(); }
    AutoContextThreadBinder(const AutoContextThreadBinder&) = delete;
    AutoContextThreadBinder& operator=(const AutoContextThreadBinder&) = delete;

private:
    ContextPointer context_;
};

}  // namespace Vellum::Compute

namespace VellumLibrary {

/// The context of the host device; made at the first call.
Vellum::Compute::ContextPointer GetCurrentCPUContext();
/// The selected GPU context of an API, or null.
Vellum::Compute::ContextPointer GetCurrentGPUContext(Cobalt::Device::APIEnum api);
/// All GPU contexts of an API; none while none is selected.
std::vector<Vellum::Compute::ContextPointer> GetGPUContexts(Cobalt::Device::APIEnum api);

/// The GPUs of the machine. They are looked for, and claimed, at the first call: renders on the CPU don't wake them.
std::vector<Vellum::Compute::ContextPointer> FindGPUContexts(Cobalt::Device::APIEnum api);
/// Why there are fewer than one might think, half a sentence each; empty where nothing is amiss.
std::vector<std::string> GetGPUProblems(Cobalt::Device::APIEnum api);
/// What a host's preferences do: the context of that number becomes the current one, in the whole process; -1 selects
/// none, as at the start. A number that doesn't exist selects none.
void SelectGPUContext(Cobalt::Device::APIEnum api, int number);

}  // namespace VellumLibrary
