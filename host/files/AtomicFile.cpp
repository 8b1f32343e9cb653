#include "host/files/AtomicFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <string>
#include <system_error>

#include "host/files/Descriptor.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

/// The unfinished files' names in fixed memory: a signal handler may neither lock nor allocate.
struct Slot {
    enum State { unused, filling, armed };
    std::atomic<int> state = unused;
    std::array<char, PATH_MAX> path{};
};
std::array<Slot, 64> slots;

/// The index of the slot taken, or -1: then only the destructor looks after the file.
int armSlot(const fs::path& path) {
    const std::string& text = path.native();
    if (text.size() >= PATH_MAX) return -1;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        int expected = Slot::unused;
        if (!slots[i].state.compare_exchange_strong(expected, Slot::filling)) continue;
        std::memcpy(slots[i].path.data(), text.c_str(), text.size() + 1);
        slots[i].state = Slot::armed;
        return static_cast<int>(i);
    }
    return -1;
}

void releaseSlot(int index) {
    if (index >= 0) slots[static_cast<std::size_t>(index)].state = Slot::unused;
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

bool syncPath(const fs::path& path) {
    const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return descriptor.value() >= 0 && ::fsync(descriptor.value()) == 0;
}

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

constexpr std::string_view temporaryPrefix = ".viewtint-", temporarySuffix = ".partial";

void checkTarget(const fs::path& shown, const fs::path& target) {
    std::error_code ignored;
    const fs::path folder = folderOf(target);
    if (!fs::is_directory(folder, ignored)) {
        throw FileError(fmt::format("Cannot write '{}': there is no folder '{}'; create it first.", shown.string(),
                                    folder.string()));
    }
    const fs::file_status status = fs::status(target, ignored);
    if (fs::is_directory(status)) {
        throw FileError(fmt::format("Cannot write '{}': it is a folder; give the name of a file.", shown.string()));
    }
    if (!fs::exists(status)) return;
    if (!fs::is_regular_file(status)) {
        throw FileError(
            fmt::format("Cannot write '{}': it is not an ordinary file; give another name.", shown.string()));
    }
    if (::access(target.c_str(), W_OK) != 0) {
        throw FileError(
            fmt::format("Cannot write '{}': the file is write-protected; give another name.", shown.string()));
    }
}

}  // namespace

AtomicFile::AtomicFile(const fs::path& target) : shownPath_(target) {
    std::error_code failed;
    target_ = fs::weakly_canonical(target, failed);
    if (failed) target_ = target;
    checkTarget(shownPath_, target_);
    create();
}

void AtomicFile::create() {
    static std::atomic<unsigned> counter = 0;
    for (;;) {
        temporaryPath_ =
            folderOf(target_) / fmt::format("{}{}-{}{}", temporaryPrefix, ::getpid(), ++counter, temporarySuffix);
        slot_ = armSlot(temporaryPath_);
        const Descriptor descriptor(::open(temporaryPath_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
        if (descriptor.value() >= 0) break;
        const int error = errno;
        releaseSlot(slot_);
        if (error == EEXIST) continue;  // another machine's process of the same number, in a shared folder
        throw FileError(fmt::format("Cannot write '{}': the folder '{}' takes no new file ({}).", shownPath_.string(),
                                    folderOf(target_).string(), errorText(error)));
    }
    pending_ = true;
}

AtomicFile::~AtomicFile() {
    if (pending_) ::unlink(temporaryPath_.c_str());
    releaseSlot(slot_);
}

void AtomicFile::commit() {
    if (!syncPath(temporaryPath_) || ::rename(temporaryPath_.c_str(), target_.c_str()) != 0) {
        throw FileError(fmt::format("Cannot write '{}': {}.", shownPath_.string(), errorText(errno)));
    }
    pending_ = false;
    syncPath(folderOf(target_));  // some file systems cannot sync a folder; the file itself is safe already
}

void checkWritable(const fs::path& target) {
    const AtomicFile probe(target);
}

void removeAbandonedFiles(const fs::path& folder) noexcept try {
    constexpr std::chrono::hours longestPause{1};
    for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder)) {
        const std::string name = entry.path().filename().string();
        std::error_code gone;
        const auto written = entry.last_write_time(gone);
        if (!gone && name.starts_with(temporaryPrefix) && name.ends_with(temporarySuffix) &&
            fs::file_time_type::clock::now() - written > longestPause)
            fs::remove(entry.path(), gone);
    }
} catch (const std::exception&) {
    // A folder that can't be listed keeps them.
}

void removeUnfinishedFiles() noexcept {
    for (Slot& slot : slots) {
        if (slot.state == Slot::armed) ::unlink(slot.path.data());
    }
}

}  // namespace ViewTint::Host
