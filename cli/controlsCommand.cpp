#include "cli/controlsCommand.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/ControlOptions.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "host/graph/ControlPanel.h"
#include "host/graph/SettingError.h"

namespace ViewTint::Cli {

namespace {

using Fresco::Image::KnobDeclaration;
using Fresco::Image::KnobKind;
using Fresco::Image::logarithmicSlider;
using Fresco::Image::startsLine;

constexpr std::size_t lineWidth = 100;

/// Words in lines, each after `indent` blanks.
std::string wrapped(const std::string& text, std::size_t indent) {
    std::string lines, line;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        const std::string word = text.substr(begin, end - begin);
        if (!line.empty() && indent + line.size() + 1 + word.size() > lineWidth) {
            lines += std::string(indent, ' ') + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        begin = end + 1;
    }
    return line.empty() ? lines : lines + std::string(indent, ' ') + line + "\n";
}

void printKnob(const KnobDeclaration& knob, const Host::ControlPanel& panel) {
    const double value = panel.value(knob.name);
    const std::string preset = knob.kind == KnobKind::view ? "the file's" : Host::valueText(knob, knob.defaultValue);
    print("  {:<34} {:<32} {}{}\n", knob.name, fmt::format("\"{}\"", knob.label), preset,
          panel.enabled(knob.name) ? "" : "  (disabled)");
    if (knob.kind != KnobKind::view && value != knob.defaultValue)
        print("      set to {}\n", Host::valueText(knob, value));
    print("{}", wrapped(rangeOf(knob) + (knob.flags & logarithmicSlider ? ", logarithmic slider" : ""), 6));
    if (!(knob.flags & startsLine)) print("      on the same line of a panel as the control before\n");
    print("{}", wrapped(plainText(knob.tooltip), 6));
}

void printText(const Host::ControlPanel& panel) {
    print("  {:<34} {:<32} {}\n", "control", "label", "default");
    for (const KnobDeclaration& knob : panel.declarations()) {
        const bool heading =
            knob.kind == KnobKind::text && knob.name.empty() && !knob.label.empty() && knob.label != " ";
        if (heading) print("\n{}\n", knob.label);
        if (knob.kind == KnobKind::text && !knob.name.empty()) print("  {:<34} {}\n", knob.name, knob.text);
        if (knob.holdsValue()) printKnob(knob, panel);
    }
}

Json valueOf(const KnobDeclaration& knob, double value) {
    if (knob.kind == KnobKind::boolean) return Json::boolean(value != 0);
    if (knob.kind == KnobKind::real) return Json::number(static_cast<float>(value));
    return Json::integer(static_cast<long long>(value));
}

void printJson(const Host::ControlPanel& panel) {
    std::vector<Json> controls;
    for (const KnobDeclaration& knob : panel.declarations()) {
        if (!knob.holdsValue()) continue;
        std::vector<std::pair<std::string, Json>> members{{"name", Json::text(knob.name)},
                                                          {"label", Json::text(knob.label)},
                                                          {"default", valueOf(knob, knob.defaultValue)},
                                                          {"value", valueOf(knob, panel.value(knob.name))},
                                                          {"enabled", Json::boolean(panel.enabled(knob.name))}};
        if (knob.hasRange) {
            members.emplace_back("minimum", Json::number(knob.minimum));
            members.emplace_back("maximum", Json::number(knob.maximum));
        }
        members.emplace_back("logarithmic_slider", Json::boolean((knob.flags & logarithmicSlider) != 0));
        members.emplace_back("starts_line", Json::boolean((knob.flags & startsLine) != 0));
        if (!knob.choices.empty()) members.emplace_back("choices", Json::array(knob.choices));
        members.emplace_back("tooltip", Json::text(knob.tooltip));
        controls.push_back(Json::object(members));
    }
    print("{}\n", Json::array(controls).str());
}

}  // namespace

void addControlsCommand(CLI::App& app, CommandContext& context) {
    struct Options {
        ControlOptions controls;
        bool json = false;
    };
    CLI::App* command = app.add_subcommand(
        "controls", "Shows the node's controls, and which are enabled with the values that are given");
    const auto options = std::make_shared<Options>();
    command->add_flag("--json", options->json, "Print JSON");
    options->controls.addTo(*command);
    command->callback([&context, options] {
        context.explainUnknown = [options](const std::string& word) { options->controls.explainUnknown(word); };
        context.work = [options] {
            const std::vector<std::string> views{"left", "right"};
            try {
                const Host::ControlPanel panel(options->controls.checked(), views);
                options->json ? printJson(panel) : printText(panel);
                return exitFine;
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
