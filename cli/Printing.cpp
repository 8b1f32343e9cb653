#include "cli/Printing.h"

#include <fmt/format.h>

namespace ViewTint::Cli {

void put(std::FILE* stream, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

void complain(const std::string& sentence) {
    const bool finished = !sentence.empty() && (sentence.back() == '.' || sentence.back() == '!');
    put(stderr, fmt::format("viewtint: {}{}\n", sentence, finished ? "" : "."));
}

void warn(const std::string& sentence) {
    complain("warning: " + sentence);
}

}  // namespace ViewTint::Cli
