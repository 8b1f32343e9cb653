#include "cli/ControlOptions.h"

#include <algorithm>
#include <cstddef>
#include <regex>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"

namespace ViewTint::Cli {

using Fresco::Image::KnobDeclaration;
using Fresco::Image::KnobKind;

std::string plainText(const std::string& help) {
    const std::string withBreaks = std::regex_replace(help, std::regex("<p>"), " ");
    const std::string withoutTags = std::regex_replace(withBreaks, std::regex("<[^>]*>"), "");
    return std::regex_replace(withoutTags, std::regex("\\s+"), " ");
}

std::string rangeOf(const KnobDeclaration& knob) {
    if (knob.kind == KnobKind::boolean) return "on|off";
    if (knob.kind == KnobKind::view) return "VIEW";
    if (!knob.choices.empty()) {
        std::string text;
        for (const std::string& choice : knob.choices)
            text += (text.empty() ? "\"" : "|\"") + choice + "\"";
        return text;
    }
    if (!knob.hasRange) return "NUMBER";
    return fmt::format("{:g}..{:g}{}", knob.minimum, knob.maximum, knob.actsAboveMaximum() ? " and above" : "");
}

ControlOptions::ControlOptions() : controls_(Host::viewTintClass) {}

void ControlOptions::addTo(CLI::App& command) {
    for (const KnobDeclaration& knob : controls_.declarations()) {
        if (!knob.holdsValue()) continue;
        const std::string name = knob.name;
        auto* option = command.add_option_function<std::string>(
            "--" + name, [this, name](const std::string& value) { given_.emplace_back(name, value); },
            knob.tooltip.empty() ? knob.label : plainText(knob.tooltip));
        // A view's default depends on the file.
        const std::string preset = knob.kind == KnobKind::view ? "" : Host::valueText(knob, knob.defaultValue);
        option->type_name(rangeOf(knob))->default_str(preset)->group("Controls");
    }
}

bool ControlOptions::gives(const std::string& name) const {
    return std::ranges::any_of(given_, [&](const auto& value) { return value.first == name; });
}

Host::ControlValues& ControlOptions::checked() {
    try {
        for (const auto& [name, text] : given_)
            controls_.set(name, text);
    } catch (const Host::SettingError& error) {
        throw CallError(error.what());
    }
    given_.clear();
    return controls_;
}

void ControlOptions::explainUnknown(const std::string& word) {
    if (!word.starts_with("--")) return;
    const std::size_t nameEnd = std::min(word.find('='), word.size());
    try {
        controls_.set(word.substr(2, nameEnd - 2), "");
    } catch (const Host::SettingError& error) {
        throw CallError(error.what());
    }
}

}  // namespace ViewTint::Cli
