#include "cli/Printing.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <boost/locale/utf.hpp>
#include <cerrno>
#include <cstring>

#include "base/Failure.h"
#include "cli/CommandContext.h"

namespace ViewTint::Cli {

namespace {

/// Why the standard output first refused something, or 0.
std::atomic<int> outputError = 0;

std::string printableBut(char kept, std::string_view text) {
    namespace utf = boost::locale::utf;
    std::string result;
    for (auto at = text.begin(); at != text.end();) {
        auto end = at;
        const utf::code_point letter = utf::utf_traits<char>::decode(end, text.end());
        const bool known = letter != utf::illegal && letter != utf::incomplete;
        if (!known) end = at + 1;
        if (*at == kept || (known && !isControl(letter)))
            result.append(at, end);
        else
            std::for_each(at, end,
                          [&](char byte) { result += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte)); });
        at = end;
    }
    return result;
}

}  // namespace

bool isControl(std::uint32_t letter) {
    return letter < 0x20 || (letter >= 0x7f && letter < 0xa0);
}

std::string printable(std::string_view text) {
    constexpr char none = ' ';  // is printable anyway
    return printableBut(none, text);
}

void put(std::FILE* stream, const std::string& raw) {
    const std::string text = printableBut('\n', raw);
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
    int none = 0;
    if (!written && stream == stdout && errno != EPIPE) outputError.compare_exchange_strong(none, errno);
}

int finishOutput(int exitCode) {
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    if (!flushed && errno != EPIPE && exitCode == exitFine) outputError = errno;
    if (outputError == 0) return exitCode;
    complain(fmt::format("the standard output can't be written to: {}.", Cobalt::Base::systemText(outputError)));
    return exitCode == exitFine ? exitFailed : exitCode;
}

void complain(const std::string& sentence) {
    const bool finished = !sentence.empty() && std::strchr(".!?", sentence.back()) != nullptr;
    put(stderr, fmt::format("viewtint: {}{}\n", printable(sentence), finished ? "" : "."));
}

void warn(const std::string& sentence) {
    complain("warning: " + sentence);
}

}  // namespace ViewTint::Cli
