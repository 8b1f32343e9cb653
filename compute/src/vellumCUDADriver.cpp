#include <dlfcn.h>

#include <cstdlib>

#include "compute/CUDA/Driver.h"

namespace Vellum::Compute::CUDA {

SharedLibrary::SharedLibrary(const char* variable, std::initializer_list<const char*> names) {
    const char* chosen = std::getenv(variable);
    if (chosen && *chosen) {
        handle_ = dlopen(chosen, RTLD_NOW | RTLD_LOCAL);
        if (!handle_) whyNot_ = std::string(variable) + "=" + chosen + " can't be loaded: " + dlerror();
        return;
    }
    for (const char* name : names) {
        handle_ = dlopen(name, RTLD_NOW | RTLD_LOCAL);
        if (handle_) return;
    }
    whyNot_ = std::string(*names.begin()) + " is not installed";
}

void* SharedLibrary::address(const char* name) const {
    return dlsym(handle_, name);
}

bool Driver::load(const SharedLibrary& library, std::string& missing) {
    const auto find = [&](const char* name, auto& function) {
        if (missing.empty() && !library.find(name, function)) missing = name;
    };
    // Later versions of a function have a number; the plain name is its first, for programs of 32 bits.
    find("cuInit", cuInit);
    find("cuDeviceGetCount", cuDeviceGetCount);
    find("cuDeviceGet", cuDeviceGet);
    find("cuDeviceGetName", cuDeviceGetName);
    find("cuDeviceGetAttribute", cuDeviceGetAttribute);
    find("cuDeviceTotalMem_v2", cuDeviceTotalMem);
    find("cuDevicePrimaryCtxRetain", cuDevicePrimaryCtxRetain);
    find("cuCtxPushCurrent_v2", cuCtxPushCurrent);
    find("cuCtxPopCurrent_v2", cuCtxPopCurrent);
    find("cuCtxSynchronize", cuCtxSynchronize);
    find("cuMemAlloc_v2", cuMemAlloc);
    find("cuMemFree_v2", cuMemFree);
    find("cuMemcpyHtoD_v2", cuMemcpyHtoD);
    find("cuMemcpyDtoH_v2", cuMemcpyDtoH);
    find("cuModuleLoadData", cuModuleLoadData);
    find("cuModuleGetFunction", cuModuleGetFunction);
    find("cuLaunchKernel", cuLaunchKernel);
    find("cuGetErrorName", cuGetErrorName);
    return missing.empty();
}

namespace {

std::string& reason() {
    static std::string text;
    return text;
}

}  // namespace

const Driver* Driver::instance() {
    static const Driver* const driver = []() -> const Driver* {
        const SharedLibrary library("VIEWTINT_CUDA_DRIVER", {"libcuda.so.1"});
        if (!library.loaded()) {
            reason() = "no NVIDIA driver: " + library.whyNot();
            return nullptr;
        }
        static Driver loaded;
        std::string missing;
        if (!loaded.load(library, missing)) {
            reason() = "the NVIDIA driver is too old: it has no " + missing;
            return nullptr;
        }
        if (const Result result = loaded.cuInit(0); result != success) {
            reason() = "the NVIDIA driver can't be started: " + loaded.nameOf(result);
            return nullptr;
        }
        return &loaded;
    }();
    return driver;
}

const std::string& Driver::whyNot() {
    instance();
    return reason();
}

std::string Driver::nameOf(Result error) const {
    const char* name = nullptr;
    if (cuGetErrorName(error, &name) == success && name) return name;
    return "error " + std::to_string(error);
}

}  // namespace Vellum::Compute::CUDA
