#include "vellumCufftCalls.h"

#include "compute/CUDA/SharedLibrary.h"
#include "compute/Exception.h"

namespace Vellum::FFT::CUDA {

const CufftCalls& cufftCalls() {
    struct Loaded {
        CufftCalls calls{};
        std::string problem;

        Loaded() {
            // The newest first; a toolkit's library need not be on the loader's path.
            const Compute::CUDA::SharedLibrary library(
                "VIEWTINT_CUFFT", {"libcufft.so.12", "libcufft.so.11", "libcufft.so.10", "libcufft.so",
                                   "/usr/local/cuda/lib64/libcufft.so"});
            if (!library.loaded()) {
                problem = library.whyNot();
                return;
            }
            const bool whole =
                library.find("cufftPlan2d", calls.cufftPlan2d) && library.find("cufftExecR2C", calls.cufftExecR2C) &&
                library.find("cufftExecC2R", calls.cufftExecC2R) && library.find("cufftDestroy", calls.cufftDestroy);
            if (!whole) problem = "the library that was found lacks a function";
        }
    };
    static const Loaded loaded;
    if (!loaded.problem.empty())
        Compute::fail("Fourier transforms on a GPU need NVIDIA's library cuFFT: " + loaded.problem + ".");
    return loaded.calls;
}

}  // namespace Vellum::FFT::CUDA
