#include "cli/Printing.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/locale/utf.hpp>

namespace ViewTint::Cli {

namespace {

std::string printableBut(char kept, std::string_view text) {
    namespace utf = boost::locale::utf;
    const auto controls = [](utf::code_point letter) { return letter < 0x20 || (letter >= 0x7f && letter < 0xa0); };
    std::string result;
    for (auto at = text.begin(); at != text.end();) {
        auto end = at;
        const utf::code_point letter = utf::utf_traits<char>::decode(end, text.end());
        const bool known = letter != utf::illegal && letter != utf::incomplete;
        if (!known) end = at + 1;
        if (*at == kept || (known && !controls(letter)))
            result.append(at, end);
        else
            std::for_each(at, end,
                          [&](char byte) { result += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte)); });
        at = end;
    }
    return result;
}

}  // namespace

std::string printable(std::string_view text) {
    constexpr char none = ' ';  // is printable anyway
    return printableBut(none, text);
}

void put(std::FILE* stream, const std::string& raw) {
    const std::string text = printableBut('\n', raw);
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

void complain(const std::string& sentence) {
    const bool finished = !sentence.empty() && (sentence.back() == '.' || sentence.back() == '!');
    put(stderr, fmt::format("viewtint: {}{}\n", printable(sentence), finished ? "" : "."));
}

void warn(const std::string& sentence) {
    complain("warning: " + sentence);
}

}  // namespace ViewTint::Cli
