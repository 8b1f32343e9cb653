#include "host/files/InputFile.h"

#include <Iex.h>
#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/Failure.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t bufferBytes = 16 << 10;

FileError cannotRead(const fs::path& path, const std::string& reason) {
    return FileError(fmt::format("Cannot read '{}': {}.", path.string(), reason));
}

/// Looks before it opens: opening a pipe waits for its writer, and opening a device may do anything.
int openOrdinary(const fs::path& path) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    if (!fs::exists(status)) throw cannotRead(path, "there is no such file; check its name and folder");
    if (fs::is_directory(status)) throw cannotRead(path, "it is a folder; give the name of a picture");
    if (!fs::is_regular_file(status))
        throw cannotRead(path, "it is a pipe or a device; write the picture to a file and give its name");
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0 && errno == EACCES) throw cannotRead(path, "no permission; change the file's mode");
    if (file < 0) throw cannotRead(path, Cobalt::Base::systemText(errno));
    return file;
}

}  // namespace

InputFile::InputFile(const fs::path& path)
    : Imf::IStream(path.c_str()),
      path_(path),
      file_(openOrdinary(path)),
      identity_(FileIdentity::of(path, file_.value())) {}

void InputFile::requireUnchanged() const {
    identity_.requireUnchanged(FileIdentity::of(path_, file_.value()), path_);
}

/// As many bytes as there are.
std::size_t InputFile::readAt(std::uint64_t position, char* bytes, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = ::pread(file_.value(), bytes + done, count - done, static_cast<off_t>(position + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw Iex::IoExc(Cobalt::Base::systemText(errno));
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

bool InputFile::read(char bytes[], int count) {
    if (count < 0) throw Iex::InputExc("a length is negative");
    auto left = static_cast<std::size_t>(count);
    while (left > 0) {
        const bool ready = position_ >= bufferStart_ && position_ < bufferStart_ + buffered_;
        std::size_t taken = 0;
        if (ready) {
            const auto place = static_cast<std::size_t>(position_ - bufferStart_);
            taken = std::min(left, buffered_ - place);
            std::memcpy(bytes, buffer_.data() + place, taken);
        } else if (left >= bufferBytes) {
            taken = readAt(position_, bytes, left);
        } else {
            buffer_.resize(bufferBytes);
            buffered_ = 0;
            bufferStart_ = position_;
            buffered_ = readAt(position_, buffer_.data(), bufferBytes);
            if (buffered_ > 0) continue;
        }
        if (taken == 0) throw Iex::InputExc("the file ends too early");
        bytes += taken;
        left -= taken;
        position_ += taken;
    }
    return position_ < size();
}

}  // namespace ViewTint::Host
