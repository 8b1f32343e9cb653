#include "FFT/CUDAFourierTransform.h"
#include "FFT/FourierTransform.h"
#include "FFT/HostFourierTransform.h"
#include "base/Exception.h"

namespace Vellum::FFT {

namespace {

using Cobalt::Device::APIEnum;

[[noreturn]] void refuse(int line, const char* function) {
    Cobalt::Base::raise(Cobalt::Base::NotImplemented("Unimplemented code path."),
                        Cobalt::Base::ThrowPlace{"vellumFourierTransformFactories", line, function});
}

}  // namespace

std::unique_ptr<FourierTransformHelper> FourierTransformHelper::make(Compute::Device& device) {
    if (device.api() == APIEnum::Host) return std::make_unique<Host::FourierTransformHelper>(device);
    if (device.api() == APIEnum::CUDA) return std::make_unique<CUDA::FourierTransformHelper>(device);
    refuse(__LINE__, "Vellum::FFT::FourierTransformHelper::make");
}

std::unique_ptr<FourierTransform> FourierTransform::make(Compute::Device& device) {
    if (device.api() == APIEnum::Host)
        return std::make_unique<Host::FourierTransform>(static_cast<Compute::Host::Device&>(device));
    if (device.api() == APIEnum::CUDA)
        return std::make_unique<CUDA::FourierTransform>(static_cast<Compute::CUDA::Device&>(device));
    refuse(__LINE__, "Vellum::FFT::FourierTransform::make");
}

}  // namespace Vellum::FFT
