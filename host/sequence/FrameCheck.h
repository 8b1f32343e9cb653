#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/graph/RenderRecord.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Host {

/// What is found under a frame's name.
struct FrameCheck {
    enum class State {
        fine,
        missing,
        damaged,       ///< can't be read to its end
        otherVersion,  ///< made by another release or build of this program, or by another program
        otherControls  ///< made with other controls or options
    };
    int frame = 0;
    std::filesystem::path file;
    State state = State::fine;
    std::string detail = {};  ///< why it isn't fine: a sentence without its full stop
};

/// Reads a file to its end, and compares how it was made with how it should have been.
FrameCheck checkFrame(int frame, const std::filesystem::path& file, const RenderRecord& wanted);

/// Several frames at once, in their order. `progress` gets the share that is done, from any thread; `abort` may be
/// null. Throws RenderInterrupted.
std::vector<FrameCheck> checkFrames(const FramePattern& files, std::span<const int> frames, const RenderRecord& wanted,
                                    const std::function<void(double)>& progress, const std::atomic<bool>* abort);

}  // namespace ViewTint::Host
