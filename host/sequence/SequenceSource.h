#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/graph/FrameSource.h"
#include "host/graph/NeighbourRequests.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Host {

/// The frames of a numbered sequence. Those that will be asked for next are read ahead by a thread of their own; each
/// file is read once as long as it stays within reach of the frame that is rendered.
class SequenceSource : public FrameSource {
public:
    enum class Outside { empty, hold };  ///< what frames before the first file and after the last are
    enum class Missing { fail, hold };   ///< what a frame without a file between others is
    /// A pattern for the files that hold all views, under an empty name, or one for each view.
    using ViewPatterns = std::vector<std::pair<std::string, FramePattern>>;
    /// Throws FileError where there are no files.
    SequenceSource(FramePattern pattern, Outside outside, Missing missing)
        : SequenceSource(ViewPatterns{{"", std::move(pattern)}}, outside, missing) {}
    SequenceSource(ViewPatterns patterns, Outside outside, Missing missing);
    ~SequenceSource() override;
    SequenceSource(const SequenceSource&) = delete;
    SequenceSource& operator=(const SequenceSource&) = delete;

    /// The file of a frame, or those of its views.
    std::vector<std::filesystem::path> paths(int frame) const;
    /// The numbers of the files that exist, in ascending order.
    const std::vector<int>& files() const { return files_; }
    /// A frame's picture without its pixels: no channel may be asked for. Null where there is none; throws FileError.
    std::unique_ptr<MultiViewFile> headers(int number) const;
    /// The views of a frame; "left" and "right" where it can't be read, which is told when it is rendered.
    std::vector<std::string> views(int frame) const;
    /// The frames that will be rendered, in order, and what each asks of others: of these no more is read than that.
    /// `readAhead` of the frames are read before they are asked for.
    void plan(std::vector<int> frames, NeighbourRequests neighbours, int readAhead);
    /// From now on this frame of the plan is rendered: what lies out of its reach is let go.
    void enter(std::size_t placeInPlan);

    /// Throws FileError, also where a frame between others is missing. A frame of the plan without a file of its own is
    /// another copy of the one that is held.
    std::shared_ptr<MultiViewFile> frame(int number) override;

    /// Throws FileError where a frame to be rendered has no file and may not be held either.
    void require(int number) const;

    /// How many files were read.
    int filesRead() const;

private:
    /// A file that is being read, was read, or couldn't be.
    struct Slot {
        std::shared_ptr<MultiViewFile> picture;
        std::exception_ptr failure;
        bool done = false;
    };

    using Channels = std::optional<std::set<std::string>>;

    MultiViewFile open(int file, const Channels& channels = {}) const;
    Channels channelsOf(int file) const;
    std::optional<int> standIn(int number) const;
    bool isInside(int number) const;
    bool wanted(int file) const;
    std::optional<int> nextToRead() const;
    void readAheadUntilEnd();
    std::shared_ptr<Slot> read(int file, std::unique_lock<std::mutex>& lock);

    ViewPatterns patterns_;
    Outside outside_;
    Missing missing_;
    std::vector<int> files_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> plan_;
    std::size_t place_ = 0;
    NeighbourRequests neighbours_;
    int readAhead_ = 0;
    std::map<int, std::shared_ptr<Slot>> slots_;  ///< by the file's number
    int filesRead_ = 0;
    bool ending_ = false;
    std::thread reader_;
};

}  // namespace ViewTint::Host
