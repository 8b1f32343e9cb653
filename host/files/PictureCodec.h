#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "host/files/Picture.h"
#include "host/files/PictureLimits.h"

namespace ViewTint::Host {

/// What reads and writes ordinary pictures. It lies in a library of its own (host/pictures) that is loaded when the
/// first of them is met: OpenImageIO brings more than two hundred other libraries, whose loading took 0.3 s of each
/// start.
class PictureCodec {
public:
    virtual ~PictureCodec() = default;
    virtual void setThreads(int count) const = 0;
    /// What may be read from now on; the library can't see this program's own.
    virtual void setLimits(const PictureLimits& limits) const = 0;
    /// As the functions of these names in host/files/Picture.h.
    virtual Picture readPicture(const std::filesystem::path& path, Colourspace colourspace) const = 0;
    virtual Picture readCodes(const std::filesystem::path& path) const = 0;
    virtual Colourspace usualColourspace(const std::filesystem::path& path) const = 0;
    virtual std::vector<float> resizeRgb(const std::vector<float>& pixels, int width, int height, int newWidth,
                                         int newHeight) const = 0;
    /// Writes to `temporary` in the format that the ending of `path` tells, and reads it back. Throws FileError.
    virtual void encodeRgb8(const std::filesystem::path& path, const std::filesystem::path& temporary, int width,
                            int height, const std::vector<std::uint8_t>& pixels) const = 0;

    /// The name of the library's one function, of type Get.
    static constexpr const char* entryPoint = "viewtintPictureCodec";
    using Get = const PictureCodec*();
};

}  // namespace ViewTint::Host
