#include "vellumDftiCalls.h"

#include <mkl_service.h>

namespace Vellum::FFT::Host {

namespace {

const DftiCalls* inUse = nullptr;

}  // namespace

const DftiCalls& libraryDftiCalls() {
    static const DftiCalls calls{
        .createDescriptor =
            [](DFTI_DESCRIPTOR_HANDLE* handle, DFTI_CONFIG_VALUE domain, MKL_LONG length) {
                return DftiCreateDescriptor(handle, DFTI_SINGLE, domain, 1, length);
            },
        .setValue = [](DFTI_DESCRIPTOR_HANDLE handle, DFTI_CONFIG_PARAM parameter,
                       MKL_LONG value) { return DftiSetValue(handle, parameter, value); },
        .commitDescriptor = [](DFTI_DESCRIPTOR_HANDLE handle) { return DftiCommitDescriptor(handle); },
        .computeForward = [](DFTI_DESCRIPTOR_HANDLE handle, void* source,
                             void* destination) { return DftiComputeForward(handle, source, destination); },
        .computeForwardInPlace = [](DFTI_DESCRIPTOR_HANDLE handle,
                                    void* values) { return DftiComputeForward(handle, values); },
        .computeBackward = [](DFTI_DESCRIPTOR_HANDLE handle, void* source,
                              void* destination) { return DftiComputeBackward(handle, source, destination); },
        .computeBackwardInPlace = [](DFTI_DESCRIPTOR_HANDLE handle,
                                     void* values) { return DftiComputeBackward(handle, values); },
        .freeDescriptor = [](DFTI_DESCRIPTOR_HANDLE* handle) { return DftiFreeDescriptor(handle); },
        .errorClass = [](MKL_LONG status, MKL_LONG errorClass) { return DftiErrorClass(status, errorClass); },
        .errorMessage = [](MKL_LONG status) -> const char* { return DftiErrorMessage(status); },
        .allocate = [](std::size_t bytes, int alignment) { return MKL_malloc(bytes, alignment); },
        .release = [](void* memory) { MKL_free(memory); },
    };
    return calls;
}

const DftiCalls& dftiCalls() {
    return inUse ? *inUse : libraryDftiCalls();
}

DftiCallsScope::DftiCallsScope(const DftiCalls& calls) {
    inUse = &calls;
}

DftiCallsScope::~DftiCallsScope() {
    inUse = nullptr;
}

}  // namespace Vellum::FFT::Host
