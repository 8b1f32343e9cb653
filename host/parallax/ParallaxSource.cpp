#include "host/parallax/ParallaxSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <system_error>

#include "base/Exception.h"
#include "base/Failure.h"
#include "host/graph/ProjectViews.h"
#include "host/graph/ReaderOps.h"
#include "host/graph/RenderJob.h"
#include "host/parallax/ParallaxField.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Host {

namespace {

using Fresco::Image::Channel;
using Fresco::Image::ChannelSet;
using Fresco::Image::ImagePlane;
using Fresco::Image::OutputContext;

bool isDisparity(const ChannelRoles::Role& role) {
    return role.channel >= Fresco::Image::firstDisparityChannel &&
           role.channel < Fresco::Image::firstDisparityChannel + Channel{4};
}
bool isColour(const ChannelRoles::Role& role) {
    return role.channel <= Fresco::Image::blueChannel;
}
/// Disparity and occlusion.
bool isTaken(const ChannelRoles::Role& role) {
    return role.channel > Fresco::Image::alphaChannel;
}

std::vector<float> pixelsOf(const ImagePlane& plane, int component) {
    const auto& box = plane.box();
    std::vector<float> pixels;
    pixels.reserve(static_cast<std::size_t>(box.pixels()));
    for (int y = box.y0; y < box.y1; ++y)
        pixels.insert(pixels.end(), plane.at(box.x0, y, component), plane.at(box.x0, y, component) + box.width());
    return pixels;
}

double shareBelowHalf(const std::vector<float>& values) {
    const auto below = std::ranges::count_if(values, [](float value) { return value < 0.5f; });
    return static_cast<double>(below) / static_cast<double>(std::max<std::size_t>(values.size(), 1));
}

}  // namespace

void ParallaxSettings::parse(const std::string& text) {
    from = text.empty()         ? DisparityFrom::fileOrEstimate
           : text == "estimate" ? DisparityFrom::estimate
           : text == "file"     ? DisparityFrom::file
                                : DisparityFrom::otherFile;
    if (from != DisparityFrom::otherFile) return;
    const auto pattern = FramePattern::parse(text);
    std::error_code ignored;
    if (!pattern && !std::filesystem::exists(text, ignored))
        throw std::invalid_argument(
            fmt::format("there is no file '{}' with disparity; give estimate, file or the name of one.", text));
    otherFile = [pattern, text](int frame) { return pattern ? pattern->path(frame) : std::filesystem::path(text); };
}

ParallaxSource::ParallaxSource(FrameSource& frames, ChannelRoles roles, ParallaxSettings settings,
                               const RenderServices& services)
    : frames_(frames), roles_(std::move(roles)), settings_(std::move(settings)), services_(services) {}

void ParallaxSource::addTo(NeighbourRequests& neighbours, int frame) {
    if (neighbours.reach == 0 || !estimatesFor(frame)) return;
    for (const ChannelRoles::Role& role : roles_.all())
        if (isColour(role)) neighbours.channels.insert(role.fileChannel);
}

bool ParallaxSource::lacksDisparity(const MultiViewFile& picture) const {
    const auto& all = roles_.all();
    return std::ranges::all_of(std::array{settings_.views.first, settings_.views.second}, [&](const std::string& view) {
        return std::ranges::none_of(all, [&](const ChannelRoles::Role& role) {
            return isDisparity(role) && picture.hasChannel(view, role.fileChannel);
        });
    });
}

bool ParallaxSource::estimatesFor(int number) try {
    if (settings_.from == DisparityFrom::estimate) return true;
    const auto picture = settings_.from == DisparityFrom::fileOrEstimate ? frames_.frame(number) : nullptr;
    return picture && lacksDisparity(*picture);
} catch (const FileError&) {
    return false;  // the render of this frame says so
}

std::shared_ptr<MultiViewFile> ParallaxSource::frame(int number) {
    auto picture = frames_.frame(number);
    if (!picture || !picture->addedFrom().empty() || settings_.from == DisparityFrom::file) return picture;
    if (settings_.from == DisparityFrom::otherFile) {
        takeFrom(settings_.otherFile(number), *picture);
        return picture;
    }
    const auto& views = picture->views();
    for (const std::string& view : {settings_.views.first, settings_.views.second})
        if (std::ranges::find(views, view) == views.end()) return picture;  // the render says what is missing
    if (settings_.from == DisparityFrom::estimate || lacksDisparity(*picture)) {
        for (const ChannelRoles::Role& role : roles_.all())
            if (isColour(role) && (!picture->hasChannel(settings_.views.first, role.fileChannel) ||
                                   !picture->hasChannel(settings_.views.second, role.fileChannel)))
                return picture;
        estimate(number, picture);
    }
    return picture;
}

void ParallaxSource::estimate(int number, const std::shared_ptr<MultiViewFile>& picture) const {
    if (services_.aborted()) throw RenderInterrupted();
    // The node's views 1 and 2 are the pair, whatever the file calls them.
    const ProjectViews project({"left", "right"});
    const std::array names{settings_.views.first, settings_.views.second};
    std::array<FileReadOp, 2> readers{FileReadOp(picture, names[0], roles_), FileReadOp(picture, names[1], roles_)};
    OperatorNode node(
        parallaxFieldClass,
        [&](int, const OutputContext& context) -> Fresco::Image::Op* {
            return &readers[static_cast<std::size_t>(context.view - 1)];
        },
        services_);
    ParallaxReport found{.frame = number};
    std::vector<std::pair<std::string, NewView::Plane>> planes;
    for (const int view : {1, 2}) {
        if (!node.enter({static_cast<double>(number), view})) throw RenderError(node.errors().front());
        ImagePlane plane(node.op().info().box, false, node.op().outChannels());
        try {
            node.op().fetchPlane(plane);
        } catch (const Cobalt::Base::InterruptedException&) {
            throw RenderInterrupted();
        } catch (const Cobalt::Base::ExceptionDecoration&) {
            throw RenderError(Cobalt::Base::currentFailure());
        }
        if (services_.aborted()) throw RenderInterrupted();
        if (!node.errors().empty()) throw RenderError(node.errors().front());
        int component = 0;
        for (const Channel channel : plane.channels()) {
            const ChannelRoles::Role& role = *roles_.find(channel);
            std::vector<float> pixels = pixelsOf(plane, component++);
            if (!isDisparity(role)) (view == 1 ? found.leftMatched : found.rightMatched) = shareBelowHalf(pixels);
            planes.emplace_back(names[static_cast<std::size_t>(view - 1)],
                                NewView::Plane{role.fileChannel, std::move(pixels)});
        }
    }
    for (const auto& [view, plane] : planes)
        picture->add(view, plane, settings_.save, parallaxFieldClass);
    if (report) report(found);
}

void ParallaxSource::takeFrom(const std::filesystem::path& path, MultiViewFile& picture) const {
    std::set<std::string> channels;
    for (const ChannelRoles::Role& role : roles_.all())
        if (isTaken(role)) channels.insert(role.fileChannel);
    const MultiViewFile other = MultiViewFile::open(path, channels);
    if (other.width() != picture.width() || other.height() != picture.height())
        throw FileError(fmt::format("'{}' is {} x {} pixels, but '{}' is {} x {}; its disparity can't be used.",
                                    path.string(), other.width(), other.height(), picture.path().string(),
                                    picture.width(), picture.height()));
    const Box box{0, 0, other.width(), other.height()};
    const std::string origin = other.identity();
    int taken = 0;
    for (const std::string& view : {settings_.views.first, settings_.views.second})
        for (const ChannelRoles::Role& role : roles_.all()) {
            if (!isTaken(role) || !other.hasChannel(view, role.fileChannel)) continue;
            NewView::Plane plane{role.fileChannel, std::vector<float>(static_cast<std::size_t>(box.pixels()))};
            other.read(view, role.fileChannel, box, plane.pixels.data(), box.width());
            picture.add(view, plane, settings_.save, origin);
            taken += isDisparity(role) ? 1 : 0;
        }
    if (taken == 0)
        throw FileError(fmt::format("'{}' has no disparity channels for the views '{}' and '{}'.", path.string(),
                                    settings_.views.first, settings_.views.second));
}

}  // namespace ViewTint::Host
