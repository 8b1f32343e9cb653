// The form of a body that a CUDA device runs: entry points round those of deviceForm.h. Included in place of the tables
// when a family is compiled for such a device.
//
// An entry point is named here after its kernel and pixel types, "vt3_maxKernel_3f_3f_3f" (the body) and
// "vt4_maxKernel" (the fold); tools/packKernels.cpp gives it the name that loaders look for.
#pragma once

#include "deviceForm.h"

#define VT_BODY_ENTRY(K, tuple)                                                                                    \
    extern "C" __attribute__((global)) void vt3_##K##_##tuple(const Vellum::Kernels::ArgumentBytes<K> arguments) { \
        Vellum::Kernels::runDeviceBody<K, Vellum::Kernels::bodyCounts<K>(#tuple)>(arguments);                      \
    }
#define VT_FOLD_ENTRY(K)                                                                                 \
    extern "C" __attribute__((global)) void vt4_##K(const Vellum::Kernels::ArgumentBytes<K> arguments) { \
        Vellum::Kernels::runDeviceFold<K>(arguments);                                                    \
    }
/// The fold of a kernel with one pass does nothing and is left out by tools/packKernels.cpp.
#define VT_ENTRY_POINTS(K, TUPLES) TUPLES(VT_BODY_ENTRY, K) VT_FOLD_ENTRY(K)

#if defined(__NVCC__)
#define VT_THREAD(axis) static_cast<int>(threadIdx.axis)
#define VT_BLOCK(axis) static_cast<int>(blockIdx.axis)
#define VT_BLOCK_SIZE(axis) static_cast<int>(blockDim.axis)
#else
#define VT_THREAD(axis) static_cast<int>(__nvvm_read_ptx_sreg_tid_##axis())
#define VT_BLOCK(axis) static_cast<int>(__nvvm_read_ptx_sreg_ctaid_##axis())
#define VT_BLOCK_SIZE(axis) static_cast<int>(__nvvm_read_ptx_sreg_ntid_##axis())
#endif

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The block of arguments as an entry point takes it: by value, without gaps.
template <class K>
struct ArgumentBytes {
    static constexpr int size = 16 + K::imageCount * static_cast<int>(sizeof(ImageArgument)) +
                                (hasParameterBlock<K>() ? 8 : 0) + (K::reduction ? 12 : 0) + 4;
    alignas(8) char bytes[size];
};

template <class K, Counts T>
VT_FN void runDeviceBody(const ArgumentBytes<K>& arguments) {
    deviceBody<K, T>(arguments.bytes, VT_BLOCK(x) * VT_BLOCK_SIZE(x) + VT_THREAD(x),
                     VT_BLOCK(y) * VT_BLOCK_SIZE(y) + VT_THREAD(y), VT_BLOCK(z));
}
template <class K>
VT_FN void runDeviceFold(const ArgumentBytes<K>& arguments) {
    deviceFold<K>(arguments.bytes, VT_THREAD(x), 0);
    __syncthreads();
    deviceFold<K>(arguments.bytes, VT_THREAD(x), 1);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
