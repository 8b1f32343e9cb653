#pragma once

#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include "compute/CUDA/Device.h"

namespace ViewTint::Tests {

/// The first GPU there is: the stand-in's.
inline Vellum::Compute::ContextPointer gpuContext() {
    return VellumLibrary::FindGPUContexts(Cobalt::Device::APIEnum::CUDA).at(0);
}
inline Vellum::Compute::CUDA::Device& gpu() {
    return static_cast<Vellum::Compute::CUDA::Device&>(gpuContext()->device());
}

/// A function of the stand-in that the program loads.
template <class Function>
Function* standIn(const char* variable, const char* name) {
    void* const library = dlopen(std::getenv(variable), RTLD_NOW | RTLD_LOCAL);
    return library ? reinterpret_cast<Function*>(dlsym(library, name)) : nullptr;
}

/// Lets a call of the driver fail until the scope's end.
class FailingDriver {
public:
    FailingDriver(const char* call, int number, int result, bool always = false) {
        standIn<void(const char*, int, int, bool)>("VIEWTINT_CUDA_DRIVER", "standInFail")(call, number, result, always);
    }
    ~FailingDriver() {
        standIn<void(const char*, int, int, bool)>("VIEWTINT_CUDA_DRIVER", "standInFail")(nullptr, 0, 0, false);
    }
};

inline int driverCalls(const char* call) {
    return standIn<int(const char*)>("VIEWTINT_CUDA_DRIVER", "standInCount")(call);
}

}  // namespace ViewTint::Tests
