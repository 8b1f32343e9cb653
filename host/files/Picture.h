#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

/// An ordinary picture in memory: planar floats, the lowest row first.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::string> channels;       ///< "R", "G", "B", perhaps "A"; a grey picture has "Y"
    std::vector<std::vector<float>> planes;  ///< one for each channel, width * height values
    FileIdentity identity = {};
};

enum class Colourspace { linear, sRGB };

/// Reads a PNG, JPEG, TIFF, DPX or single-view OpenEXR picture through OpenImageIO. Integer codes become 0 to 1;
/// with Colourspace::sRGB colour channels are decoded with the piecewise sRGB curve. Throws FileError, also where
/// the file was changed while it was read.
Picture readPicture(const std::filesystem::path& path, Colourspace colourspace);

/// Reads a one-channel picture with its integer codes as they are (255 stays 255). Throws FileError.
Picture readCodes(const std::filesystem::path& path);

/// sRGB for a picture stored as integers, linear for one stored as floats, sRGB also for one that can't be decoded.
/// Throws FileError for one that is refused before that.
Colourspace usualColourspace(const std::filesystem::path& path);

/// Interleaved RGB in another size, by a triangle filter.
std::vector<float> resizeRgb(const std::vector<float>& pixels, int width, int height, int newWidth, int newHeight);

/// How many threads the functions here may use, from the next call on.
void setPictureThreads(int count);

/// Writes 8-bit RGB, `pixels` top row first, interleaved. Temporary name and rename, as all files. Throws FileError.
void writeRgb8(const std::filesystem::path& path, int width, int height, const std::vector<std::uint8_t>& pixels);

}  // namespace ViewTint::Host
