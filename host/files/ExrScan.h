#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/files/InputFile.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Host {

/// What the header of one part promises, as far as memory depends on it.
struct ExrPart {
    std::string type;  ///< empty where the header has none
    bool tiled = false;
    bool deep = false;
    bool severalLevels = false;
    std::string subsampledChannel;  ///< the first one; empty where there is none
};

/// Looks through an OpenEXR file's headers and tables of chunks without taking more than some kilobytes, before the
/// library takes what they promise. Throws FileError for what is beyond PictureLimits::current(), for headers that
/// can't be, and for tables of chunks that are incomplete or lead out of the file. The stream is at its start again.
std::vector<ExrPart> scanExr(InputFile& file, const std::filesystem::path& path);

/// That it is truncated or damaged.
FileError damagedFile(const std::filesystem::path& path, const std::string& detail);

}  // namespace ViewTint::Host
