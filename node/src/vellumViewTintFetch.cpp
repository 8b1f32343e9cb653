#include <algorithm>
#include <limits>

#include "Common/Common.h"
#include "node/ViewTintChoices.h"
#include "node/ViewTintPlugin.h"

namespace Cobalt::Research {

namespace {

using Fresco::Image::ChannelSet;
using Vellum::Image::Image;

constexpr const char* sourceName = "Source";
constexpr const char* disparityNode = "Q_ParallaxField";

std::string missingDisparity() {
    return missingUpstreamMessage(sourceName, "disparity", disparityNode);
}

std::string missingOcclusion() {
    return missingUpstreamMessage(sourceName, "occlusion", disparityNode);
}

}  // namespace

ViewTintPlugin::Fetched ViewTintPlugin::fetch(Image& out, int inputIndex, int offset, const ChannelSet& needed,
                                              const ChannelSet& channels) const {
    const auto* source = dynamic_cast<const Iop*>(input(inputIndex, offset));
    if (!source || !source->info().channels.contains(needed)) return Fetched::missing;
    if (!fetchInputImage(*this, *this, out, inputNumber(inputIndex, offset), source->info().box, channels))
        return Fetched::nothing;
    return isOnHostDevice(out) ? Fetched::image : Fetched::missing;
}

bool ViewTintPlugin::report(Fetched fetched, const std::string& message) const {
    if (fetched == Fetched::missing) error(message);
    return fetched == Fetched::image;
}

bool ViewTintPlugin::fetchSourceViews(Image& left, Image& right) {
    const ChannelSet rgb = ChannelSet::fromMask(Fresco::Image::rgbMask);
    const std::string message = missingInputMessage(sourceName, "rgb");
    return report(fetch(left, 0, 1, rgb, colourChannels()), message) &&
           report(fetch(right, 0, 2, rgb, colourChannels()), message);
}

bool ViewTintPlugin::fetchDisparity(Image& disparity) {
    return report(fetch(disparity, 0, matchInputOffset, disparityChannels(), disparityChannels()), missingDisparity());
}

bool ViewTintPlugin::fetchOcclusionMask(Image& occlusion) {
    std::vector<Image> frames;
    if (!fetchOcclusionFrames(frames)) {
        error(missingDisparity());
        Cobalt::Sextant::abortCheck(*this);
        return false;
    }
    brokenOcclusions_ = combineOcclusionFrames(frames, occlusion);
    return true;
}

bool ViewTintPlugin::fetchOcclusionFrames(std::vector<Image>& frames) {
    const int count = stabilises() ? std::max(stabiliseOcclusionsNumberOfFrames, 1) : 1;
    frames.clear();
    for (int i = 0; i < count; ++i) {
        const int offset = i == 0 ? matchInputOffset : firstFrameOffset + i - 1;
        // The channel isn't asked for in the input's channels: where it is missing the host delivers 0.
        Image frame;
        if (!report(fetch(frame, 0, offset, {}, {occlusionChannel()}), missingOcclusion())) return false;
        frames.push_back(std::move(frame));
    }
    return true;
}

std::optional<Image> ViewTintPlugin::selection(const Vellum::Image::Box& box) {
    if (maskWith == 0) return std::nullopt;
    matchInputOffset = matchWhat + 1;
    const Image reference({box, 1, Vellum::Pixel::DataEnum::float32}, hostDevice());
    Image mask;
    return fetchMask(mask, reference) ? std::optional(mask) : std::nullopt;
}

bool ViewTintPlugin::fetchMask(Image& mask, const Image& reference) {
    if (maskWith == 0) {
        mask.reset({reference.box(), 1, Vellum::Pixel::DataEnum::float32}, *reference.device());
        Vellum::Common::fillConstant(mask, 1.0f);
        return true;
    }
    const int inputIndex = maskSourceInput(maskWith, 1);
    const ChannelSet channels = maskChannels(maskWith);
    Image fetched;
    if (!report(fetch(fetched, inputIndex, inputIndex == 0 ? matchInputOffset : 0, channels, channels),
                missingChannelMessage("Mask")))
        return false;
    // What is broken stays so on its way through sum and inversion, until the match takes it for unselected.
    if (maskIsLuminance(maskWith) && Vellum::Common::countBroken(fetched) != 0) {
        Image spoilt = fetched.makeLike(*fetched.device());
        Vellum::Common::replaceBroken(fetched, spoilt, std::numeric_limits<float>::quiet_NaN());
        fetched = spoilt;
    }
    if (maskIsLuminance(maskWith))
        fetched = Vellum::Common::weightedComponentSum(fetched, {0.299f, 0.587f, 0.114f, 0.0f}, false);
    mask = fitImageToBox(fetched, reference.box());
    // After the fit, so that an inverted mask selects what lies outside the mask's own picture.
    if (maskIsInverted(maskWith)) {
        Image inverted = mask.makeLike(*mask.device());
        Vellum::Common::invert(mask, inverted);
        mask = inverted;
    }
    return true;
}

}  // namespace Cobalt::Research
