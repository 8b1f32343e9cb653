#include "cli/CallError.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

namespace ViewTint::Cli {

namespace fs = std::filesystem;

const CLI::Validator existingFile(
    [](std::string& name) {
        std::error_code ignored;
        const fs::file_status status = fs::status(name, ignored);
        if (!fs::exists(status)) return fmt::format("there is no file '{}'; check its name and folder", name);
        if (fs::is_directory(status)) return fmt::format("'{}' is a folder; give the name of a picture", name);
        // Opening a pipe waits for its writer, and pictures aren't read from the front to the back.
        return fs::is_regular_file(status)
                   ? std::string{}
                   : fmt::format("'{}' is a pipe or a device; write the picture to a file and give its name", name);
    },
    "");

const CLI::Validator notEmpty(
    [](std::string& text) {
        return text.empty() ? std::string("the value is empty; leave the option out instead") : "";
    },
    "");

void requireOutput(const char* option, const fs::path& output, const char* ending,
                   std::initializer_list<std::optional<fs::path>> inputs) {
    std::string given = output.extension().string();
    std::transform(given.begin(), given.end(), given.begin(), [](unsigned char c) { return std::tolower(c); });
    if (given != ending) throw CallError(fmt::format("{}: '{}' must end in {}.", option, output.string(), ending));
    for (const auto& input : inputs) {
        std::error_code ignored;
        if (input && fs::equivalent(output, *input, ignored))
            throw CallError(
                fmt::format("{}: '{}' is also an input; give the output another name.", option, output.string()));
    }
}

}  // namespace ViewTint::Cli
