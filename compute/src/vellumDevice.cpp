#include "compute/Device.h"

#include <atomic>

#include "compute/CUDA/Device.h"
#include "compute/Exception.h"
#include "compute/HostDevice.h"
#include "compute/Image.h"

namespace Cobalt::Device {

namespace {
[[maybe_unused]] const bool internedAtStart = (bufferMemory(), textureMemory(), true);
}

const MemoryKind& bufferMemory() {
    static const MemoryKind kind("buffer");
    return kind;
}

const MemoryKind& textureMemory() {
    static const MemoryKind kind("texture");
    return kind;
}

}  // namespace Cobalt::Device

namespace Vellum::Compute {

Context::Context(std::vector<std::unique_ptr<Device>> devices) : devices_(std::move(devices)) {
    for (const auto& device : devices_)
        device->context_ = this;
}

Context& Device::context() const {
    if (!context_) fail("The device \"" + name() + "\" belongs to no context.");
    return *context_;
}

Device& deviceOf(const Vellum::Image::Image& image) {
    auto* device = dynamic_cast<Device*>(image.device());
    if (!device) fail("A kernel was given an image that lies on no device.");
    return *device;
}

}  // namespace Vellum::Compute

namespace VellumLibrary {

Vellum::Compute::ContextPointer GetCurrentCPUContext() {
    static const Vellum::Compute::ContextPointer context = [] {
        std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
        devices.push_back(std::make_unique<Vellum::Compute::Host::Device>());
        return Vellum::Compute::ContextPointer(new Vellum::Compute::Context(std::move(devices)));
    }();
    return context;
}

namespace {

std::atomic<int> selectedGpu{-1};

struct Gpus {
    std::vector<Vellum::Compute::ContextPointer> contexts;
    std::vector<std::string> problems;

    Gpus() {
        if (!VIEWTINT_HAS_GPU_TEXT) {
            problems.push_back("this build was made without a compiler for GPUs");
            return;
        }
        for (auto& device : Vellum::Compute::CUDA::Device::all(problems)) {
            std::vector<std::unique_ptr<Vellum::Compute::Device>> one;
            one.push_back(std::move(device));
            contexts.emplace_back(new Vellum::Compute::Context(std::move(one)));
        }
    }
};

/// Never destroyed: the driver may be gone by then.
const Gpus& gpus() {
    static const Gpus& found = *new Gpus;
    return found;
}

}  // namespace

Vellum::Compute::ContextPointer GetCurrentGPUContext(Cobalt::Device::APIEnum api) {
    const int number = selectedGpu;
    if (number < 0) return nullptr;
    const auto contexts = GetGPUContexts(api);
    return static_cast<std::size_t>(number) < contexts.size() ? contexts[static_cast<std::size_t>(number)] : nullptr;
}

std::vector<Vellum::Compute::ContextPointer> GetGPUContexts(Cobalt::Device::APIEnum api) {
    if (selectedGpu < 0) return {};
    return FindGPUContexts(api);
}

std::vector<Vellum::Compute::ContextPointer> FindGPUContexts(Cobalt::Device::APIEnum api) {
    if (api != Cobalt::Device::APIEnum::CUDA) return {};
    return gpus().contexts;
}

std::vector<std::string> GetGPUProblems(Cobalt::Device::APIEnum api) {
    if (api != Cobalt::Device::APIEnum::CUDA) return {};
    return gpus().problems;
}

void SelectGPUContext(Cobalt::Device::APIEnum api, int number) {
    if (api == Cobalt::Device::APIEnum::CUDA) selectedGpu = number;
}

}  // namespace VellumLibrary
