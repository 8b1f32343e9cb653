#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/files/Descriptor.h"
#include "host/graph/RenderRecord.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Host {

/// A shot that was handed to a farm: what is rendered, how, and by which jobs. It is kept in a folder beside the
/// frames, `out.####.exr.farm`, together with the jobs' logs, so that it can be asked about and completed later.
struct Submission {
    struct Job {
        long id = 0;
        std::vector<std::string> chunks = {};  ///< frames of each task of an array; empty: the job that verifies
    };

    RenderRecord record;                    ///< what each frame's file is to tell
    std::string program;                    ///< the `viewtint` that renders, with its folder
    std::filesystem::path folder;           ///< where the jobs run
    std::string output;                     ///< the frames' names, with their folder
    std::vector<std::string> words;         ///< of `render`: its FILE and options, without output and frames
    std::vector<int> frames;                ///< in ascending order
    int chunk = 1;                          ///< so many frames at most are one task
    std::vector<std::string> slurmOptions;  ///< "--partition=film"
    std::vector<Job> jobs;                  ///< those of earlier submissions too, as long as they are in the queue

    FramePattern pattern() const;
    std::filesystem::path farmFolder() const { return farmFolderOf(pattern()); }
    std::filesystem::path logFolder() const { return farmFolder() / "logs"; }

    static std::filesystem::path farmFolderOf(const FramePattern& output);
    static bool exists(const FramePattern& output);
    /// Whether jobs are made of a record, or it is looked at.
    enum class Use { look, submit };
    /// Throws FarmError where there is none, it isn't whole, is of other frames, or could have been written by others;
    /// where jobs are made of it also where it belongs to another user.
    static Submission load(const FramePattern& output, Use use);
    /// Creates the folders for the record and the logs. Throws FarmError.
    void makeFolders() const;
    /// Throws FileError, FarmError.
    void save() const;

    /// One that holds this keeps others from changing the submission. Creates the folder. Throws FarmError.
    class Lock {
    public:
        explicit Lock(const FramePattern& output);

    private:
        Descriptor file_;
    };
};

/// Frames in ascending order, so many at most in each text, as `--frames` takes them.
std::vector<std::string> chunksOf(const std::vector<int>& frames, int size);

}  // namespace ViewTint::Host
