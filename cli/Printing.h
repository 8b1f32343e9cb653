#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace ViewTint::Cli {

/// Prints at once. A stream that nobody reads any more is no failure: frames that are rendered are wanted anyway. Any
/// other failure of the standard output is told by finishOutput.
void put(std::FILE* stream, const std::string& text);

/// The same on the standard output, with a format.
template <class... Values>
void print(fmt::format_string<Values...> format, Values&&... values) {
    put(stdout, fmt::format(format, std::forward<Values>(values)...));
}

/// For the program's end: its exit code, which is that of a failure where the standard output didn't take everything.
int finishOutput(int exitCode);

/// A sentence on the error stream, for the person at the keyboard.
void complain(const std::string& sentence);

/// The same for what went well and still wants a look.
void warn(const std::string& sentence);

}  // namespace ViewTint::Cli
