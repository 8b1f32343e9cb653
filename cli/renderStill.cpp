#include "cli/renderStill.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/CallError.h"
#include "cli/CommandContext.h"
#include "cli/Interruption.h"
#include "cli/Printing.h"
#include "cli/ProgressBar.h"
#include "cli/StageFiles.h"
#include "cli/StageTable.h"
#include "host/graph/RenderJob.h"
#include "host/sequence/FramePattern.h"
#include "node/ViewTintPlugin.h"

namespace ViewTint::Cli {

namespace {

constexpr int stillFrame = 1;

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

Host::MultiViewFile openPicture(const RenderOptions& options) {
    if (options.disparity.right) return options.disparity.openPair(options.input);
    if (!isPerView(options)) return Host::MultiViewFile::open(options.input);
    std::vector<Host::MultiViewFile::ViewFile> files;
    for (const std::string& view : options.views)
        files.push_back({view, *Host::nameForView(options.input, view)});
    return Host::MultiViewFile::openViews(files);
}

}  // namespace

int renderStill(RenderOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    const auto picture = std::make_shared<Host::MultiViewFile>(openPicture(options));
    Host::StillSource source(
        picture, stillFrame,
        options.outside == "hold" ? Host::StillSource::Outside::hold : Host::StillSource::Outside::empty);
    ProgressBar progress(options.quiet ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    Host::RenderServices services;
    services.progress = [&](double done, const std::string& stage) { progress.show(done, stage); };
    services.abort = &interruptFlag();
    services.warn = [&](const std::string& sentence) {
        progress.clear();
        warn(sentence);
    };
    std::optional<StageFiles> stageFiles;
    if (!options.stageFolder.empty()) {
        stageFiles.emplace(options.stageFolder);
        services.operatorMade = [&](Fresco::Image::Op& op) {
            if (auto* node = dynamic_cast<Cobalt::Research::ViewTintPlugin*>(&op))
                node->stageObserver = [&](const char* name, const auto& picture) { stageFiles->write(name, picture); };
        };
    }
    Host::ControlValues& controls = options.controls.checked();
    std::string savedView;
    Host::ParallaxSettings parallax;
    {
        const Host::ControlPanel panel(controls, picture->views());
        warnOfOddSettings(panel);
        parallax = options.disparity.settings(panel.stereoViews());
        if (isPerView(options)) savedView = panel.correctedView();
    }
    options.output = Host::nameForView(options.output, savedView).value_or(options.output);
    requireOutput("--output", options.output, ".exr", {options.input, options.mask, options.disparity.right});
    const auto cache = openCache(options, services);
    Host::ParallaxSource withDisparity(source, rolesOf(options), parallax, services);
    withDisparity.report = [&](const Host::ParallaxReport& report) {
        progress.clear();
        tellParallax(report, options.input, options.quiet);
    };
    Host::RenderJob job(withDisparity, std::move(controls), rolesOf(options), services);
    job.setOptionsText(recordedOptions(options));
    if (options.mask) job.setMask(openMask(*options.mask));
    try {
        job.render(stillFrame, options.output, savedView);
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    } catch (const Host::RenderError& error) {
        progress.clear();
        throw Host::RenderError(explain(error.what(), options, *picture));
    }
    progress.clear();
    if (!options.quiet) print("{}: written in {:.2f} s\n", printable(options.output), secondsSince(start));
    if (stages) {
        print("{}", stages->text());
        printMostGpuMemory();
    }
    if (stageFiles) stageFiles->throwFailure();
    return interruptFlag() ? exitInterrupted : exitFine;  // pressed while the file was written: it is whole
}

}  // namespace ViewTint::Cli
