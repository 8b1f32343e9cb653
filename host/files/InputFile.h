#pragma once

#include <ImfIO.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "host/files/Descriptor.h"
#include "host/files/FileIdentity.h"

namespace ViewTint::Host {

/// A picture's file, opened once: everything that is read comes from the file that was found then, and its identity is
/// that file's. Also the stream beneath the OpenEXR library, which reads from it under a lock of its own.
class InputFile : public Imf::IStream {
public:
    /// Throws FileError where there is no such file, or it is a folder, a pipe or a device, or may not be read.
    explicit InputFile(const std::filesystem::path& path);

    const FileIdentity& identity() const { return identity_; }
    std::uint64_t size() const { return identity_.size; }
    /// Throws FileError where the file was written to since it was opened.
    void requireUnchanged() const;

    // ---- Imf::IStream

    /// Throws Iex::InputExc where the file ends before, Iex::IoExc where the disk fails. False at the end of the file.
    bool read(char bytes[], int count) override;
    std::uint64_t tellg() override { return position_; }
    void seekg(std::uint64_t position) override { position_ = position; }

private:
    std::size_t readAt(std::uint64_t position, char* bytes, std::size_t count) const;

    std::filesystem::path path_;
    Descriptor file_;
    FileIdentity identity_;
    std::uint64_t position_ = 0;
    std::vector<char> buffer_;  ///< headers are read byte by byte
    std::uint64_t bufferStart_ = 0;
    std::size_t buffered_ = 0;
};

}  // namespace ViewTint::Host
