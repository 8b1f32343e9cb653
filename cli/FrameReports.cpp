#include "cli/FrameReports.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <utility>

#include "cli/GpuOptions.h"
#include "cli/Interruption.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "cli/StageTable.h"

namespace ViewTint::Cli {

namespace {

using Members = std::vector<std::pair<std::string, Json>>;

void putEvent(const char* event, Members members) {
    members.emplace(members.begin(), "event", Json::text(event));
    put(stdout, Json::object(members).line() + "\n");
}

/// To milliseconds.
Json roundedSeconds(double seconds) {
    return Json::number(std::round(seconds * 1e3) / 1e3);
}

Json counted(std::size_t number) {
    return Json::integer(static_cast<long long>(number));
}

}  // namespace

FrameReports::FrameReports(const RenderOptions& options, std::vector<int> frames)
    : json_(options.json),
      quiet_(options.quiet),
      strict_(options.strict),
      frames_(std::move(frames)),
      progress_(quiet_ || json_ ? ProgressBar::Style::off : ProgressBar::Style::automatic) {}

Host::RenderServices FrameReports::services() {
    Host::RenderServices services;
    services.progress = [this](double done, const std::string& stage) {
        std::optional<std::size_t> place;
        {
            const std::scoped_lock lock(mutex_);
            place = place_;
        }
        if (!place) return progress_.show(done, stage);
        progress_.show((static_cast<double>(*place) + done) / static_cast<double>(frames_.size()),
                       fmt::format("frame {}", frames_[*place]));
    };
    services.abort = &interruptFlag();
    services.warn = [this](const std::string& sentence) { warn(sentence); };
    return services;
}

void FrameReports::enter(std::size_t place) {
    const std::scoped_lock lock(mutex_);
    place_ = place;
}

void FrameReports::warn(const std::string& sentence) {
    const std::scoped_lock lock(mutex_);
    warnLocked(sentence, place_ ? std::optional(frames_[*place_]) : std::nullopt);
}

void FrameReports::warnLocked(const std::string& sentence, std::optional<int> frame) {
    progress_.clear();
    if (!json_) return Cli::warn(sentence);
    Members members;
    if (frame) members.emplace_back("frame", Json::integer(*frame));
    members.emplace_back("message", Json::text(sentence));
    putEvent("warning", std::move(members));
}

void FrameReports::tell(const Host::ParallaxReport& report, const std::string& file) {
    const std::scoped_lock lock(mutex_);
    progress_.clear();
    const auto frame = frames_.empty() ? std::nullopt : std::optional(report.frame);
    tellParallax(report, file, quiet_ || json_, [&](const std::string& sentence) { warnLocked(sentence, frame); });
}

void FrameReports::tell(const Host::FrameResult& result) {
    const std::scoped_lock lock(mutex_);
    ++counts_[static_cast<std::size_t>(result.status)];
    if (frames_.empty()) still_ = result;
    progress_.clear();
    const bool failed = result.status == Status::failed;
    if (json_) {
        Members members{{"frame", frames_.empty() ? Json::null() : Json::integer(result.frame)},
                        {"status", Json::text(result.word())},
                        {"file", Json::text(result.file.string())},
                        {"seconds", roundedSeconds(result.seconds)}};
        if (failed) members.emplace_back("message", Json::text(result.message));
        putEvent("frame", std::move(members));
    } else if (failed) {
        complain(frames_.empty() ? result.message : fmt::format("frame {}: {}", result.frame, result.message));
    }
}

void FrameReports::tellEnd(const StageTable* stages) {
    const std::scoped_lock lock(mutex_);
    progress_.clear();
    tellSummary(secondsSince(start_));
    if (stages) tellStages(*stages);
}

void FrameReports::tellSummary(double seconds) {
    std::size_t ended = 0;
    for (const std::size_t number : counts_)
        ended += number;
    const std::size_t all = frames_.empty() ? 1 : frames_.size();
    if (json_) {
        putEvent("summary", {{"frames", counted(all)},
                             {"written", counted(count(Status::written))},
                             {"unmatched", counted(count(Status::unmatched))},
                             {"skipped", counted(count(Status::skipped))},
                             {"failed", counted(count(Status::failed))},
                             {"left", counted(all - ended)},
                             {"seconds", roundedSeconds(seconds)}});
    } else if (quiet_) {
        return;
    } else if (!frames_.empty()) {
        const auto some = [](std::size_t number, const char* what) {
            return number > 0 ? fmt::format(", {} {}", number, what) : std::string();
        };
        put(stdout, fmt::format("{} frames: {} written{}, {} skipped, {} failed{} in {:.1f} s\n", all,
                                count(Status::written), some(count(Status::unmatched), "unmatched"),
                                count(Status::skipped), count(Status::failed), some(all - ended, "left"), seconds));
    } else if (still_ && still_->status != Status::failed) {
        put(stdout, fmt::format("{}: written{} in {:.2f} s\n", printable(still_->file.string()),
                                still_->status == Status::unmatched ? " uncorrected" : "", seconds));
    }
}

void FrameReports::tellStages(const StageTable& stages) const {
    const auto gpu = mostGpuMemory();
    if (!json_) {
        put(stdout, stages.text());
        if (gpu) put(stdout, fmt::format("{}: at most {} MiB in use\n", gpu->name, gpu->mebibytes));
        return;
    }
    Members members{{"stages", stages.json()}};
    if (gpu) {
        members.emplace_back("gpu", Json::text(gpu->name));
        members.emplace_back("most_gpu_mib", counted(gpu->mebibytes));
    }
    putEvent("stats", std::move(members));
}

bool FrameReports::failed() const {
    const std::scoped_lock lock(mutex_);
    return count(Status::failed) > 0 || (strict_ && count(Status::unmatched) > 0);
}

}  // namespace ViewTint::Cli
