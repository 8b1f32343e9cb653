#pragma once

#include <cstdint>

namespace Vellum::Pixel {

/// The data type of one component. All working images are `float32`; `unsigned32` is only ever cleared.
enum class DataEnum : std::uint32_t { none = 0, unsigned32 = 6, float32 = 8 };

/// Bytes of one component.
constexpr std::uint32_t DataSize(DataEnum type) {
    return type == DataEnum::none ? 0 : 4;
}

}  // namespace Vellum::Pixel
