#include "tests/harness/TestDevice.h"

#include <cstring>
#include <vector>

#include "compute/Exception.h"

namespace ViewTint::Tests {

namespace {

bool runsOut(FailingDevice::Countdown& left) {
    if (left == FailingDevice::never) return false;
    if (left == 0) return true;
    --left;
    return false;
}

}  // namespace

Cobalt::Device::MemoryHandle FailingDevice::allocate(std::size_t bytes, const Cobalt::Device::MemoryKind& kind) {
    ++allocations;
    if (runsOut(allocationsLeft)) Vellum::Compute::fail("The test device has no memory left.");
    return Device::allocate(bytes, kind);
}

void FailingDevice::run(const Vellum::Compute::KernelCall& call) {
    ++launches;
    if (runsOut(launchesLeft)) Vellum::Compute::fail("The test device has failed.");
    Device::run(call);
}

class OpaqueDevice::Block : public Cobalt::Device::MemoryBlock {
public:
    explicit Block(std::size_t bytes) : MemoryBlock(reinterpret_cast<void*>(0x1000), bytes), content(bytes) {}
    std::vector<char> content;
};

Cobalt::Device::MemoryHandle OpaqueDevice::allocate(std::size_t bytes, const Cobalt::Device::MemoryKind&) {
    Cobalt::Device::MemoryHandle block(new Block(bytes));
    block->placeOn(*this);
    return block;
}

void OpaqueDevice::upload(Cobalt::Device::MemoryBlock& destination, std::size_t offset, const void* source,
                          std::size_t bytes) {
    auto& content = static_cast<Block&>(destination).content;
    if (offset + bytes > content.size()) Vellum::Compute::fail("An upload beyond the block.");
    std::memcpy(content.data() + offset, source, bytes);
}

void OpaqueDevice::download(void* destination, const Cobalt::Device::MemoryBlock& source, std::size_t offset,
                            std::size_t bytes) {
    const auto& content = static_cast<const Block&>(source).content;
    if (offset + bytes > content.size()) Vellum::Compute::fail("A download beyond the block.");
    std::memcpy(destination, content.data() + offset, bytes);
}

void OpaqueDevice::run(const Vellum::Compute::KernelCall&) {
    Vellum::Compute::fail("This device runs nothing.");
}

TestDevice::TestDevice() {
    std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
    devices.push_back(std::make_unique<FailingDevice>());
    context_ = new Vellum::Compute::Context(std::move(devices));
}

}  // namespace ViewTint::Tests
