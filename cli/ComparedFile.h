#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/files/MultiViewFile.h"
#include "host/files/Picture.h"
#include "host/measures/RgbPicture.h"

namespace ViewTint::Cli {

/// A view's way to the other view, a value for each pixel of the box that was asked for.
struct ViewVectors {
    std::string otherView;
    std::vector<float> x;
    std::vector<float> y;
    std::vector<float> occlusion;  ///< empty where the file has none
};

/// A picture to compare: multi-view OpenEXR, or an ordinary picture with the one view "main". Ordinary pictures of
/// integer codes are taken as sRGB, those of floats as linear light.
class ComparedFile {
public:
    /// Throws FileError.
    explicit ComparedFile(const std::filesystem::path& path);

    const std::filesystem::path& path() const { return path_; }
    const std::vector<std::string>& views() const { return views_; }
    bool hasView(const std::string& view) const;
    int width() const { return width_; }
    int height() const { return height_; }
    /// The view's data window as far as it lies in the picture.
    Host::Box visibleBox(const std::string& view) const;

    /// Red, green and blue inside a box, 0 outside the data window. Throws FileError where the view lacks them.
    Host::RgbPicture colours(const std::string& view, const Host::Box& box) const;
    /// Empty for views without disparity, or without another view.
    std::optional<ViewVectors> vectors(const std::string& view, const Host::Box& box) const;

private:
    std::vector<float> plane(const std::string& view, const std::string& channel, const Host::Box& box) const;
    void openPicture();

    std::filesystem::path path_;
    std::vector<std::string> views_;
    int width_ = 0;
    int height_ = 0;
    std::optional<Host::MultiViewFile> multiView_;  ///< or else the picture
    Host::RgbPicture picture_;
};

}  // namespace ViewTint::Cli
