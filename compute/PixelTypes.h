#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Vellum::Kernels {

/// The pixel types of a kernel's images in order, four bits each: the component count, plus 8 for unsigned integers.
class PixelTypes {
public:
    /// "3f_1f", "4ui". Throws Compute::Exception on anything else.
    static PixelTypes parse(std::string_view tuple);

    void append(int components, bool isUnsigned);
    int size() const { return size_; }
    std::string text() const;

    friend bool operator==(const PixelTypes&, const PixelTypes&) = default;

private:
    std::uint64_t code_ = 0;
    int size_ = 0;
};

}  // namespace Vellum::Kernels
