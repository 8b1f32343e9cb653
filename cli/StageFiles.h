#pragma once

#include <filesystem>
#include <optional>

#include "compute/Image.h"
#include "host/files/MultiViewFile.h"

namespace ViewTint::Cli {

/// Writes the intermediate pictures of a render into a folder: DIR/NAME.exr in single precision, R, G, B, perhaps A, or
/// Y alone.
class StageFiles {
public:
    /// Makes the folder where it isn't there. Throws Host::FileError, also where the folder takes no files.
    explicit StageFiles(std::filesystem::path folder);

    /// A failure waits for throwFailure(), so that it doesn't disturb the render.
    void write(const char* name, const Vellum::Image::Image& picture);
    /// Throws the first Host::FileError, if there was one.
    void throwFailure() const;

private:
    std::filesystem::path folder_;
    std::optional<Host::FileError> failure_;
};

}  // namespace ViewTint::Cli
