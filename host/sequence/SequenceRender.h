#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/graph/RenderJob.h"
#include "host/sequence/FramePattern.h"
#include "host/sequence/SequenceSource.h"

namespace ViewTint::Host {

/// What became of one frame.
struct FrameResult {
    /// `unmatched`: written as it came in, because too little of it is visible in both views.
    enum class Status { written, unmatched, skipped, failed };
    static constexpr int statuses = 4;
    /// The status as it is written above.
    const char* word() const;
    int frame = 0;
    std::filesystem::path file;
    Status status = Status::written;
    std::string message;  ///< why it failed
    double seconds = 0;   ///< of the render; reading and writing go on beside it
};

/// Which frames are left out because their file is there.
enum class SkipFrames {
    none,
    whole,     ///< those whose file can be read to its end
    verified,  ///< of these, those that were made with the same controls by the same version
};

struct SequenceSettings {
    std::vector<int> frames;            ///< in the order of rendering
    NeighbourRequests neighbours = {};  ///< what a render looks at in other frames
    SkipFrames skip = SkipFrames::none;
    std::size_t memory = 0;      ///< bytes that frames in flight may take; at least one frame and its neighbours are
    std::string savedView = {};  ///< where each view has a file of its own: that of this view is written
};

/// What a frame and its neighbours take while it is rendered, about: bytes.
std::size_t memoryForOneFrame(const MultiViewFile& picture, int reach);

/// Throws FileError where the frames can't be put under these names: one is a picture that is read, or the folder takes
/// no files.
void checkOutput(const SequenceSource& source, const FramePattern& output, const std::vector<int>& frames);

/// Renders the frames of a sequence: the next are read and the last are written while one is rendered.
class SequenceRender {
public:
    /// All arguments must outlive this.
    SequenceRender(SequenceSource& source, RenderJob& job, const FramePattern& output, SequenceSettings settings)
        : source_(source), job_(job), output_(output), settings_(std::move(settings)) {}

    /// Called before a frame is rendered; what it throws is the frame's failure.
    std::function<void(int frame, std::size_t place)> begin;
    /// Called once for each frame that ended, by one thread at a time, in the order of ending.
    std::function<void(const FrameResult& result)> report;

    /// A frame that fails doesn't stop the others. Throws RenderInterrupted when frames that were rendered are written,
    /// and FileError where the output can't be right from the start; leaves no half-written file.
    void run();

private:
    class Writer;

    bool skips(int frame) const;
    void renderFrame(std::size_t place, Writer& writer);

    SequenceSource& source_;
    RenderJob& job_;
    const FramePattern& output_;
    SequenceSettings settings_;
};

}  // namespace ViewTint::Host
