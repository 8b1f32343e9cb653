#include "cli/ComparedFile.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "host/files/Picture.h"

namespace ViewTint::Cli {

namespace {

bool isExr(const std::filesystem::path& path) {
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending == ".exr";
}

Host::FileError noColours(const std::filesystem::path& path, const std::string& view) {
    return Host::FileError(
        fmt::format("Cannot compare '{}': the view '{}' has no red, green and blue channels.", path.string(), view));
}

}  // namespace

ComparedFile::ComparedFile(const std::filesystem::path& path) : path_(path) {
    if (!isExr(path)) {
        openPicture();
        return;
    }
    multiView_ = Host::MultiViewFile::open(path);
    views_ = multiView_->views();
    width_ = multiView_->width();
    height_ = multiView_->height();
}

void ComparedFile::openPicture() {
    views_ = {"main"};
    Host::Picture source = Host::readPicture(path_, Host::usualColourspace(path_));
    width_ = source.width;
    height_ = source.height;
    picture_ = Host::RgbPicture(width_, height_);
    const bool grey = source.planes.size() <= 2;
    const char* const names[] = {"R", "G", "B"};
    for (std::size_t c = 0; c < 3; ++c) {
        const auto place =
            grey ? source.channels.begin() : std::find(source.channels.begin(), source.channels.end(), names[c]);
        if (place == source.channels.end()) throw noColours(path_, "main");
        picture_.planes[c] = source.planes[std::size_t(place - source.channels.begin())];
    }
}

bool ComparedFile::hasView(const std::string& view) const {
    return std::find(views_.begin(), views_.end(), view) != views_.end();
}

Host::Box ComparedFile::visibleBox(const std::string& view) const {
    const Host::Box whole{0, 0, width_, height_};
    return multiView_ ? intersect(whole, multiView_->dataBox(view)) : whole;
}

std::vector<float> ComparedFile::plane(const std::string& view, const std::string& channel,
                                       const Host::Box& box) const {
    std::vector<float> values(std::size_t(box.pixels()));
    multiView_->read(view, channel, box, values.data(), box.width());
    return values;
}

Host::RgbPicture ComparedFile::colours(const std::string& view, const Host::Box& box) const {
    Host::RgbPicture result(box.width(), box.height());
    if (!multiView_) {
        for (std::size_t c = 0; c < 3; ++c)
            for (int y = 0; y < box.height(); ++y)
                std::copy_n(&picture_.planes[c][picture_.index(box.x0, box.y0 + y)], box.width(),
                            &result.planes[c][result.index(0, y)]);
        return result;
    }
    const char* const names[] = {"R", "G", "B"};
    for (std::size_t c = 0; c < 3; ++c) {
        if (!multiView_->hasChannel(view, names[c])) throw noColours(path_, view);
        result.planes[c] = plane(view, names[c], box);
    }
    return result;
}

std::optional<ViewVectors> ComparedFile::vectors(const std::string& view, const Host::Box& box) const {
    if (!multiView_ || views_.size() < 2 || (view != views_[0] && view != views_[1])) return std::nullopt;
    const bool isFirst = view == views_[0];
    const bool isLeft = view == "left" || (view != "right" && isFirst);
    const std::string layer = isLeft ? "disparityR" : "disparityL";
    if (!multiView_->hasChannel(view, layer + ".x") || !multiView_->hasChannel(view, layer + ".y")) return std::nullopt;
    ViewVectors result;
    result.otherView = isFirst ? views_[1] : views_[0];
    result.x = plane(view, layer + ".x", box);
    result.y = plane(view, layer + ".y", box);
    if (multiView_->hasChannel(view, "mask_occlusion.alpha"))
        result.occlusion = plane(view, "mask_occlusion.alpha", box);
    return result;
}

}  // namespace ViewTint::Cli
