#pragma once

#include <string>

namespace Vellum::FFT::CUDA {

/// The part of cuFFT that is used, by its own names and numbers.
struct CufftCalls {
    using Plan = int;
    using Status = int;
    static constexpr Status success = 0;
    static constexpr Status allocationFailed = 2;
    static constexpr int realToComplex = 0x2a;
    static constexpr int complexToReal = 0x2c;

    Status (*cufftPlan2d)(Plan* plan, int rows, int columns, int type);
    Status (*cufftExecR2C)(Plan plan, void* real, void* spectrum);
    Status (*cufftExecC2R)(Plan plan, void* spectrum, void* real);
    Status (*cufftDestroy)(Plan plan);
};

/// Loads the library, or the one that VIEWTINT_CUFFT names, at the first call. Throws Compute::Exception without it.
const CufftCalls& cufftCalls();

}  // namespace Vellum::FFT::CUDA
