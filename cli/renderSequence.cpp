#include "cli/renderSequence.h"

#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

#include "cli/CallError.h"
#include "cli/CommandContext.h"
#include "cli/FrameReports.h"
#include "cli/Interruption.h"
#include "cli/Shot.h"
#include "cli/StageTable.h"
#include "host/graph/RenderJob.h"
#include "host/sequence/SequenceRender.h"

namespace ViewTint::Cli {

namespace {

std::size_t halfOfTheMachinesMemory() {
    return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 2;
}

}  // namespace

int renderSequence(RenderOptions& options) {
    goOnWithoutReader();
    if (!options.stageFolder.empty()) throw CallError("--write-stages is for one picture, not for a sequence.");
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    Shot shot(options);
    Host::checkOutput(shot.source, shot.output, shot.frames);
    Host::ControlValues& controls = options.controls.checked();
    Host::SequenceSettings settings;
    settings.frames = shot.frames;
    settings.savedView = shot.savedView;
    const auto mask = options.mask ? Host::FramePattern::parse(*options.mask) : std::nullopt;
    settings.skip = options.skipVerified   ? Host::SkipFrames::verified
                    : options.skipExisting ? Host::SkipFrames::whole
                                           : Host::SkipFrames::none;
    settings.memory = options.memoryBytes > 0 ? options.memoryBytes : halfOfTheMachinesMemory();

    FrameReports reports(options, settings.frames);
    const Host::RenderServices services = reports.services();
    settings.neighbours = Host::neighbourRequests(controls, rolesOf(options), shot.views);
    const auto cache = openCache(options, services);
    Host::ParallaxSource withDisparity(shot.source, rolesOf(options), shot.parallax, services);
    withDisparity.report = [&](const Host::ParallaxReport& report) {
        reports.tell(report, shot.source.paths(report.frame).front().string());
    };
    withDisparity.addTo(settings.neighbours, settings.frames.front());
    Host::RenderJob job(withDisparity, std::move(controls), rolesOf(options), services);
    job.setOptionsText(recordedOptions(options));
    if (options.mask && !mask) job.setMask(openMask(*options.mask));

    bool interrupted = false;
    try {
        Host::SequenceRender render(shot.source, job, shot.output, settings);
        render.begin = [&](int frame, std::size_t now) {
            reports.enter(now);
            if (mask) job.setMask(openMask(mask->path(frame)));
        };
        render.report = [&](const Host::FrameResult& result) { reports.tell(result); };
        render.run();
    } catch (const Host::RenderInterrupted&) {
        interrupted = true;
    }
    reports.tellEnd(stages ? &*stages : nullptr);
    if (interrupted) throw Interrupted();
    return reports.failed() ? exitFailed : exitFine;
}

}  // namespace ViewTint::Cli
