#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Cobalt::Base {

/// At most so many bytes from the beginning of a text, and no part of a UTF-8 character.
inline std::string_view beginningOf(std::string_view text, std::size_t most) {
    if (text.size() <= most) return text;
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80)
        --most;
    return text.substr(0, most);
}

/// A sentence as a clause of another.
inline std::string withoutFullStop(std::string sentence) {
    sentence.resize(sentence.find_last_not_of('.') + 1);
    return sentence;
}

}  // namespace Cobalt::Base
