#include "cli/CallError.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>

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

const CLI::Validator sizeInBytes(
    [](std::string& text) {
        constexpr std::uint64_t largest = std::uint64_t{1} << 60;
        const std::string wrong = fmt::format("'{}' is no size; write for example 8GB", text);
        if (text.find('-') != text.npos) return wrong;
        std::uint64_t bytes = 0;
        try {
            CLI::AsSizeValue(false)(text);
        } catch (const CLI::ValidationError&) {
            return wrong;
        }
        return CLI::detail::lexical_cast(text, bytes) && bytes <= largest ? std::string() : wrong;
    },
    "");

const CLI::Validator finiteNumber(
    [](std::string& text) {
        double number = 0;
        return CLI::detail::lexical_cast(text, number) && std::isfinite(number)
                   ? std::string()
                   : fmt::format("'{}' is no number", text);
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
