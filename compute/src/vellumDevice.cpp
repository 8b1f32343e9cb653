#include "compute/Device.h"

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

// This build has the host device only.
Vellum::Compute::ContextPointer GetCurrentGPUContext(Cobalt::Device::APIEnum) {
    return nullptr;
}

std::vector<Vellum::Compute::ContextPointer> GetGPUContexts(Cobalt::Device::APIEnum) {
    return {};
}

}  // namespace VellumLibrary
