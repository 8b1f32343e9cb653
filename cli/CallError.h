#pragma once

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace ViewTint::Cli {

/// The command line asks for something that can't be: one sentence that names the option and says what to do.
class CallError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file on the command line that must be there.
extern const CLI::Validator existingFile;

/// Something that was left empty, as by a shell's variable without a value, would be taken for not given.
extern const CLI::Validator notEmpty;

/// Throws CallError when `output` is the same file as one of `inputs`, or hasn't the ending `.ending`.
void requireOutput(const char* option, const std::filesystem::path& output, const char* ending,
                   std::initializer_list<std::optional<std::filesystem::path>> inputs);

}  // namespace ViewTint::Cli
