#include "host/sequence/SequenceSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace ViewTint::Host {

namespace {

std::string noFiles(const FramePattern& pattern) {
    std::error_code ignored;
    const bool isName = std::filesystem::exists(pattern.text(), ignored);
    return fmt::format("There are no files '{}', such as '{}'.{}", pattern.text(), pattern.path(1).filename().string(),
                       isName ? " In a file's name #, @ and %d stand for the frame number; rename the one that has "
                                "this very name."
                              : "");
}

}  // namespace

SequenceSource::SequenceSource(ViewPatterns patterns, Outside outside, Missing missing)
    : patterns_(std::move(patterns)),
      outside_(outside),
      missing_(missing),
      files_(patterns_.front().second.existing()) {
    for (const auto& [view, pattern] : patterns_) {
        const std::vector<int> others = pattern.existing();
        if (others.empty()) throw FileError(noFiles(pattern));
        std::erase_if(files_, [&](int file) { return !std::ranges::binary_search(others, file); });
    }
    if (files_.empty())
        throw FileError(fmt::format("There is no frame of which all views have files; the first is '{}'.",
                                    patterns_.front().second.text()));
}

std::vector<std::filesystem::path> SequenceSource::paths(int frame) const {
    std::vector<std::filesystem::path> paths;
    for (const auto& [view, pattern] : patterns_)
        paths.push_back(pattern.path(frame));
    return paths;
}

MultiViewFile SequenceSource::open(int file, const Channels& channels) const {
    if (patterns_.front().first.empty()) return MultiViewFile::open(paths(file).front(), channels);
    std::vector<MultiViewFile::ViewFile> files;
    for (const auto& [view, pattern] : patterns_)
        files.push_back({view, pattern.path(file)});
    return MultiViewFile::openViews(files, channels);
}

SequenceSource::~SequenceSource() {
    {
        const std::lock_guard holding(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (reader_.joinable()) reader_.join();
}

void SequenceSource::plan(std::vector<int> frames, NeighbourRequests neighbours, int readAhead) {
    {
        const std::lock_guard holding(mutex_);
        plan_ = std::move(frames);
        place_ = 0;
        neighbours_ = std::move(neighbours);
        readAhead_ = readAhead;
    }
    try {
        if (!reader_.joinable() && readAhead > 0) reader_ = std::thread([this] { readAheadUntilEnd(); });
    } catch (const std::system_error&) {
        // The system gives no more threads: frames are read when they are asked for.
    }
    changed_.notify_all();
}

void SequenceSource::enter(std::size_t placeInPlan) {
    const std::lock_guard holding(mutex_);
    place_ = placeInPlan;
    std::erase_if(slots_, [&](const auto& slot) { return slot.second->done && !wanted(slot.first); });
    changed_.notify_all();
}

bool SequenceSource::isInside(int number) const {
    return number > files_.front() && number < files_.back();
}

/// The number of the file that stands for a frame, if there is one.
std::optional<int> SequenceSource::standIn(int number) const {
    const auto next = std::ranges::lower_bound(files_, number);
    if (next != files_.end() && *next == number) return number;
    if (isInside(number) ? missing_ == Missing::fail : outside_ == Outside::empty) return std::nullopt;
    return next == files_.begin() ? files_.front() : *std::prev(next);
}

/// Whether a file may be asked for by the frame that is rendered or by one of the next.
bool SequenceSource::wanted(int file) const {
    const std::size_t end = std::min(plan_.size(), place_ + 1 + static_cast<std::size_t>(readAhead_));
    for (std::size_t i = place_; i < end; ++i)
        for (int number = plan_[i] - neighbours_.reach; number <= plan_[i] + neighbours_.reach; ++number)
            if (standIn(number) == file) return true;
    return false;
}

/// What is read of a file: of one that is looked at by its neighbours only, what they ask for.
SequenceSource::Channels SequenceSource::channelsOf(int file) const {
    const bool rendered =
        plan_.empty() || std::ranges::any_of(plan_, [&](int number) { return standIn(number) == file; });
    return rendered ? Channels() : Channels(neighbours_.channels);
}

/// The frames themselves before their neighbours, in the order of the plan.
std::optional<int> SequenceSource::nextToRead() const {
    const std::size_t end = std::min(plan_.size(), place_ + 1 + static_cast<std::size_t>(readAhead_));
    for (std::size_t i = place_; i < end; ++i)
        for (int distance = 0; distance <= neighbours_.reach; ++distance)
            for (const int number : {plan_[i] - distance, plan_[i] + distance})
                if (const auto file = standIn(number); file && !slots_.contains(*file)) return file;
    return std::nullopt;
}

void SequenceSource::readAheadUntilEnd() try {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        if (const auto file = nextToRead())
            read(*file, lock);
        else
            changed_.wait(lock);
    }
} catch (const std::bad_alloc&) {
    // Frames are read when they are asked for.
}

std::shared_ptr<SequenceSource::Slot> SequenceSource::read(int file, std::unique_lock<std::mutex>& lock) {
    const Channels channels = channelsOf(file);
    const auto slot = slots_[file] = std::make_shared<Slot>();
    ++filesRead_;
    lock.unlock();
    try {
        slot->picture = std::make_shared<MultiViewFile>(open(file, channels));
    } catch (...) {
        slot->failure = std::current_exception();
    }
    lock.lock();
    slot->done = true;
    changed_.notify_all();
    return slot;
}

void SequenceSource::require(int number) const {
    if (standIn(number) == number) return;
    const auto all = paths(number);
    const auto absent = std::ranges::find_if(all, [](const auto& path) { return !std::filesystem::exists(path); });
    const std::string name = (absent == all.end() ? all.front() : *absent).string();
    if (!isInside(number))
        throw FileError(fmt::format("There is no file '{}'; the sequence goes from {} to {}.", name, files_.front(),
                                    files_.back()));
    if (missing_ == Missing::fail)
        throw FileError(fmt::format("'{}' is missing; --missing hold takes the frame before it instead.", name));
}

std::shared_ptr<MultiViewFile> SequenceSource::frame(int number) {
    const auto file = standIn(number);
    if (!file && isInside(number)) require(number);
    if (!file) return nullptr;
    std::unique_lock lock(mutex_);
    if (*file != number && std::ranges::find(plan_, number) != plan_.end()) {
        ++filesRead_;
        lock.unlock();
        return std::make_shared<MultiViewFile>(open(*file));
    }
    const auto found = slots_.find(*file);
    const std::shared_ptr<Slot> slot = found == slots_.end() ? read(*file, lock) : found->second;
    changed_.wait(lock, [&] { return slot->done; });
    if (slot->failure) std::rethrow_exception(slot->failure);
    return slot->picture;
}

std::unique_ptr<MultiViewFile> SequenceSource::headers(int number) const {
    const auto file = standIn(number);
    return file ? std::make_unique<MultiViewFile>(open(*file, std::set<std::string>())) : nullptr;
}

std::vector<std::string> SequenceSource::views(int number) const {
    try {
        if (const auto picture = headers(number)) return picture->views();
    } catch (const FileError&) {
        // The render of this frame says so.
    }
    return {"left", "right"};
}

int SequenceSource::filesRead() const {
    const std::lock_guard holding(mutex_);
    return filesRead_;
}

}  // namespace ViewTint::Host
