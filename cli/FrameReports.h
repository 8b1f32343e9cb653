#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/ProgressBar.h"
#include "cli/RenderOptions.h"
#include "host/parallax/ParallaxSource.h"
#include "host/sequence/SequenceRender.h"

namespace ViewTint::Cli {

class StageTable;

/// What is told of a render while it goes on and at its end: a bar and sentences for people, or events for programs,
/// each a JSON object on a line of the standard output. May be told from any thread.
class FrameReports {
public:
    /// `frames` are those of a sequence in the order of rendering; of a still there are none.
    FrameReports(const RenderOptions& options, std::vector<int> frames = {});

    /// The host's services for a render that is reported here. This must outlive them.
    Host::RenderServices services();
    /// From now on this frame of the sequence is rendered.
    void enter(std::size_t place);

    void warn(const std::string& sentence);
    /// What was found in the other view; a warning where it is less than half.
    void tell(const Host::ParallaxReport& report, const std::string& file);
    void tell(const Host::FrameResult& result);
    /// The closing line, and the stages where they were counted.
    void tellEnd(const StageTable* stages);

    /// Whether a frame failed, or came out unmatched where that is to count as one.
    bool failed() const;

private:
    using Status = Host::FrameResult::Status;

    std::size_t count(Status status) const { return counts_[static_cast<std::size_t>(status)]; }
    void warnLocked(const std::string& sentence, std::optional<int> frame);
    void tellSummary(double seconds);
    void tellStages(const StageTable& stages) const;

    bool json_, quiet_, strict_;
    std::vector<int> frames_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    ProgressBar progress_;
    mutable std::mutex mutex_;
    std::optional<std::size_t> place_;
    std::array<std::size_t, Host::FrameResult::statuses> counts_{};
    std::optional<Host::FrameResult> still_;  ///< what became of it
};

}  // namespace ViewTint::Cli
