#include "host/files/FileIdentity.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <system_error>
#include <tuple>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace {

FileIdentity identityOf(const std::filesystem::path& path, const struct stat& status) {
    std::error_code ignored;
    FileIdentity identity;
    identity.path = std::filesystem::canonical(path, ignored);
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    identity.size = static_cast<std::uint64_t>(status.st_size);
    identity.seconds = status.st_mtim.tv_sec;
    identity.nanoseconds = status.st_mtim.tv_nsec;
    return identity;
}

}  // namespace

FileIdentity FileIdentity::of(const std::filesystem::path& path, int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? identityOf(path, status) : FileIdentity();
}

FileIdentity FileIdentity::of(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? identityOf(path, status) : FileIdentity();
}

void FileIdentity::requireUnchanged(const FileIdentity& now, const std::filesystem::path& shown) const {
    const auto known = [](const FileIdentity& file) {
        return std::tuple(file.device, file.inode, file.size, file.seconds, file.nanoseconds);
    };
    if (known(now) == known(*this)) return;
    throw FileError(fmt::format("Cannot read '{}': it was changed while it was read; run again when it is complete.",
                                shown.string()));
}

std::string FileIdentity::text() const {
    return fmt::format("{}:{}:{}:{}:{}.{:09}:{}", path.string(), device, inode, size, seconds, nanoseconds, decoding);
}

}  // namespace ViewTint::Host
