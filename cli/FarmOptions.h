#pragma once

#include <string>
#include <vector>

#include "cli/RenderOptions.h"
#include "host/farm/Submission.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Cli {

/// The command line of one of the farm's commands: a shot with a render's options, or the name of frames that were
/// submitted.
class FarmOptions {
public:
    /// Where the shot itself must be told, not only the names of frames.
    enum class Names { shot, shotOrFrames };

    /// This must outlive the parsing.
    void addTo(CLI::App& command, Names names);
    void addChunkTo(CLI::App& command);
    void addSlurmTo(CLI::App& command);
    void addJsonTo(CLI::App& command);

    RenderOptions render;
    int threads = 0;  ///< 0: not told
    bool dryRun = false;
    bool json = false;

    /// Of the frames: what is told by `-o`, or else the name alone. Where each view has a file of its own, that of a
    /// view that was submitted. Throws CallError.
    Host::FramePattern framesPattern() const;
    /// Whether the shot is told, not only the names of frames.
    bool tellsShot() const { return !render.output.empty(); }
    /// The shot as it is to be submitted. To be rendered, its frames must have their files and the output's folder must
    /// take new ones. Throws CallError, Host::FileError, Host::SettingError.
    enum class Purpose { render, look };
    Host::Submission submission(Purpose purpose);
    /// Lets what was told replace what a submission had.
    void replaceIn(Host::Submission& submission) const;

private:
    std::vector<std::string> slurmOptions() const;
    void warnOfSmallMemory(std::size_t needed) const;

    CLI::App* command_ = nullptr;
    int chunk_ = 20;
    int cpusPerTask_ = 0;
    std::string partition_, memory_, time_;
    std::vector<std::string> otherOptions_;
};

}  // namespace ViewTint::Cli
