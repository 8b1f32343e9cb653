#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "compute/kernel/launch.h"

namespace Vellum::Kernels {

class CatalogueEntry;

/// What a loader must know to start a kernel's compiled code: its images and the layout of its two blocks. The names
/// are "o" and the hexadecimal nameHash() of the true ones. Stored little-endian without padding.
struct ParameterRecord {
    struct Image {
        std::string name;
        bool written = false;
        Pattern pattern = Pattern::point;
        friend bool operator==(const Image&, const Image&) = default;
    };
    /// A field that the caller may set, or a result.
    struct Scalar {
        std::string id;  ///< of kernel and scalar together
        std::string name;
        std::uint32_t bytes = 0;
        std::uint32_t offset = 0;  ///< in its block
        std::uint32_t count = 1;   ///< elements of a vector
        ScalarType type = ScalarType::real;
        bool inAccumulator = false;  ///< a result
        std::uint32_t vectorWidth = 1;
        std::uint32_t arrayLength = 1;
        friend bool operator==(const Scalar&, const Scalar&) = default;
    };
    /// A field of the parameter block that the kernel fills itself: a derived value, or what belongs to an image; then
    /// the image's name is followed by `rangedAxisMask`, `rangeMin`, `rangeMax` or `constEdgeColor`.
    struct Hidden {
        std::string name;
        std::uint32_t bytes = 0;
        std::uint32_t offset = 0;
        ScalarType type = ScalarType::real;
        std::uint32_t vectorWidth = 1;
        std::uint32_t arrayLength = 1;
        friend bool operator==(const Hidden&, const Hidden&) = default;
    };

    std::string kernelId;  ///< the stem of the names of the kernel's entry points
    std::uint32_t passes = 1;
    bool perComponent = false;
    std::uint32_t parameterBlockBytes = 0;  ///< 0 for a kernel without any field
    std::uint32_t accumulatorBlockBytes = 0;
    std::vector<Image> images;
    std::vector<Scalar> scalars;  ///< parameters, then results
    std::vector<Hidden> hidden;

    static ParameterRecord of(const CatalogueEntry& entry);
    /// Throws Compute::Exception with the place and the reason where the bytes are no record.
    static ParameterRecord parse(std::span<const std::byte> bytes);
    std::vector<std::byte> toBytes() const;

    /// The scalar or result with this nameHash(), or null.
    const Scalar* scalar(std::uint64_t nameHash) const;

    friend bool operator==(const ParameterRecord&, const ParameterRecord&) = default;
};

}  // namespace Vellum::Kernels
