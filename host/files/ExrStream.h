#pragma once

#include <ImfIO.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace ViewTint::Host {

/// The stream beneath an OpenEXR output file. OpenEXR writes its table of chunks in a destructor and keeps errors
/// there to itself; this stream remembers the first one, and `finish()` tells it.
class ExrStream : public Imf::OStream {
public:
    /// Writes to `temporaryPath`; `shownPath` is the name in messages.
    ExrStream(const std::filesystem::path& temporaryPath, const std::filesystem::path& shownPath);

    void write(const char bytes[], int count) override;
    std::uint64_t tellp() override;
    void seekp(std::uint64_t position) override;

    /// Call after the output file object is gone. Throws FileError unless every byte has reached the system.
    void finish();

private:
    void check(bool good);

    std::filesystem::path shownPath_;
    std::ofstream stream_;
    std::string firstError_;
};

}  // namespace ViewTint::Host
