#pragma once

#include <filesystem>

#include "host/files/Descriptor.h"

namespace ViewTint::Host {

/// A file that appears under its name only when it is whole.
///
/// The constructor creates an empty temporary file in the target's folder; the writer fills `temporaryPath()` and
/// closes it; `commit()` syncs it and renames it over the target. Without a commit the destructor removes the
/// temporary file, so an exception on the way, an interruption among them, leaves the folder as it was. What a process
/// that was killed left behind is removed by the next one that writes the same name.
/// A target that is there keeps its mode, and where the system lets it its owner and group. One that is a link is
/// written through: the file it points to is replaced, the link stays.
class AtomicFile {
public:
    /// Throws FileError: the folder is missing or may not be written to, the target is a folder, a device, a link to
    /// nothing or write-protected.
    explicit AtomicFile(const std::filesystem::path& target);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// A name that begins with a dot, so that patterns for picture sequences pass it by.
    const std::filesystem::path& temporaryPath() const { return temporaryPath_; }

    /// Throws FileError when the disk refuses; the target is then what it was before.
    void commit();

private:
    void create();
    bool tryCreate(unsigned mode);
    void takeOverPermissions() const;

    std::filesystem::path shownPath_;
    std::filesystem::path target_;
    std::filesystem::path temporaryPath_;
    int slot_ = -1;
    Descriptor file_;  ///< holds a lock on the temporary file: it tells other processes that this one lives
    bool pending_ = false;
};

/// Checks that a file can be put at `target` without leaving anything there: worth doing before hours of work.
/// Throws FileError as AtomicFile's constructor does.
void checkWritable(const std::filesystem::path& target);

/// Removes the temporary files that processes which were killed have left in a folder. Failures are silent.
void removeAbandonedFiles(const std::filesystem::path& folder) noexcept;

/// Removes the temporary files of all AtomicFile objects that are alive. For the moment when the program must end
/// without unwinding; may be called from a signal handler.
void removeUnfinishedFiles() noexcept;

}  // namespace ViewTint::Host
