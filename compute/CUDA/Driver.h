#pragma once

#include <cstddef>
#include <string>

#include "compute/CUDA/SharedLibrary.h"

namespace Vellum::Compute::CUDA {

/// The part of NVIDIA's driver interface that is used, by its own names and numbers. No header of the toolkit is
/// needed.
class Driver {
public:
    using Result = int;
    using Pointer = unsigned long long;  ///< an address on the device
    using Context = void*;
    using Module = void*;
    using Function = void*;

    static constexpr Result success = 0;
    static constexpr Result outOfMemory = 2;
    static constexpr int computeCapabilityMajor = 75;  ///< numbers of attributes
    static constexpr int computeCapabilityMinor = 76;

    /// Loads the library, or the one that VIEWTINT_CUDA_DRIVER names, at the first call. Null without it.
    static const Driver* instance();
    /// Why there is none.
    static const std::string& whyNot();

    Result (*cuInit)(unsigned flags);
    Result (*cuDeviceGetCount)(int* count);
    Result (*cuDeviceGet)(int* device, int ordinal);
    Result (*cuDeviceGetName)(char* name, int length, int device);
    Result (*cuDeviceGetAttribute)(int* value, int attribute, int device);
    Result (*cuDeviceTotalMem)(std::size_t* bytes, int device);
    Result (*cuDevicePrimaryCtxRetain)(Context* context, int device);
    Result (*cuCtxPushCurrent)(Context context);
    Result (*cuCtxPopCurrent)(Context* context);
    Result (*cuCtxSynchronize)();
    Result (*cuMemAlloc)(Pointer* address, std::size_t bytes);
    Result (*cuMemFree)(Pointer address);
    Result (*cuMemcpyHtoD)(Pointer destination, const void* source, std::size_t bytes);
    Result (*cuMemcpyDtoH)(void* destination, Pointer source, std::size_t bytes);
    Result (*cuModuleLoadData)(Module* module, const void* text);
    Result (*cuModuleGetFunction)(Function* function, Module module, const char* name);
    Result (*cuLaunchKernel)(Function function, unsigned gridX, unsigned gridY, unsigned gridZ, unsigned blockX,
                             unsigned blockY, unsigned blockZ, unsigned sharedBytes, void* stream, void** parameters,
                             void** extra);
    Result (*cuGetErrorName)(Result error, const char** name);

    /// "CUDA_ERROR_OUT_OF_MEMORY"; the bare number where the driver doesn't know it.
    std::string nameOf(Result error) const;

private:
    Driver() = default;
    bool load(const SharedLibrary& library, std::string& missing);
};

}  // namespace Vellum::Compute::CUDA
