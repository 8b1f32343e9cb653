#include "cli/renderCommand.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/ControlOptions.h"
#include "cli/Interruption.h"
#include "cli/ProgressBar.h"
#include "cli/StageFiles.h"
#include "cli/StageTable.h"
#include "compute/HostDevice.h"
#include "host/files/ImageCacheDirectory.h"
#include "host/graph/ControlPanel.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "node/ViewTintPlugin.h"

namespace ViewTint::Cli {

namespace {

constexpr int stillFrame = 1;

/// The options as they stand on the command line.
struct RenderOptions {
    std::string input;
    std::string output;
    std::optional<std::string> mask;
    std::vector<std::string> channels;
    std::string outside = "empty";
    bool quiet = false;
    bool stats = false;
    std::string stageFolder;
    std::string cacheFolder;
    std::uint64_t cacheBytes = std::uint64_t{10} << 30;
    ControlOptions controls;
};

/// A mask that nothing reads would go unnoticed.
void checkMask(const RenderOptions& options) {
    if (options.mask && !options.controls.gives("maskWith"))
        throw CallError(
            "--mask: the file isn't used while maskWith is None; add for example --maskWith \"Mask Alpha\".");
}

Host::ChannelRoles rolesOf(const RenderOptions& options) {
    Host::ChannelRoles roles;
    for (const std::string& assignment : options.channels)
        roles.assign(assignment);
    return roles;
}

std::string absentColours(const Host::MultiViewFile& picture, const Host::ChannelRoles& roles) {
    std::vector<std::string> absent;
    for (const std::string& view : picture.views())
        for (const Host::ChannelRoles::Role& role : roles.all())
            if (role.channel <= Fresco::Image::blueChannel && !picture.hasChannel(view, role.fileChannel))
                absent.push_back(fmt::format("'{}' in view '{}'", role.fileChannel, view));
    return fmt::format("{}", fmt::join(absent, ", "));
}

/// The node's sentence with the file and with what the node can't know: names in the file and options of this command.
std::string explain(const std::string& sentence, const RenderOptions& options, const Host::MultiViewFile& picture) {
    if (sentence.find(fmt::format("'{}'", options.input)) != std::string::npos) return sentence;
    std::string text = fmt::format("{}: {}", options.input, sentence);
    if (sentence.ends_with("missing rgb"))
        text += fmt::format(". There is no {}; add it, or choose others with --channel ROLE=NAME.",
                            absentColours(picture, rolesOf(options)));
    if (sentence.starts_with("Channel selected as Mask is missing") && !options.mask)
        text += " Name a mask file with --mask, or choose another maskWith.";
    return text;
}

void warn(const std::string& sentence) {
    fmt::print(stderr, "viewtint: {}\n", sentence);
}

/// Of values that do nothing, and of those that together do what nobody wants.
void warnOfOddSettings(const Host::ControlValues& controls, std::span<const std::string> views) {
    const Host::ControlPanel panel(controls, views);
    for (const std::string& name : panel.givenInVain())
        warn(
            fmt::format("{} has no effect together with the other values; 'viewtint controls' with the same values "
                        "shows what is enabled.",
                        name));
    // The node is defined to convert the picture of one block size to Lab twice where it refills occlusions.
    constexpr double basic = 0, none = 2;
    if (panel.value("matchingMode") != basic && panel.value("samples") == 1 &&
        panel.value("occlusionCorrection") != none)
        warn(
            "one block size together with refilled occlusions gives false colours; choose --samples 2 or more, or "
            "--occlusionCorrection None.");
}

int render(RenderOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    requireOutput("--output", options.output, ".exr", {options.input, options.mask});
    const auto picture = std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(options.input));
    Host::StillSource source(
        picture, stillFrame,
        options.outside == "hold" ? Host::StillSource::Outside::hold : Host::StillSource::Outside::empty);
    ProgressBar progress(options.quiet ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    Host::RenderServices services;
    services.progress = [&](double done, const std::string& stage) { progress.show(done, stage); };
    services.abort = &interruptFlag();
    std::optional<StageFiles> stageFiles;
    if (!options.stageFolder.empty()) {
        stageFiles.emplace(options.stageFolder);
        services.operatorMade = [&](Fresco::Image::Op& op) {
            if (auto* node = dynamic_cast<Cobalt::Research::ViewTintPlugin*>(&op))
                node->stageObserver = [&](const char* name, const auto& picture) { stageFiles->write(name, picture); };
        };
    }
    const std::vector<std::string> views = picture->views();
    Host::ControlValues& controls = options.controls.checked();
    warnOfOddSettings(controls, views);
    std::optional<Host::ImageCacheDirectory> cache;
    if (!options.cacheFolder.empty()) cache.emplace(options.cacheFolder, options.cacheBytes);
    Host::RenderJob job(source, std::move(controls), rolesOf(options), services);
    if (options.mask) job.setMask(std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(*options.mask)));
    try {
        job.render(stillFrame, options.output);
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    } catch (const Host::RenderError& error) {
        progress.clear();
        throw Host::RenderError(explain(error.what(), options, *picture));
    }
    progress.clear();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!options.quiet) fmt::print("{}: written in {:.2f} s\n", options.output, seconds);
    if (stages) fmt::print("{}", stages->text());
    if (stageFiles) stageFiles->throwFailure();
    return interruptFlag() ? exitInterrupted : exitFine;  // pressed while the file was written: it is whole
}

}  // namespace

void addRenderCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("render", "Corrects the colours of one view of a multi-view OpenEXR file");
    const auto options = std::make_shared<RenderOptions>();
    command->add_option("FILE", options->input, "Multi-view OpenEXR file with disparity channels")
        ->required()
        ->check(existingFile)
        ->type_name("FILE");
    command->add_option("-o,--output", options->output, "OpenEXR file to write: all that came in, one view corrected")
        ->required()
        ->type_name("FILE.exr");
    command
        ->add_option("--mask", options->mask, "OpenEXR file for the node's input Mask; choose a channel by --maskWith")
        ->check(existingFile)
        ->type_name("FILE");
    command
        ->add_option("--channel", options->channels,
                     "Reads a channel of another name, for example mask_occlusion.alpha=occluded.Y; may be repeated")
        ->type_name("ROLE=NAME")
        ->allow_extra_args(false);
    command
        ->add_option("--outside", options->outside,
                     "What frames before and after the shot hold: nothing, or the nearest")
        ->capture_default_str()
        ->check(CLI::IsMember({"empty", "hold"}));
    command->add_flag("--quiet", options->quiet, "No progress and no closing line");
    command
        ->add_option("--write-stages", options->stageFolder,
                     "Writes the intermediate pictures of \"Local Matching\" into a folder, for a look into the render")
        ->type_name("DIR");
    command
        ->add_option("--cache", options->cacheFolder,
                     "Keeps results in a folder of this program's own: the same picture with the same controls is not "
                     "computed again")
        ->type_name("DIR");
    command
        ->add_option("--cache-size", options->cacheBytes,
                     "How much that folder may hold, for example 500MB or 20GB; what was not used for longest goes")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("SIZE")
        ->default_str("10GB")
        ->needs("--cache");
    command->add_flag("--stats", options->stats,
                      "Prints for each stage the milliseconds, the kernel calls, the megabytes that they read and "
                      "wrote, and GB/s");
    options->controls.addTo(*command);
    command->callback([&context, options] {
        context.explainUnknown = [options](const std::string& word) { options->controls.explainUnknown(word); };
        context.work = [options, &context] {
            Vellum::Compute::Host::setThreads(context.threads);
            try {
                checkMask(*options);
                return render(*options);
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
