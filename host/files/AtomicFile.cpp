#include "host/files/AtomicFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>

#include "base/Failure.h"
#include "base/Text.h"
#include "host/files/Descriptor.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

using Status = struct ::stat;

bool isStillNamed(const char* path, int descriptor) {
    Status opened{}, named{};
    return ::fstat(descriptor, &opened) == 0 && ::lstat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

/// The unfinished files' names in fixed memory: a signal handler may neither lock nor allocate.
struct Slot {
    enum State { unused, filling, armed };
    std::atomic<int> state = unused;
    int descriptor = -1;
    std::array<char, PATH_MAX> path{};
};
std::array<Slot, 64> slots;

/// The index of the slot taken, or -1: then only the destructor looks after the file.
int armSlot(const fs::path& path, int descriptor) {
    const std::string& text = path.native();
    if (text.size() >= PATH_MAX) return -1;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        int expected = Slot::unused;
        if (!slots[i].state.compare_exchange_strong(expected, Slot::filling)) continue;
        std::memcpy(slots[i].path.data(), text.c_str(), text.size() + 1);
        slots[i].descriptor = descriptor;
        slots[i].state = Slot::armed;
        return static_cast<int>(i);
    }
    return -1;
}

void releaseSlot(int index) {
    if (index >= 0) slots[static_cast<std::size_t>(index)].state = Slot::unused;
}

bool syncPath(const fs::path& path) {
    const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return descriptor.value() >= 0 && ::fsync(descriptor.value()) == 0;
}

fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// ---- temporary names: .viewtint-TARGET-KERNEL-NUMBER.partial

constexpr std::string_view temporaryPrefix = ".viewtint-", temporarySuffix = ".partial";

/// Locks are sure between processes of one running kernel; not every disk tells other machines of them.
const std::string& runningKernel() {
    static const std::string mark = [] {
        std::string id;
        std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
        return fmt::format("-{:0<8.8}-", id);
    }();
    return mark;
}

/// Room is left in a name's 255 bytes for what stands round it.
std::string shortened(const std::string& name) {
    constexpr std::size_t most = 200;
    if (name.size() <= most) return name;
    return fmt::format("{}~{:016x}", Cobalt::Base::beginningOf(name, most - 17), std::hash<std::string>()(name));
}

/// The number is 0 unless a target is written several times at once.
fs::path temporaryFor(const fs::path& target, unsigned number) {
    return folderOf(target) / fmt::format("{}{}{}{}{}", temporaryPrefix, shortened(target.filename().string()),
                                          runningKernel(), number, temporarySuffix);
}

bool isTemporary(std::string_view name) {
    return name.starts_with(temporaryPrefix) && name.ends_with(temporarySuffix);
}

/// Whether a file was written to within the last hour, by the clock of the disk that it is on.
bool isFresh(const fs::path& path, int descriptor) {
    constexpr std::time_t hour = 3600;
    const fs::path probe = temporaryFor(folderOf(path) / "now", static_cast<unsigned>(::getpid()));
    const Descriptor now(::open(probe.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (now.value() < 0) return true;
    ::unlink(probe.c_str());
    Status present{}, written{};
    return ::fstat(now.value(), &present) != 0 || ::fstat(descriptor, &written) != 0 ||
           present.st_mtime - written.st_mtime < hour;
}

/// Removes a temporary file if the process that made it has ended. That one holds a lock on it from its making to its
/// renaming, so whoever gets the lock and finds the same file under the name may remove it. True if the name is free.
bool removeIfAbandoned(const fs::path& path) {
    // Some network disks lock only what is open for writing.
    const Descriptor file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.value() < 0) return errno == ENOENT;
    Status status{};
    if (::fstat(file.value(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (::flock(file.value(), LOCK_EX | LOCK_NB) != 0) return false;  // in use, or on a disk without locks
    if (!isStillNamed(path.c_str(), file.value())) return true;
    const bool ofThisKernel = path.filename().native().find(runningKernel()) != std::string::npos;
    if (!ofThisKernel && isFresh(path, file.value())) return false;
    return ::unlink(path.c_str()) == 0;
}

/// Those of several processes that wrote one target at once. A number that was never reached ends the row.
void removeAbandonedFrom(const fs::path& target, unsigned number) noexcept try {
    for (fs::path path; path = temporaryFor(target, number), ::access(path.c_str(), F_OK) == 0; ++number)
        removeIfAbandoned(path);
} catch (const std::exception&) {
    // Left for the next.
}

void checkTarget(const fs::path& shown, const fs::path& target) {
    std::error_code ignored;
    const fs::path folder = folderOf(target);
    if (!fs::is_directory(folder, ignored)) {
        throw FileError(fmt::format("Cannot write '{}': there is no folder '{}'; create it first.", shown.string(),
                                    folder.string()));
    }
    const fs::file_status status = fs::status(target, ignored);
    if (!fs::exists(status) && fs::is_symlink(fs::symlink_status(target, ignored))) {
        throw FileError(
            fmt::format("Cannot write '{}': it is a link to '{}', which isn't there; remove the link, or "
                        "give another name.",
                        shown.string(), fs::read_symlink(target, ignored).string()));
    }
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

/// False where another process, or another object of this one, is writing the same target under this name.
bool AtomicFile::tryCreate(unsigned mode) {
    for (;;) {
        const char* path = temporaryPath_.c_str();
        file_ = Descriptor(::open(path, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, mode_t{mode}));
        if (file_) {
            // Whoever took it for abandoned before that holds the lock until it is gone. On a disk without locks nobody
            // gets one, and the file is let be.
            while (::flock(file_.value(), LOCK_EX) != 0 && errno == EINTR) {
            }
            if (isStillNamed(path, file_.value())) return true;
        } else if (errno != EEXIST) {
            throw FileError(fmt::format("Cannot write '{}': the folder '{}' takes no new file ({}).",
                                        shownPath_.string(), folderOf(target_).string(),
                                        Cobalt::Base::systemText(errno)));
        } else if (!removeIfAbandoned(temporaryPath_)) {
            return false;
        }
    }
}

void AtomicFile::create() {
    Status replaced{};
    const bool replaces = ::stat(target_.c_str(), &replaced) == 0;
    const unsigned mode = replaces ? (replaced.st_mode & 0777) | 0600 : 0666;
    unsigned number = 0;
    do
        temporaryPath_ = temporaryFor(target_, number++);
    while (!tryCreate(mode));
    slot_ = armSlot(temporaryPath_, file_.value());
    pending_ = true;
    removeAbandonedFrom(target_, number);
}

AtomicFile::~AtomicFile() {
    if (pending_) ::unlink(temporaryPath_.c_str());
    releaseSlot(slot_);
}

/// Of the file that is replaced.
void AtomicFile::takeOverPermissions() const {
    Status old{}, made{};
    if (::stat(target_.c_str(), &old) != 0 || ::fstat(file_.value(), &made) != 0) return;
    mode_t mode = old.st_mode & 07777;
    if (::fchown(file_.value(), old.st_uid, old.st_gid) != 0) {
        mode &= 01777;
        // What one group may do isn't meant for another.
        if (made.st_gid != old.st_gid && ::fchown(file_.value(), static_cast<uid_t>(-1), old.st_gid) != 0)
            mode = (mode & ~mode_t{070}) | (mode & 007) << 3;
    }
    (void)::fchmod(file_.value(), mode);
}

void AtomicFile::commit() {
    const auto failure = [&](const std::string& reason) {
        return FileError(fmt::format("Cannot write '{}': {}.", shownPath_.string(), reason));
    };
    if (!isStillNamed(temporaryPath_.c_str(), file_.value()))
        throw failure("its unfinished file was removed meanwhile; run again");
    takeOverPermissions();
    if (::fsync(file_.value()) != 0 || ::rename(temporaryPath_.c_str(), target_.c_str()) != 0)
        throw failure(Cobalt::Base::systemText(errno));
    pending_ = false;
    syncPath(folderOf(target_));  // some file systems cannot sync a folder; the file itself is safe already
}

void checkWritable(const fs::path& target) {
    const AtomicFile probe(target);
}

void removeAbandonedFiles(const fs::path& folder) noexcept try {
    for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder))
        if (isTemporary(entry.path().filename().string())) removeIfAbandoned(entry.path());
} catch (const std::exception&) {
    // A folder that can't be listed keeps them.
}

void removeUnfinishedFiles() noexcept {
    for (Slot& slot : slots) {
        if (slot.state == Slot::armed && isStillNamed(slot.path.data(), slot.descriptor)) ::unlink(slot.path.data());
    }
}

}  // namespace ViewTint::Host
