#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/files/MultiViewFile.h"
#include "host/graph/RenderRecord.h"

namespace ViewTint::Cli {

/// What a multi-view file holds, without its pixels.
struct FileLayout {
    struct Channel {
        std::string name;  ///< without the view's name
        std::string type;  ///< "half", "float" or "uint"
    };
    struct View {
        std::string name;
        Host::Box dataBox;  ///< rows upward from the display window's lower left corner
        std::vector<Channel> channels;
    };
    int width = 0;  ///< of the display window
    int height = 0;
    int parts = 0;
    std::string compression;  ///< of the first part
    Host::RenderRecord made;  ///< how it was corrected, if it was
    bool unmatched = false;   ///< it was rendered so, and stayed as it was
    std::vector<View> views;
};

/// Reads the whole file, so that a damaged one is noticed. Throws FileError.
FileLayout readLayout(const std::filesystem::path& path);

/// What a render that corrects a view doesn't find in the file: phrases with the names of channels.
struct RenderOutlook {
    std::vector<std::string> missing;    ///< without which it fails
    std::vector<std::string> estimated;  ///< made from the views
    std::vector<std::string> zero;       ///< read as 0
};
RenderOutlook renderOutlook(const FileLayout& layout, const FileLayout::View& view);

}  // namespace ViewTint::Cli
