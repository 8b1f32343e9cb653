#include <array>
#include <cstring>

#include "compute/CUDA/Device.h"
#include "compute/CUDA/Exception.h"
#include "compute/Hash.h"
#include "compute/PrecompiledKernels.h"

namespace Vellum::Compute::CUDA {

namespace {

Driver::Pointer addressOf(const Cobalt::Device::MemoryBlock& block, std::size_t offset) {
    return reinterpret_cast<Driver::Pointer>(block.address()) + offset;
}

void checkRange(const Cobalt::Device::MemoryBlock& block, std::size_t offset, std::size_t bytes,
                const std::string& device) {
    if (offset + bytes > block.bytes()) fail("A copy that leaves its block on " + device + ".");
}

std::uint64_t bytesOf(const KernelCall& call) {
    std::uint64_t sum = 0;
    for (const Vellum::Kernels::ImageArgument& image : call.images)
        sum += std::uint64_t(image.y1 - image.y0) * std::uint64_t(std::abs(image.strideY)) * sizeof(float);
    return sum;
}

}  // namespace

/// Blocks of one device, for its pool.
class Device::Memory : public MemorySource {
public:
    Memory(const Driver& driver, Driver::Context context) : driver_(driver), context_(context) {}

    void* take(std::size_t bytes) override {
        const Current current(*this);
        Driver::Pointer address = 0;
        return current.bound && driver_.cuMemAlloc(&address, bytes) == Driver::success
                   ? reinterpret_cast<void*>(address)
                   : nullptr;
    }
    void giveBack(void* address) noexcept override {
        const Current current(*this);
        if (current.bound) driver_.cuMemFree(reinterpret_cast<Driver::Pointer>(address));
    }

private:
    /// Unlike Device::Bound it doesn't throw: blocks are given back in destructors. What wasn't bound isn't unbound, or
    /// the thread would lose the context of its caller.
    struct Current {
        explicit Current(const Memory& memory)
            : driver(memory.driver_), bound(driver.cuCtxPushCurrent(memory.context_) == Driver::success) {}
        ~Current() {
            Driver::Context former;
            if (bound) driver.cuCtxPopCurrent(&former);
        }
        const Driver& driver;
        const bool bound;
    };

    const Driver& driver_;
    Driver::Context context_;
};

std::vector<std::unique_ptr<Device>> Device::all(std::vector<std::string>& problems) {
    const Driver* driver = Driver::instance();
    if (!driver) {
        problems.push_back(Driver::whyNot());
        return {};
    }
    int count = 0;
    if (const auto result = driver->cuDeviceGetCount(&count); result != Driver::success || count == 0) {
        problems.push_back(result == Driver::success ? "the NVIDIA driver knows no device"
                                                     : "the NVIDIA driver finds no device: " + driver->nameOf(result));
        return {};
    }
    std::vector<std::unique_ptr<Device>> devices;
    for (int ordinal = 0; ordinal < count; ++ordinal) {
        int device = 0;
        Driver::Context context = nullptr;
        auto result = driver->cuDeviceGet(&device, ordinal);
        if (result == Driver::success) result = driver->cuDevicePrimaryCtxRetain(&context, device);
        if (result == Driver::success)
            devices.emplace_back(new Device(*driver, device, context));
        else
            problems.push_back("GPU " + std::to_string(ordinal) + " can't be used: " + driver->nameOf(result));
    }
    return devices;
}

Device::Device(const Driver& driver, int device, Driver::Context context) : driver_(driver), context_(context) {
    std::array<char, 256> name{};
    if (driver_.cuDeviceGetName(name.data(), static_cast<int>(name.size()) - 1, device) == Driver::success)
        name_ = name.data();
    if (name_.empty()) name_ = "GPU " + std::to_string(device);
    int major = 0, minor = 0;
    driver_.cuDeviceGetAttribute(&major, Driver::computeCapabilityMajor, device);
    driver_.cuDeviceGetAttribute(&minor, Driver::computeCapabilityMinor, device);
    computeCapability_ = std::to_string(major) + "." + std::to_string(minor);
    driver_.cuDeviceTotalMem(&totalBytes_, device);
    // Others may want the device too.
    pool_ = std::make_shared<MemoryPool>(totalBytes_ / 2, std::make_shared<Memory>(driver_, context_));
}

void Device::check(Driver::Result result, const std::string& doing) const {
    if (result == Driver::success) return;
    const std::string what = running_ ? std::string("ran kernel ") + running_->kernel.entry().declaration().name +
                                            " over " + toString(running_->box) + " (" +
                                            std::to_string(bytesOf(*running_)) + " bytes of images; it " + doing + ")"
                                      : doing;
    if (result == Driver::outOfMemory)
        Cobalt::Base::raise(MemoryException(name_ + " has not enough memory: it " + what + "."));
    Cobalt::Base::raise(Exception(result, driver_.nameOf(result), name_, what));
}

void Device::bindThread() {
    check(driver_.cuCtxPushCurrent(context_), "was made current");
}

void Device::unbindThread() noexcept {
    Driver::Context former;
    driver_.cuCtxPopCurrent(&former);
}

Cobalt::Device::MemoryHandle Device::allocate(std::size_t bytes, const Cobalt::Device::MemoryKind&) {
    Cobalt::Device::MemoryHandle block = pool_->allocate(bytes);
    block->placeOn(*this);
    return block;
}

void Device::upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                    std::size_t bytes) {
    checkRange(destination, offset, bytes, name_);
    const Bound bound(*this);
    check(driver_.cuMemcpyHtoD(addressOf(destination, offset), source, bytes),
          "took in " + std::to_string(bytes) + " bytes");
}

void Device::download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                      std::size_t bytes) {
    checkRange(source, offset, bytes, name_);
    const Bound bound(*this);
    check(driver_.cuMemcpyDtoH(destination, addressOf(source, offset), bytes),
          "gave out " + std::to_string(bytes) + " bytes");
}

void Device::run(const KernelCall& call) {
    struct Running {
        const KernelCall*& place;
        ~Running() { place = nullptr; }
    } const running{running_};
    running_ = &call;
    const Bound bound(*this);
    RemoteDevice::run(call);
}

Driver::Function Device::functionOf(const Vellum::JIT::Kernel& kernel, Pass pass) {
    const std::scoped_lock lock(functionsMutex_);
    const char role = pass == Pass::body ? '3' : '4';
    const std::string key = kernel.key().text() + role;
    if (const auto found = functions_.find(key); found != functions_.end()) return found->second;

    const auto text = kernel.stored().slot1();
    auto module = modules_.find(text.data());
    if (module == modules_.end()) {
        const std::string terminated(reinterpret_cast<const char*>(text.data()), text.size());
        Driver::Module loaded = nullptr;
        check(driver_.cuModuleLoadData(&loaded, terminated.c_str()), "compiled its code");
        module = modules_.emplace(text.data(), loaded).first;
    }
    const std::string name =
        "o" + Vellum::Kernels::hexadecimal(Vellum::Kernels::nameHash(kernel.entry().declaration().name)) + role;
    Driver::Function function = nullptr;
    check(driver_.cuModuleGetFunction(&function, module->second, name.c_str()), "looked for its entry point");
    functions_.emplace(key, function);
    return function;
}

void Device::launch(const Vellum::JIT::Kernel& kernel, Pass pass, const Grid& grid,
                    std::span<const std::byte> arguments) {
    constexpr std::size_t alignment = 8;  // of the block of arguments, to which its size is rounded up too
    const Driver::Function function = functionOf(kernel, pass);
    std::vector<std::byte> block(arguments.begin(), arguments.end());
    block.resize((block.size() + alignment - 1) / alignment * alignment);
    std::size_t size = block.size();
    void* const bufferPointer = reinterpret_cast<void*>(1);
    void* const bufferSize = reinterpret_cast<void*>(2);
    void* extra[] = {bufferPointer, block.data(), bufferSize, &size, nullptr};
    check(driver_.cuLaunchKernel(function, grid.groups[0], grid.groups[1], grid.groups[2], grid.workers[0],
                                 grid.workers[1], 1, 0, nullptr, nullptr, extra),
          "was started");
}

void Device::synchronise() {
    check(driver_.cuCtxSynchronize(), "was waited for");
}

}  // namespace Vellum::Compute::CUDA
