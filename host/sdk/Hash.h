#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace Fresco::Image {

/// Grows over everything that a result depends on; equal sequences of equal values give equal hashes. 64-bit FNV-1a
/// with each value's size mixed in, so that neighbouring values can't be taken for one another.
class Hash {
public:
    template <class T>
    requires std::is_arithmetic_v<T> || std::is_enum_v<T>
    void append(T value) { append(&value, sizeof value); }
    void append(std::string_view text) { append(text.data(), text.size()); }
    void append(const Hash& other) { append(other.value_); }
    void append(const void* bytes, std::size_t count) {
        const auto* byte = static_cast<const unsigned char*>(bytes);
        const std::uint64_t size = count;
        for (unsigned shift = 0; shift < 64; shift += 8)
            mix(static_cast<unsigned char>(size >> shift));
        for (std::size_t i = 0; i < count; ++i)
            mix(byte[i]);
    }

    std::uint64_t value() const { return value_; }
    friend bool operator==(const Hash&, const Hash&) = default;

private:
    void mix(unsigned char byte) { value_ = (value_ ^ byte) * 0x100000001b3ull; }

    std::uint64_t value_ = 0xcbf29ce484222325ull;
};

}  // namespace Fresco::Image
