#pragma once

#include <cstddef>

#include <mkl_dfti.h>

namespace Vellum::FFT::Host {

/// The library's functions, each in its own place, so that tests can count calls and let them fail.
struct DftiCalls {
    /// One-dimensional, single precision; DFTI_REAL or DFTI_COMPLEX.
    MKL_LONG (*createDescriptor)(DFTI_DESCRIPTOR_HANDLE* handle, DFTI_CONFIG_VALUE domain, MKL_LONG length);
    MKL_LONG (*setValue)(DFTI_DESCRIPTOR_HANDLE handle, DFTI_CONFIG_PARAM parameter, MKL_LONG value);
    MKL_LONG (*commitDescriptor)(DFTI_DESCRIPTOR_HANDLE handle);
    MKL_LONG (*computeForward)(DFTI_DESCRIPTOR_HANDLE handle, void* source, void* destination);
    MKL_LONG (*computeForwardInPlace)(DFTI_DESCRIPTOR_HANDLE handle, void* values);
    MKL_LONG (*computeBackward)(DFTI_DESCRIPTOR_HANDLE handle, void* source, void* destination);
    MKL_LONG (*computeBackwardInPlace)(DFTI_DESCRIPTOR_HANDLE handle, void* values);
    MKL_LONG (*freeDescriptor)(DFTI_DESCRIPTOR_HANDLE* handle);
    MKL_LONG (*errorClass)(MKL_LONG status, MKL_LONG errorClass);
    const char* (*errorMessage)(MKL_LONG status);
    void* (*allocate)(std::size_t bytes, int alignment);
    void (*release)(void* memory);
};

/// The library's own.
const DftiCalls& libraryDftiCalls();

/// Those in use.
const DftiCalls& dftiCalls();
/// For tests: replaces them until the scope's end. Not while a transform runs.
class DftiCallsScope {
public:
    explicit DftiCallsScope(const DftiCalls& calls);
    ~DftiCallsScope();
    DftiCallsScope(const DftiCallsScope&) = delete;
    DftiCallsScope& operator=(const DftiCallsScope&) = delete;
};

}  // namespace Vellum::FFT::Host
