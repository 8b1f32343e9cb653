#include "compute/PixelTypes.h"

#include <algorithm>

#include "compute/Exception.h"
#include "compute/kernel/launch.h"

namespace Vellum::Kernels {

namespace {

constexpr int bitsPerType = 4;
constexpr int unsignedBit = 8;
static_assert(mostImages * bitsPerType <= 64);

}  // namespace

PixelTypes PixelTypes::parse(std::string_view tuple) {
    PixelTypes types;
    std::size_t at = 0;
    while (at <= tuple.size()) {
        const std::size_t end = std::min(tuple.find('_', at), tuple.size());
        const std::string_view token = tuple.substr(at, end - at);
        const bool isUnsigned = token.size() == 3 && token.substr(1) == "ui";
        const bool isFloat = token.size() == 2 && token[1] == 'f';
        if ((!isUnsigned && !isFloat) || token[0] < '1' || token[0] > '4' || types.size_ == mostImages)
            Vellum::Compute::fail("\"" + std::string(tuple) + "\" is not a list of pixel types such as 3f_1f.");
        types.append(token[0] - '0', isUnsigned);
        at = end + 1;
    }
    return types;
}

void PixelTypes::append(int components, bool isUnsigned) {
    if (components < 1 || components > 4 || size_ == mostImages)
        Vellum::Compute::fail("A kernel takes up to " + std::to_string(mostImages) + " images of 1 to 4 components.");
    const auto type = static_cast<std::uint64_t>(components | (isUnsigned ? unsignedBit : 0));
    code_ |= type << (bitsPerType * size_);
    ++size_;
}

std::string PixelTypes::text() const {
    std::string text;
    for (int i = 0; i < size_; ++i) {
        const auto type = static_cast<int>(code_ >> (bitsPerType * i)) & 0xf;
        if (i) text += '_';
        text += std::to_string(type & ~unsignedBit) + (type & unsignedBit ? "ui" : "f");
    }
    return text;
}

}  // namespace Vellum::Kernels
