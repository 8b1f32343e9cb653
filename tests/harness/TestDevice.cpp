#include "tests/harness/TestDevice.h"

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

TestDevice::TestDevice() {
    std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
    devices.push_back(std::make_unique<FailingDevice>());
    context_ = new Vellum::Compute::Context(std::move(devices));
}

}  // namespace ViewTint::Tests
