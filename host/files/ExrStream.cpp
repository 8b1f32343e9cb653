#include "host/files/ExrStream.h"

#include <Iex.h>
#include <fmt/format.h>

#include <cerrno>

#include "base/Failure.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

ExrStream::ExrStream(const std::filesystem::path& temporaryPath, const std::filesystem::path& shownPath)
    : Imf::OStream(shownPath.c_str()), shownPath_(shownPath), stream_(temporaryPath, std::ios::binary) {
    check(stream_.is_open());
}

void ExrStream::check(bool good) {
    if (good) return;
    if (firstError_.empty()) firstError_ = errno != 0 ? Cobalt::Base::systemText(errno) : "the disk refused";
    throw Iex::IoExc(firstError_);
}

void ExrStream::write(const char bytes[], int count) {
    errno = 0;
    check(static_cast<bool>(stream_.write(bytes, count)));
}

std::uint64_t ExrStream::tellp() {
    return static_cast<std::uint64_t>(std::streamoff(stream_.tellp()));
}

void ExrStream::seekp(std::uint64_t position) {
    errno = 0;
    check(static_cast<bool>(stream_.seekp(static_cast<std::streamoff>(position))));
}

void ExrStream::finish() {
    errno = 0;
    if (firstError_.empty()) {
        stream_.close();
        if (stream_) return;
        firstError_ = errno != 0 ? Cobalt::Base::systemText(errno) : "the disk refused";
    }
    throw FileError(fmt::format("Cannot write '{}': {}.", shownPath_.string(), firstError_));
}

}  // namespace ViewTint::Host
