#include "cli/renderSequence.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/CallError.h"
#include "cli/CommandContext.h"
#include "cli/Interruption.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "cli/ProgressBar.h"
#include "cli/Shot.h"
#include "cli/StageTable.h"
#include "host/graph/RenderJob.h"
#include "host/sequence/SequenceRender.h"

namespace ViewTint::Cli {

namespace {

/// What is told of frames: lines for people, or a JSON object on each line for farms.
class FrameReports {
public:
    FrameReports(std::size_t frames, bool json, bool quiet, ProgressBar& progress)
        : frames_(frames), json_(json), quiet_(quiet), progress_(progress) {}

    void tell(const Host::FrameResult& result) {
        using Status = Host::FrameResult::Status;
        ++counts_[static_cast<std::size_t>(result.status)];
        progress_.clear();
        if (json_) {
            std::string message;
            if (result.status == Status::failed)
                message = fmt::format(", \"message\": {}", Json::text(result.message).str());
            put(stdout, fmt::format("{{\"event\": \"frame\", \"frame\": {}, \"status\": \"{}\", \"file\": {}, "
                                    "\"seconds\": {:.3f}{}}}\n",
                                    result.frame, result.word(), Json::text(result.file.string()).str(), result.seconds,
                                    message));
        } else if (result.status == Status::failed) {
            complain(fmt::format("frame {}: {}", result.frame, result.message));
        }
    }
    void tellSummary(double seconds) const {
        const std::size_t ended = counts_[0] + counts_[1] + counts_[2];
        if (json_)
            put(stdout, fmt::format("{{\"event\": \"summary\", \"frames\": {}, \"written\": {}, \"skipped\": {}, "
                                    "\"failed\": {}, \"left\": {}, \"seconds\": {:.3f}}}\n",
                                    frames_, counts_[0], counts_[1], counts_[2], frames_ - ended, seconds));
        else if (!quiet_)
            put(stdout, fmt::format("{} frames: {} written, {} skipped, {} failed{} in {:.1f} s\n", frames_, counts_[0],
                                    counts_[1], counts_[2],
                                    ended < frames_ ? fmt::format(", {} left", frames_ - ended) : "", seconds));
    }
    bool anyFailed() const { return counts_[2] > 0; }

private:
    std::size_t frames_;
    bool json_, quiet_;
    ProgressBar& progress_;
    std::array<std::size_t, 3> counts_{};
};

std::size_t halfOfTheMachinesMemory() {
    return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 2;
}

}  // namespace

int renderSequence(RenderOptions& options) {
    goOnWithoutReader();
    const auto start = std::chrono::steady_clock::now();
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    Shot shot(options);
    Host::ControlValues& controls = options.controls.checked();
    Host::SequenceSettings settings;
    settings.frames = shot.frames;
    settings.savedView = shot.savedView;
    if (!options.stageFolder.empty()) throw CallError("--write-stages is for one picture, not for a sequence.");
    const auto mask = options.mask ? Host::FramePattern::parse(*options.mask) : std::nullopt;
    settings.skip = options.skipVerified   ? Host::SkipFrames::verified
                    : options.skipExisting ? Host::SkipFrames::whole
                                           : Host::SkipFrames::none;
    settings.memory = options.memoryBytes > 0 ? options.memoryBytes : halfOfTheMachinesMemory();

    ProgressBar progress(options.quiet || options.json ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    std::size_t place = 0;
    Host::RenderServices services;
    const double count = static_cast<double>(settings.frames.size());
    services.progress = [&](double done, const std::string&) {
        progress.show((static_cast<double>(place) + done) / count, fmt::format("frame {}", settings.frames[place]));
    };
    services.abort = &interruptFlag();
    services.warn = [&](const std::string& sentence) {
        progress.clear();
        warn(sentence);
    };
    settings.neighbours = Host::neighbourRequests(controls, rolesOf(options), shot.views);
    const auto cache = openCache(options, services);
    Host::ParallaxSource withDisparity(shot.source, rolesOf(options), shot.parallax, services);
    withDisparity.report = [&](const Host::ParallaxReport& report) {
        progress.clear();
        tellParallax(report, shot.source.paths(report.frame).front().string(), options.quiet || options.json);
    };
    withDisparity.addTo(settings.neighbours, settings.frames.front());
    Host::RenderJob job(withDisparity, std::move(controls), rolesOf(options), services);
    job.setOptionsText(recordedOptions(options));
    if (options.mask && !mask) job.setMask(openMask(*options.mask));

    FrameReports reports(settings.frames.size(), options.json, options.quiet, progress);
    bool interrupted = false;
    try {
        Host::SequenceRender render(shot.source, job, shot.output, settings);
        render.begin = [&](int frame, std::size_t now) {
            place = now;
            if (mask) job.setMask(openMask(mask->path(frame)));
        };
        render.report = [&](const Host::FrameResult& result) { reports.tell(result); };
        render.run();
    } catch (const Host::RenderInterrupted&) {
        interrupted = true;
    }
    progress.clear();
    reports.tellSummary(secondsSince(start));
    if (stages) {
        put(stdout, stages->text());
        printMostGpuMemory();
    }
    if (interrupted) throw Interrupted();
    return reports.anyFailed() ? exitFailed : exitFine;
}

}  // namespace ViewTint::Cli
