#include "host/files/SealedFile.h"

#include <libdeflate.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <ios>
#include <memory>

namespace ViewTint::Host {

static_assert(std::endian::native == std::endian::little, "seals are little-endian");

namespace {

constexpr std::size_t pieceBytes = std::size_t{256} << 10;  // stays in a core's cache between reading and summing

}  // namespace

std::uint32_t Seal::checksumAfter(std::uint32_t contentChecksum) const {
    const std::array numbers{contentBytes, key};
    return libdeflate_crc32(contentChecksum, numbers.data(), sizeof numbers);
}

bool SealedWriter::write(const void* bytes, std::size_t count) {
    const auto* next = static_cast<const char*>(bytes);
    while (count > 0 && error_ == 0) {
        const ssize_t written = ::write(file_.value(), next, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            error_ = written < 0 ? errno : EIO;
            break;
        }
        next += written;
        count -= static_cast<std::size_t>(written);
    }
    return error_ == 0;
}

std::streamsize SealedWriter::xsputn(const char* bytes, std::streamsize count) {
    const auto size = static_cast<std::size_t>(count);
    if (!write(bytes, size)) return 0;
    checksum_ = libdeflate_crc32(checksum_, bytes, size);
    contentBytes_ += size;
    return count;
}

SealedWriter::int_type SealedWriter::overflow(int_type byte) {
    const char one = traits_type::to_char_type(byte);
    return xsputn(&one, 1) == 1 ? byte : traits_type::eof();
}

bool SealedWriter::finish() {
    Seal seal;
    seal.contentBytes = contentBytes_;
    seal.key = key_;
    seal.checksum = seal.checksumAfter(checksum_);
    if (write(&seal, sizeof seal) && ::fsync(file_.value()) != 0) error_ = errno;
    return error_ == 0;
}

std::unique_ptr<SealedReader> SealedReader::open(Descriptor file, std::uint64_t key) {
    struct stat status {};
    if (!file || ::fstat(file.value(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    const auto bytes = static_cast<std::uint64_t>(status.st_size);
    Seal seal, expected;
    if (bytes < sizeof seal) return nullptr;
    expected.contentBytes = bytes - sizeof seal;
    const ssize_t count = ::pread(file.value(), &seal, sizeof seal, static_cast<off_t>(expected.contentBytes));
    const bool fits = count == ssize_t{sizeof seal} && seal.magic == expected.magic && seal.key == key &&
                      seal.contentBytes == expected.contentBytes;
    if (!fits) return nullptr;
    return std::unique_ptr<SealedReader>(new SealedReader(std::move(file), seal));
}

/// Bytes of the content. Throws at its end where it isn't what was sealed; the stream then goes bad.
std::size_t SealedReader::take(char* bytes, std::size_t count) {
    std::size_t taken = 0;
    const std::size_t wanted = std::min<std::uint64_t>(count, seal_.contentBytes - done_);
    while (taken < wanted) {
        const ssize_t got = ::read(file_.value(), bytes + taken, std::min(wanted - taken, pieceBytes));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) throw std::ios_base::failure("a result can't be read");
        checksum_ = libdeflate_crc32(checksum_, bytes + taken, static_cast<std::size_t>(got));
        taken += static_cast<std::size_t>(got);
    }
    done_ += taken;
    if (taken < count && seal_.checksumAfter(checksum_) != seal_.checksum)
        throw std::ios_base::failure("a result is damaged");
    return taken;
}

SealedReader::int_type SealedReader::underflow() {
    const std::size_t taken = take(few_.data(), few_.size());
    setg(few_.data(), few_.data(), few_.data() + taken);
    return taken > 0 ? traits_type::to_int_type(few_.front()) : traits_type::eof();
}

std::streamsize SealedReader::xsgetn(char* bytes, std::streamsize count) {
    const std::streamsize ready = std::min<std::streamsize>(egptr() - gptr(), count);
    std::copy_n(gptr(), ready, bytes);
    gbump(static_cast<int>(ready));
    return ready + static_cast<std::streamsize>(take(bytes + ready, static_cast<std::size_t>(count - ready)));
}

}  // namespace ViewTint::Host
