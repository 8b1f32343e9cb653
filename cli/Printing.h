#pragma once

#include <cstdio>
#include <string>

namespace ViewTint::Cli {

/// Prints at once. A stream that nobody reads any more is no failure: frames that are rendered are wanted anyway.
void put(std::FILE* stream, const std::string& text);

/// A sentence on the error stream, for the person at the keyboard.
void complain(const std::string& sentence);

/// The same for what went well and still wants a look.
void warn(const std::string& sentence);

}  // namespace ViewTint::Cli
