#include "host/sequence/FrameCheck.h"

#include <fmt/format.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstddef>
#include <mutex>

#include "host/files/MultiViewFile.h"
#include "host/graph/RenderJob.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

/// `--name value` one by one: values may hold blanks, names begin with two hyphens.
std::vector<std::string> optionsIn(const std::string& text) {
    std::vector<std::string> options;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(" --", begin), text.size());
        options.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return options;
}

/// What the one has and the other hasn't.
std::string difference(const std::string& has, const std::string& hasNot) {
    const std::vector<std::string> others = optionsIn(hasNot);
    std::string text;
    for (const std::string& option : optionsIn(has))
        if (std::ranges::find(others, option) == others.end()) text += (text.empty() ? "" : " ") + option;
    return text.empty() ? "nothing" : text;
}

}  // namespace

FrameCheck checkFrame(int frame, const fs::path& file, const RenderRecord& wanted) {
    using State = FrameCheck::State;
    std::error_code ignored;
    if (!fs::exists(file, ignored)) return {frame, file, State::missing, "it isn't there"};
    try {
        const auto made = RenderRecord::of(MultiViewFile::check(file));
        if (made.version.empty())
            return {frame, file, State::otherVersion, "it doesn't tell that this program made it"};
        if (made.version != wanted.version)
            return {frame, file, State::otherVersion,
                    fmt::format("it was made by {} instead of {}", made.version, wanted.version)};
        const std::string madeWith = made.controls + " " + made.options;
        const std::string wantedWith = wanted.controls + " " + wanted.options;
        if (madeWith != wantedWith)
            return {frame, file, State::otherControls,
                    fmt::format("it was made with {} instead of {}", difference(madeWith, wantedWith),
                                difference(wantedWith, madeWith))};
    } catch (const FileError& error) {
        std::string sentence = error.what();
        if (sentence.ends_with('.')) sentence.pop_back();
        return {frame, file, State::damaged, sentence};
    }
    return {frame, file};
}

std::vector<FrameCheck> checkFrames(const FramePattern& files, std::span<const int> frames, const RenderRecord& wanted,
                                    const std::function<void(double)>& progress, const std::atomic<bool>* abort) {
    std::vector<FrameCheck> checks(frames.size());
    std::mutex telling;
    std::size_t done = 0;
    tbb::parallel_for(std::size_t{0}, frames.size(), [&](std::size_t i) {
        if (abort && *abort) return;
        checks[i] = checkFrame(frames[i], files.path(frames[i]), wanted);
        const std::lock_guard holding(telling);
        ++done;
        if (progress) progress(static_cast<double>(done) / static_cast<double>(frames.size()));
    });
    if (abort && *abort) throw RenderInterrupted();
    return checks;
}

}  // namespace ViewTint::Host
