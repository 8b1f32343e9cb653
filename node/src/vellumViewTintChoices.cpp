#include "node/ViewTintChoices.h"

#include <algorithm>
#include <atomic>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"

namespace Cobalt::Research {

using Fresco::Image::Channel;
using Fresco::Image::ChannelSet;
using Vellum::Image::Box;
using Vellum::Image::Image;

ChannelSet maskChannels(int mode) {
    switch (mode) {
        case 1:
        case 2:
        case 5:
        case 6:
            return ChannelSet::fromMask(Fresco::Image::alphaMask);
        case 3:
        case 4:
            return ChannelSet::fromMask(Fresco::Image::rgbMask);
        default:
            return {};
    }
}

bool maskIsLuminance(int mode) {
    return mode == 3 || mode == 4;
}

bool maskIsInverted(int mode) {
    return mode == 2 || mode == 4 || mode == 6;
}

int smoothingRadius(float correctionScale, int width) {
    const float radius = 20.0f * correctionScale * (static_cast<float>(width) * 0.00048828125f);
    // Limited before the truncation as well: NaN and floats beyond the range of int have none.
    const float possible = radius > 0.0f ? std::min(radius, 40.0f) : 0.0f;
    return std::min(static_cast<int>(possible) + 2, 40);
}

int matcherMode(int matchingMode, int samples) {
    if (matchingMode == 0) return Vellum::Tone::ToneAligner::basic;
    return samples == 1 ? Vellum::Tone::ToneAligner::oneBlockSize : Vellum::Tone::ToneAligner::severalBlockSizes;
}

Channel occlusionChannel() {
    static std::atomic<Channel> cached{Fresco::Image::noChannel};
    Channel channel = cached.load(std::memory_order_relaxed);
    if (channel < Fresco::Image::firstNamedChannel) {
        channel = Fresco::Image::getChannel("mask_occlusion.alpha", true);
        cached.store(channel, std::memory_order_relaxed);
    }
    return channel;
}

ChannelSet colourChannels() {
    return ChannelSet::fromMask(Fresco::Image::rgbaMask);
}

ChannelSet disparityChannels() {
    return ChannelSet::fromMask(Fresco::Image::disparityMask);
}

std::vector<std::size_t> combineOcclusionFrames(const std::vector<Image>& frames, Image& out) {
    constexpr float hidden = 1.0f;
    out = frames.front().makeLike(*frames.front().device());
    Vellum::Common::replaceBroken(frames.front(), out, hidden);
    std::vector<std::size_t> broken{Vellum::Common::countBroken(frames.front())};
    for (std::size_t i = 1; i < frames.size(); ++i) {
        Image frame = frames[i];
        broken.push_back(Vellum::Common::countBroken(frame));
        if (broken.back() != 0) {
            frame = frame.makeLike(*frame.device());
            Vellum::Common::replaceBroken(frames[i], frame, hidden);
        }
        const Box common = intersect(out.box(), frame.box());
        if (!common.empty()) Vellum::Common::max(frame, out, out, common);
    }
    return broken;
}

Image fitImageToBox(const Image& source, const Box& box) {
    const Vellum::Image::Info wanted{box, 1, Vellum::Pixel::DataEnum::float32};
    if (source.info() == wanted) return source;
    Image fitted(wanted, *source.device());
    Vellum::Common::clear(fitted);
    Vellum::Common::copy(source, source.box(), fitted, source.box().x0, source.box().y0);
    return fitted;
}

std::string missingInputMessage(const std::string& inputName, const std::string& what) {
    return fmt::format("Input {} missing {}", inputName, what);
}

std::string missingUpstreamMessage(const std::string& inputName, const std::string& what, const std::string& node) {
    return fmt::format("Input {} missing {}. Please add an upstream {} node.", inputName, what, node);
}

std::string missingChannelMessage(const std::string& name) {
    return fmt::format("Channel selected as {} is missing. Please connect the correct input.", name);
}

std::string brokenPixelsMessage(const std::vector<std::pair<std::string, std::size_t>>& counts,
                                const std::string& corrected) {
    std::vector<std::string> parts;
    std::size_t total = 0, kept = 0;
    for (const auto& [picture, count] : counts) {
        if (count == 0) continue;
        const char* const pixels = !parts.empty() ? "" : count == 1 ? " pixel" : " pixels";
        parts.push_back(fmt::format("{}{} of {}", count, pixels, picture));
        total += count;
        if (picture == corrected) kept = count;
    }
    if (parts.empty()) return {};
    const std::string last = std::move(parts.back());
    parts.pop_back();
    const std::string which = fmt::format("{}{}{}", fmt::join(parts, ", "), parts.empty() ? "" : " and ", last);
    if (total == 1)
        return fmt::format("{} is not a number or beyond 1e12; it takes no part in the match{}.", which,
                           kept != 0 ? " and keeps its own values" : "");
    return fmt::format("{} are not numbers or beyond 1e12; they take no part in the match{}.", which,
                       kept != 0 ? fmt::format(", and those of {} keep their own values", corrected) : "");
}

}  // namespace Cobalt::Research
