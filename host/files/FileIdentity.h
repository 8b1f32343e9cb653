#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace ViewTint::Host {

/// Which file was read, and as what: where two are equal, so are the pixels that were made of them. Taken from the file
/// that is open, and not from whatever bears its name later.
struct FileIdentity {
    std::filesystem::path path;  ///< canonical: one file has one name, wherever it was called from
    std::uint64_t device = 0, inode = 0, size = 0;
    std::int64_t seconds = 0, nanoseconds = 0;  ///< when it was last written
    std::string decoding = {};                  ///< how its codes became light, where a choice was made

    /// Of an open file.
    static FileIdentity of(const std::filesystem::path& path, int descriptor);
    /// Of the file that bears the name now; all zero where there is none. For libraries that open by name: take it
    /// before and after.
    static FileIdentity of(const std::filesystem::path& path);

    /// Throws FileError where the file is another one by now: what was read of it may be of both.
    void requireUnchanged(const FileIdentity& now, const std::filesystem::path& shown) const;

    /// Everything of it.
    std::string text() const;
    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

}  // namespace ViewTint::Host
