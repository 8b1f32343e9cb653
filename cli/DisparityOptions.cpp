#include "cli/DisparityOptions.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/CallError.h"
#include "host/files/Picture.h"

namespace ViewTint::Cli {

namespace {

using Host::NewView;

/// Red, green, blue and alpha of an ordinary picture as a view.
NewView viewOf(const char* name, const std::string& path, Host::Picture&& picture) {
    const auto plane = [&](const char* channel) -> std::vector<float>* {
        for (std::size_t i = 0; i < picture.channels.size(); ++i)
            if (picture.channels[i] == channel) return &picture.planes[i];
        return nullptr;
    };
    NewView view{name, {}};
    const bool grey = plane("Y") != nullptr;
    for (const char* channel : {"R", "G", "B"}) {
        const auto* source = plane(grey ? "Y" : channel);
        if (!source)
            throw Host::FileError(
                fmt::format("Cannot use '{}': it has no red, green and blue channels; give a colour picture.", path));
        view.planes.push_back({channel, *source});
    }
    const auto* alpha = plane("A");
    view.planes.push_back({"A", alpha ? *alpha : std::vector<float>(picture.planes.front().size(), 1.0f)});
    return view;
}

}  // namespace

void DisparityOptions::addPictureTo(CLI::App& command) {
    command.add_option("RIGHT", right, "The right view, where FILE is the left one: two pictures of one size")
        ->type_name("RIGHT");
    command
        .add_option("--input-colourspace", colourspace,
                    "Colour of two such pictures (default: sRGB for integer formats, linear for float ones)")
        ->check(CLI::IsMember({"sRGB", "linear"}));
}

void DisparityOptions::addTo(CLI::App& command) {
    command
        .add_option("--disparity", from,
                    "Disparity and occlusion: estimated from the views, the file's own, or those of another multi-view "
                    "OpenEXR file or sequence (default: the file's, estimated where it has none)")
        ->check(notEmpty)
        ->type_name("estimate|file|FILE");
    command.add_flag("--write-disparity", save, "Writes estimated disparity and occlusion with the picture");
}

Host::MultiViewFile DisparityOptions::openPair(const std::string& left) const {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(*right, ignored))
        throw CallError(fmt::format("RIGHT: there is no file '{}'; check its name and folder.", *right));
    std::vector<NewView> views;
    std::vector<Host::MultiViewFile::ViewFile> sources;
    int width = 0, height = 0;
    for (const auto& [name, path] : {std::pair<const char*, std::string>{"left", left}, {"right", *right}}) {
        const Host::Colourspace space = !colourspace             ? Host::usualColourspace(path)
                                        : *colourspace == "sRGB" ? Host::Colourspace::sRGB
                                                                 : Host::Colourspace::linear;
        Host::Picture picture = Host::readPicture(path, space);
        if (!views.empty() && (picture.width != width || picture.height != height))
            throw Host::FileError(fmt::format("'{}' is {} x {} pixels, but '{}' is {} x {}; give both views one size.",
                                              path, picture.width, picture.height, left, width, height));
        width = picture.width, height = picture.height;
        sources.push_back({name, path, picture.identity});
        views.push_back(viewOf(name, path, std::move(picture)));
    }
    return Host::MultiViewFile::make(sources, width, height, views, Host::PixelStorage::single);
}

Host::ParallaxSettings DisparityOptions::settings(const std::pair<std::string, std::string>& views) const {
    Host::ParallaxSettings settings{.views = views, .save = save};
    try {
        settings.parse(from);
    } catch (const std::invalid_argument& error) {
        throw CallError(fmt::format("--disparity: {}", error.what()));
    }
    return settings;
}

void tellParallax(const Host::ParallaxReport& report, const std::string& file, bool quiet,
                  const std::function<void(const std::string& sentence)>& warn) {
    constexpr double half = 0.5;
    if (!quiet)
        put(stderr,
            fmt::format("viewtint: {}: disparity estimated; found in the other view: left {:.1f}%, right {:.1f}%\n",
                        printable(file), 100 * report.leftMatched, 100 * report.rightMatched));
    if ((report.leftMatched + report.rightMatched) / 2 < half)
        warn(fmt::format(
            "{}: less than half of the picture was found in the other view; what wasn't counts as occluded. "
            "Are these two views of one scene, left and right not exchanged?",
            file));
}

}  // namespace ViewTint::Cli
