#include "cli/renderCommand.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/Interruption.h"
#include "cli/ProgressBar.h"
#include "compute/HostDevice.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"

namespace ViewTint::Cli {

namespace {

using Fresco::Image::KnobDeclaration;
using Fresco::Image::KnobKind;

constexpr int stillFrame = 1;

/// The options as they stand on the command line.
struct RenderOptions {
    RenderOptions() : controls(Host::viewTintClass) {}

    std::string input;
    std::string output;
    std::optional<std::string> mask;
    std::vector<std::string> channels;
    std::string outside = "empty";
    bool quiet = false;
    Host::ControlValues controls;
    std::vector<std::pair<std::string, std::string>> values;  ///< control and text, in the order of the command line
};

std::string rangeOf(const KnobDeclaration& knob) {
    if (knob.kind == KnobKind::boolean) return "on|off";
    if (knob.kind == KnobKind::view) return "VIEW";
    if (!knob.choices.empty()) {
        std::string text;
        for (const std::string& choice : knob.choices)
            text += (text.empty() ? "\"" : "|\"") + choice + "\"";
        return text;
    }
    return knob.hasRange ? fmt::format("{:g}..{:g}", knob.minimum, knob.maximum) : "NUMBER";
}

std::string defaultOf(const KnobDeclaration& knob) {
    const auto number = static_cast<std::size_t>(knob.defaultValue);
    if (knob.kind == KnobKind::boolean) return knob.defaultValue != 0 ? "on" : "off";
    return number < knob.choices.size() ? "\"" + knob.choices[number] + "\"" : fmt::format("{:g}", knob.defaultValue);
}

/// Every control of the node under its own name, as the node declares it.
void addControls(CLI::App& command, const std::shared_ptr<RenderOptions>& options) {
    for (const KnobDeclaration& knob : options->controls.declarations()) {
        if (!knob.holdsValue()) continue;
        const std::string name = knob.name;
        auto* option = command.add_option_function<std::string>(
            "--" + name, [options, name](const std::string& value) { options->values.emplace_back(name, value); },
            knob.tooltip.empty() ? knob.label : knob.tooltip);
        option->type_name(rangeOf(knob))->default_str(defaultOf(knob))->group("Controls");
    }
}

/// Hands the values to the controls, which check them. An option that nobody knows may be a control's name misspelt.
void setControls(const CLI::App& command, RenderOptions& options) {
    for (const std::string& extra : command.remaining()) {
        if (extra.rfind("--", 0) != 0)
            throw CallError(fmt::format("'{}' was not expected; see 'viewtint render --help'.", extra));
        const auto nameEnd = std::min(extra.find('='), extra.size());
        options.controls.set(extra.substr(2, nameEnd - 2), "");
    }
    for (const auto& [name, text] : options.values)
        options.controls.set(name, text);
}

Host::ChannelRoles rolesOf(const RenderOptions& options) {
    Host::ChannelRoles roles;
    for (const std::string& assignment : options.channels)
        roles.assign(assignment);
    return roles;
}

int render(RenderOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    requireOutput("--output", options.output, ".exr", {options.input, options.mask});
    const auto picture = std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(options.input));
    Host::StillSource source(
        picture, stillFrame,
        options.outside == "hold" ? Host::StillSource::Outside::hold : Host::StillSource::Outside::empty);
    ProgressBar progress(options.quiet ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    Host::RenderServices services;
    services.progress = [&](double done, const std::string& stage) { progress.show(done, stage); };
    services.abort = &interruptFlag();
    Host::RenderJob job(source, std::move(options.controls), rolesOf(options), services);
    if (options.mask) job.setMask(std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(*options.mask)));
    try {
        job.render(stillFrame, options.output);
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    } catch (const Host::RenderError& error) {
        progress.clear();
        const std::string sentence = error.what();
        const bool namesFile = sentence.find(options.input) != std::string::npos;
        throw Host::RenderError(namesFile ? sentence : fmt::format("{}: {}", options.input, sentence));
    }
    progress.clear();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!options.quiet) fmt::print("{}: written in {:.2f} s\n", options.output, seconds);
    return exitFine;
}

}  // namespace

void addRenderCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("render", "Corrects the colours of one view of a multi-view OpenEXR file");
    const auto options = std::make_shared<RenderOptions>();
    command->add_option("file", options->input, "Multi-view OpenEXR file with disparity channels")
        ->required()
        ->check(existingFile);
    command->add_option("-o,--output", options->output, "OpenEXR file to write: all that came in, one view corrected")
        ->required()
        ->type_name("FILE.exr");
    command->add_option("--mask", options->mask, "OpenEXR file for the node's input Mask")->check(existingFile);
    command
        ->add_option("--channel", options->channels,
                     "Reads a channel of another name, for example mask_occlusion.alpha=occluded.Y; may be repeated")
        ->type_name("ROLE=NAME")
        ->expected(1);
    command
        ->add_option("--outside", options->outside,
                     "What frames before and after the shot hold: nothing, or the nearest")
        ->capture_default_str()
        ->check(CLI::IsMember({"empty", "hold"}));
    command->add_flag("--quiet", options->quiet, "No progress and no closing line");
    command->allow_extras();
    addControls(*command, options);
    command->callback([&context, command, options] {
        context.work = [command, options, &context] {
            Vellum::Compute::Host::setThreads(context.threads);
            try {
                setControls(*command, *options);
                return render(*options);
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
