#pragma once

#include "base/Exception.h"
#include "compute/CUDA/Exception.h"

namespace Vellum::FFT::Host {

/// The library that transforms on the CPU has reported a failure; "Error" is its own sentence.
class FFTException : public Cobalt::Base::MessageException, public Cobalt::Base::ExceptionDecoration {};

}  // namespace Vellum::FFT::Host

namespace Vellum::FFT::CUDA {

/// cuFFT has reported a status other than success; errorCode() is the status, toString() its symbolic name.
class FFTException : public Compute::CUDA::Exception {
public:
    explicit FFTException(int status);
};

/// The device has no room for a plan. "Device" is its name.
class FFTMemoryException : public Cobalt::Base::MessageException, public Cobalt::Base::ExceptionDecoration {};

}  // namespace Vellum::FFT::CUDA
