#include "cli/Printing.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "cli/CommandContext.h"

namespace ViewTint::Cli {

namespace {

/// Why the standard output first refused something, or 0.
std::atomic<int> outputError = 0;

}  // namespace

void put(std::FILE* stream, const std::string& text) {
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
    complain(fmt::format("the standard output can't be written to: {}.", std::strerror(outputError)));
    return exitCode == exitFine ? exitFailed : exitCode;
}

void complain(const std::string& sentence) {
    const bool finished = !sentence.empty() && std::strchr(".!?", sentence.back()) != nullptr;
    put(stderr, fmt::format("viewtint: {}{}\n", sentence, finished ? "" : "."));
}

void warn(const std::string& sentence) {
    complain("warning: " + sentence);
}

}  // namespace ViewTint::Cli
