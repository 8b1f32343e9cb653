#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

namespace ViewTint::Cli {

/// Whether a Unicode character is a control.
bool isControl(std::uint32_t letter);

/// A text that can't steer a terminal or pass for other lines: control characters, line breaks among them, and bytes
/// that aren't UTF-8 are written as \x1b and the like. For names of files, views and channels.
std::string printable(std::string_view text);

/// Prints at once, printable but for line breaks. A stream that nobody reads any more is no failure: frames that are
/// rendered are wanted anyway. Any other failure of the standard output is told by finishOutput.
void put(std::FILE* stream, const std::string& text);

/// The same on the standard output, with a format.
template <class... Values>
void print(fmt::format_string<Values...> format, Values&&... values) {
    put(stdout, fmt::format(format, std::forward<Values>(values)...));
}

/// For the program's end: its exit code, which is that of a failure where the standard output didn't take everything.
int finishOutput(int exitCode);

/// A sentence on the error stream, for the person at the keyboard: one line, whatever names it holds.
void complain(const std::string& sentence);

/// The same for what went well and still wants a look.
void warn(const std::string& sentence);

}  // namespace ViewTint::Cli
