#include "PullPush/PullPush.h"

#include "Common/Common.h"
#include "compute/Exception.h"
#include "vellumLevels.h"

namespace Vellum::PullPush {

namespace {

using Utils::BufferManagement::BufferManagedImage;
using Utils::BufferManagement::BufferManagedImageTuple;
using Vellum::Image::Box;
using Vellum::Image::Image;

constexpr auto floats = Vellum::Pixel::DataEnum::float32;

Image atOrigin(const Image& image) {
    return image.translate({-image.box().x0, -image.box().y0});
}

std::string described(const char* name, const Image& image) {
    return std::string(name) + " of " + std::to_string(image.box().width()) + " x " +
           std::to_string(image.box().height()) + " pixels and " + std::to_string(image.components()) + " component" +
           (image.components() == 1 ? "" : "s");
}

void checkAlike(const Image& image, const Image& weights, const Image& result) {
    const auto size = [](const Image& of) { return std::pair(of.box().width(), of.box().height()); };
    if (size(weights) == size(image) && size(result) == size(image) && weights.components() == 1 &&
        result.components() == image.components())
        return;
    Compute::fail("The pull-push fill can't take " + described("an image", image) + " with " +
                  described("weights", weights) + " and " + described("a result", result) +
                  ": all three need one size, the weights one component, the result as many as the image.");
}

/// The pyramid's levels but for the finest, which is the picture itself.
struct CoarserLevels {
    std::vector<Image>& values;
    std::vector<Image>& weights;
};

void fill(const Image& picture, const Image& weights, const CoarserLevels& levels, Image& result, int flags) {
    const std::size_t count = levels.values.size();
    if (count == 0) {
        Common::copy(picture, result);
        return;
    }
    pullPicture(picture, weights, levels.values[0], levels.weights[0], flags);
    for (std::size_t level = 1; level < count; ++level)
        pull(levels.values[level - 1], levels.weights[level - 1], levels.values[level], levels.weights[level], flags);
    for (std::size_t level = count - 1; level > 0; --level)
        push(levels.values[level], levels.weights[level], levels.values[level - 1], levels.weights[level - 1], flags);
    pushPicture(levels.values[0], levels.weights[0], picture, weights, result, flags);
}

}  // namespace

void PullPush::apply(const Image& image, const Image& weights, Image& result) {
    checkAlike(image, weights, result);
    if (image.box().empty()) return;
    const BufferManagedImage picture(bufferManager_, atOrigin(image));
    const BufferManagedImage pictureWeights(bufferManager_, atOrigin(weights));
    std::vector<Box> boxes = levelBoxes(atOrigin(image).box(), scale_);
    boxes.erase(boxes.begin());
    const BufferManagedImageTuple levelValues(bufferManager_, boxes, image.components(), floats);
    const BufferManagedImageTuple levelWeights(bufferManager_, boxes, 1, floats);
    const auto fillInto = [&](Image& filled) {
        fill(picture.image(), pictureWeights.image(), {levelValues.images(), levelWeights.images()}, filled,
             kernelFlags_);
    };
    Image resultAtOrigin = atOrigin(result);
    if (result.device() == bufferManager_.currentDevice()) {
        fillInto(resultAtOrigin);
        return;
    }
    const BufferManagedImage filled(bufferManager_, resultAtOrigin.info());
    fillInto(filled.image());
    resultAtOrigin.copyFrom(filled.image());
}

}  // namespace Vellum::PullPush
