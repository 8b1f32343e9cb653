#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <streambuf>
#include <utility>

#include "host/files/Descriptor.h"

namespace ViewTint::Host {

/// The last bytes of a file that must come back as it was written: its content's length, the key that it was written
/// for, and a CRC-32 (as gzip's) over the content and these two. It stands behind the content, so that the content's
/// layout is the file's.
struct Seal {
    std::array<char, 4> magic{'S', 'E', 'A', 'L'};
    std::uint32_t checksum = 0;
    std::uint64_t contentBytes = 0;
    std::uint64_t key = 0;

    /// The checksum of a file whose content has this one.
    std::uint32_t checksumAfter(std::uint32_t contentChecksum) const;
};
static_assert(sizeof(Seal) == 24);

/// Takes a file's content and seals it.
class SealedWriter : public std::streambuf {
public:
    SealedWriter(Descriptor file, std::uint64_t key) : file_(std::move(file)), key_(key) {}

    /// Writes the seal and sees to it that the disk has everything. False where it refused any byte; error() tells why.
    bool finish();
    /// As errno has it; 0 where all is well.
    int error() const { return error_; }

protected:
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;

private:
    bool write(const void* bytes, std::size_t count);

    Descriptor file_;
    std::uint64_t key_;
    std::uint64_t contentBytes_ = 0;
    std::uint32_t checksum_ = 0;
    int error_ = 0;
};

/// Reads the content of a sealed file. At its end the checksum is tested: a reader that asks for more then finds its
/// stream bad, and not only at its end.
class SealedReader : public std::streambuf {
public:
    /// Null where the file's length or its seal isn't that of a file for this key.
    static std::unique_ptr<SealedReader> open(Descriptor file, std::uint64_t key);

protected:
    int_type underflow() override;
    std::streamsize xsgetn(char* bytes, std::streamsize count) override;

private:
    SealedReader(Descriptor file, const Seal& seal) : file_(std::move(file)), seal_(seal) {}
    std::size_t take(char* bytes, std::size_t count);

    Descriptor file_;
    Seal seal_;
    std::uint64_t done_ = 0;
    std::uint32_t checksum_ = 0;
    std::array<char, 4096> few_{};
};

}  // namespace ViewTint::Host
