#pragma once

#include <cstdint>

namespace Vellum::Kernels {

/// The GPU text of one variant, deflated. Made by tools/packKernels.cpp.
struct StoredText {
    const char* kernel;
    const char* tuple;  ///< "3f_1f"
    const unsigned char* data;
    std::int32_t storedBytes;
    std::int32_t bytes;
};

/// Those of a family; none where the build had no compiler for GPUs.
struct StoredTexts {
    const StoredText* list;
    std::int32_t count;
};

}  // namespace Vellum::Kernels
