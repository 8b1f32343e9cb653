#include "cli/renderStill.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Failure.h"
#include "cli/CallError.h"
#include "cli/CommandContext.h"
#include "cli/FrameReports.h"
#include "cli/Interruption.h"
#include "cli/StageFiles.h"
#include "cli/StageTable.h"
#include "host/files/AtomicFile.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
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

void checkOutput(const RenderOptions& options) {
    requireOutput("--output", options.output, ".exr", {options.input, options.mask, options.disparity.right});
    Host::checkWritable(options.output);
}

/// Throws RenderInterrupted and whatever else keeps the picture from being written. True if it was matched.
bool render(RenderOptions& options, FrameReports& reports) {
    Host::ControlValues& controls = options.controls.checked();
    const bool namesView = Host::nameForView(options.output, "").has_value();
    if (!namesView) checkOutput(options);
    std::optional<StageFiles> stageFiles;
    if (!options.stageFolder.empty()) stageFiles.emplace(options.stageFolder);
    Host::RenderServices services = reports.services();
    const auto cache = openCache(options, services);
    const auto picture = std::make_shared<Host::MultiViewFile>(openPicture(options));
    Host::StillSource source(
        picture, stillFrame,
        options.outside == "hold" ? Host::StillSource::Outside::hold : Host::StillSource::Outside::empty);
    std::string savedView;
    Host::ParallaxSettings parallax;
    {
        const Host::ControlPanel panel(controls, picture->views());
        warnOfOddSettings(panel);
        parallax = options.disparity.settings(panel.stereoViews());
        if (isPerView(options)) savedView = panel.correctedView();
    }
    options.output = Host::nameForView(options.output, savedView).value_or(options.output);
    if (namesView) checkOutput(options);
    if (stageFiles) {
        services.operatorMade = [&](Fresco::Image::Op& op) {
            if (auto* node = dynamic_cast<Cobalt::Research::ViewTintPlugin*>(&op))
                node->stageObserver = [&](const char* name, const auto& picture) { stageFiles->write(name, picture); };
        };
    }
    Host::ParallaxSource withDisparity(source, rolesOf(options), parallax, services);
    withDisparity.report = [&](const Host::ParallaxReport& report) { reports.tell(report, options.input); };
    Host::RenderJob job(withDisparity, std::move(controls), rolesOf(options), services);
    job.setOptionsText(recordedOptions(options));
    if (options.mask) job.setMask(openMask(*options.mask));
    try {
        const bool matched = job.render(stillFrame, options.output, savedView);
        if (stageFiles) stageFiles->throwFailure();
        return matched;
    } catch (const Host::RenderError& error) {
        throw Host::RenderError(explain(error.what(), options, *picture));
    }
}

}  // namespace

int renderStill(RenderOptions& options) {
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    FrameReports reports(options);
    const auto start = std::chrono::steady_clock::now();
    Host::FrameResult result;
    bool interrupted = false;
    try {
        if (!render(options, reports)) result.status = Host::FrameResult::Status::unmatched;
    } catch (const Host::RenderInterrupted&) {
        interrupted = true;
    } catch (const CallError&) {
        throw;
    } catch (const Host::SettingError&) {
        throw;
    } catch (const Interrupted&) {
        interrupted = true;
    } catch (...) {
        result.status = Host::FrameResult::Status::failed;
        result.message = Cobalt::Base::currentFailure();
    }
    result.file = options.output;
    result.seconds = secondsSince(start);
    if (!interrupted) reports.tell(result);
    reports.tellEnd(stages ? &*stages : nullptr);
    if (interrupted) throw Interrupted();
    if (reports.failed()) return exitFailed;
    return interruptFlag() ? exitInterrupted : exitFine;  // pressed while the file was written: it is whole
}

}  // namespace ViewTint::Cli
