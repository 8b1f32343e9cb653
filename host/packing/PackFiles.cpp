#include "host/packing/PackFiles.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "host/files/AtomicFile.h"

namespace ViewTint::Host {

namespace {

namespace fs = std::filesystem;

bool isExr(const fs::path& path) {
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending == ".exr";
}

std::string lastPart(const std::string& channel) {
    return channel.substr(channel.rfind('.') + 1);  // npos + 1 is 0
}

/// The first plane whose name, without layers, is `name`; -1 without one.
int findPlane(const Picture& picture, const std::string& name) {
    for (std::size_t i = 0; i < picture.channels.size(); ++i)
        if (lastPart(picture.channels[i]) == name) return int(i);
    return -1;
}

void requireSize(const fs::path& path, const char* what, const Picture& picture, const StereoPair& pair) {
    if (picture.width != pair.width || picture.height != pair.height)
        throw FileError(fmt::format("Cannot use the {} '{}': it is {} x {} pixels, but the left view is {} x {}.", what,
                                    path.string(), picture.width, picture.height, pair.width, pair.height));
}

Picture readColours(const ViewFiles& files, const PackRequest& request) {
    return readPicture(files.picture, request.colourspace ? *request.colourspace : usualColourspace(files.picture));
}

void takeColours(const fs::path& path, Picture&& picture, PackedView& view) {
    const bool grey = picture.planes.size() <= 2;  // one plane, perhaps with alpha
    const int red = grey ? 0 : findPlane(picture, "R");
    const int green = grey ? 0 : findPlane(picture, "G");
    const int blue = grey ? 0 : findPlane(picture, "B");
    if (red < 0 || green < 0 || blue < 0)
        throw FileError(fmt::format("Cannot use '{}': it has no red, green and blue channels; give a colour picture.",
                                    path.string()));
    view.red = picture.planes[std::size_t(red)];
    view.green = picture.planes[std::size_t(green)];
    view.blue = picture.planes[std::size_t(blue)];
    if (const int alpha = findPlane(picture, "A"); alpha >= 0)
        view.alpha = std::move(picture.planes[std::size_t(alpha)]);
}

/// Maps may have any channels; only ordinary grey pictures keep integer codes.
Picture readMap(const fs::path& path) {
    return isExr(path) ? readPicture(path, Colourspace::linear) : readCodes(path);
}

DisparityMap readDisparity(const fs::path& path, Side side, const PackRequest& request, const StereoPair& pair) {
    const Picture picture = readMap(path);
    requireSize(path, "disparity map", picture, pair);
    DisparityMap map(side, pair.width, pair.height);
    const double scale = request.disparityScale;
    const int x = findPlane(picture, "x");
    const int y = findPlane(picture, "y");
    if (x >= 0 && y >= 0) {
        const double toDisparity = (side == Side::left ? -1.0 : 1.0) / scale;
        const double toUp = (request.vectorY == VectorY::up ? 1.0 : -1.0) / scale;
        for (std::size_t i = 0; i < map.pixels(); ++i) {
            map.disparity[i] = float(picture.planes[std::size_t(x)][i] * toDisparity);
            map.vertical[i] = float(picture.planes[std::size_t(y)][i] * toUp);
        }
        return map;
    }
    if (picture.planes.size() != 1)
        throw FileError(
            fmt::format("Cannot use the disparity map '{}': it must have one channel with disparities or "
                        "the channels x and y with vectors.",
                        path.string()));
    for (std::size_t i = 0; i < map.pixels(); ++i) {
        const float value = picture.planes[0][i];
        if (std::isfinite(value) && value > 0.0f) map.disparity[i] = float(value / scale);
    }
    return map;
}

std::vector<float> readOcclusion(const fs::path& path, const StereoPair& pair) {
    Picture picture = readPicture(path, Colourspace::linear);
    requireSize(path, "occlusion map", picture, pair);
    std::vector<float> occlusion = std::move(picture.planes.front());
    for (float& value : occlusion)
        value = std::isfinite(value) ? std::clamp(value, 0.0f, 1.0f) : 1.0f;
    return occlusion;
}

void readMaps(const ViewFiles& files, Side side, const PackRequest& request, const StereoPair& pair, PackedView& view) {
    if (files.disparity) view.disparity = readDisparity(*files.disparity, side, request, pair);
    if (files.occlusion) view.occlusion = readOcclusion(*files.occlusion, pair);
    view.cast = files.cast;
}

StereoPair readPair(const PackRequest& request) {
    StereoPair pair;
    Picture left = readColours(request.left, request);
    pair.width = left.width;
    pair.height = left.height;
    takeColours(request.left.picture, std::move(left), pair.left);
    Picture right = readColours(request.right, request);
    requireSize(request.right.picture, "right view", right, pair);
    takeColours(request.right.picture, std::move(right), pair.right);
    readMaps(request.left, Side::left, request, pair, pair.left);
    readMaps(request.right, Side::right, request, pair, pair.right);
    return pair;
}

}  // namespace

PackReport packFiles(const PackRequest& request, const RowCheckpoint& checkpoint) {
    checkWritable(request.output);
    StereoPair pair = readPair(request);
    PackReport report{pair.width, pair.height, {}, {}};
    const PackedPair packed = packStereo(std::move(pair), checkpoint);
    report.left = packed.left;
    report.right = packed.right;
    if (checkpoint) checkpoint();
    writeMultiView(request.output, report.width, report.height, packed.views, request.storage);
    return report;
}

}  // namespace ViewTint::Host
