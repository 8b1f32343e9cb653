#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace Vellum::Kernels {

/// A 64-bit hash that is the same on every machine and in every build: FNV-1a, then mixed so that each bit of the value
/// depends on every byte.
class Hash {
public:
    constexpr Hash& add(std::string_view bytes) {
        for (const char byte : bytes)
            state_ = (state_ ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
        return *this;
    }

    constexpr std::uint64_t value() const {
        std::uint64_t mixed = state_;
        mixed = (mixed ^ mixed >> 33) * 0xff51afd7ed558ccdu;
        mixed = (mixed ^ mixed >> 33) * 0xc4ceb9fe1a85ec53u;
        return mixed ^ mixed >> 33;
    }

private:
    std::uint64_t state_ = 0xcbf29ce484222325u;
};

/// The hash by which kernels, images and scalars are named in parameter records. Never below 2^56, so that it has 15 or
/// 16 hexadecimal digits.
constexpr std::uint64_t nameHash(std::string_view name) {
    const std::uint64_t hash = Hash().add(name).value();
    constexpr std::uint64_t fifteenDigits = std::uint64_t{1} << 56;
    return hash < fifteenDigits ? hash | fifteenDigits : hash;
}

/// Lower-case digits without leading zeros.
inline std::string hexadecimal(std::uint64_t value) {
    char digits[16];
    return {digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr};
}

}  // namespace Vellum::Kernels
