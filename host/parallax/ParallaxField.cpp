#include "host/parallax/ParallaxField.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "compute/StageStatistics.h"
#include "framework/ResultCache.h"

/// See CMakeLists.txt.
extern "C" int parallaxFieldIsLinked;
int parallaxFieldIsLinked = 1;

namespace ViewTint::Host {

namespace {

using namespace Fresco::Image;

constexpr int leftView = 1, rightView = 2;

ChannelSet fieldChannels() {
    ChannelSet channels;
    for (int i = 0; i < 4; ++i)
        channels.insert(firstDisparityChannel + static_cast<Channel>(i));
    channels.insert(getChannel("mask_occlusion.alpha", true));
    return channels;
}

Op* make(Node* node) {
    return new ParallaxField(node);
}

Op::Description description;
[[maybe_unused]] const bool registered = [] {
    description.ctor2(make, parallaxFieldClass, hostVersion, &Op::Description::add);
    return true;
}();

/// Thrown through the estimate when the user has ended the render.
struct Aborted {};

}  // namespace

const char* ParallaxField::node_help() const {
    return "Estimates from the two views of a stereo picture where each pixel is found in the other view, and which "
           "pixels "
           "the other view doesn't show.";
}

int ParallaxField::split_input(int input) const {
    return input == 0 ? 2 : 1;
}

const OutputContext& ParallaxField::inputContext(int, int offset, OutputContext& context) const {
    context = outputContext();
    context.view = offset == 0 ? leftView : rightView;
    return context;
}

void ParallaxField::_validate(bool forReal) {
    PlanarIop::_validate(forReal);
    info_.format = info_.shown;
    info_.box = {0, 0, info_.shown.width, info_.shown.height};
    outChannels_ =
        outputContext().view == leftView || outputContext().view == rightView ? fieldChannels() : ChannelSet();
    info_.channels.insert(outChannels_);
}

void ParallaxField::getRequests(const Box& box, const ChannelSet& channels, int count, RequestOutput& requests) {
    if (!fieldChannels().intersects(channels)) return;
    for (const int offset : {0, 1})
        if (auto* view = dynamic_cast<Iop*>(input(0, offset)))
            requests.add({view, box, {redChannel, greenChannel, blueChannel}, count});
}

bool ParallaxField::fetchColours(int offset, RgbPicture& picture) const {
    auto* view = dynamic_cast<Iop*>(input(0, offset));
    if (!view || std::string_view(view->Class()) == "Black") return false;
    const ChannelSet colours{redChannel, greenChannel, blueChannel};
    ImagePlane plane(info().box, false, colours);
    view->fetchPlane(plane);
    picture = RgbPicture(info().box.width(), info().box.height());
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < picture.height; ++y)
            std::copy_n(plane.at(0, y, c), picture.width,
                        picture.planes[static_cast<std::size_t>(c)].data() + picture.index(0, y));
    return true;
}

bool ParallaxField::estimate() {
    if (estimate_ && frameOfEstimate_ == outputContext().frame) return true;
    const Vellum::Compute::Stage stage("estimate disparity");
    progressMessage("Estimating disparity");
    if (const Box& box = info().box; std::max(box.width(), box.height()) > longestEstimatedSide) {
        error(fmt::format(
            "Q_ParallaxField: the picture is {} x {} pixels, and disparity is estimated up to {} on a side; "
            "give the disparity with the picture, or with --disparity FILE.",
            box.width(), box.height(), longestEstimatedSide));
        return false;
    }
    RgbPicture left, right;
    if (!fetchColours(0, left) || !fetchColours(1, right)) {
        error("Q_ParallaxField: a left and a right view are needed.");
        return false;
    }
    double done = 0;
    try {
        estimate_ = std::make_unique<ParallaxEstimate>(estimateParallax(left, right, [&] {
            if (aborted()) throw Aborted();
            constexpr double steps = 6;
            progressFraction((done += 1) / steps, 0);
        }));
    } catch (const Aborted&) {
        return false;
    }
    frameOfEstimate_ = outputContext().frame;
    return true;
}

void ParallaxField::renderStripe(ImagePlane& plane) {
    namespace Cache = Cobalt::Research::ResultCache;
    const Hash hash = ownHash();
    if (Cache::hasChannels(plane.channels(), hash) && Cache::load(plane, hash).size() == plane.channels().size())
        return;
    if (!estimate()) return;
    const bool isLeft = outputContext().view == leftView;
    const DisparityMap& map = isLeft ? estimate_->left : estimate_->right;
    const std::vector<float>& occlusion = isLeft ? estimate_->leftOcclusion : estimate_->rightOcclusion;
    std::vector<float> vectorX(map.pixels()), zero(map.pixels(), 0.0f);
    for (std::size_t i = 0; i < map.pixels(); ++i)
        vectorX[i] = map.vectorX(i) + 0.0f;  // makes a negative zero positive
    // Into the left view, then into the right one; of each x and y.
    std::array<const std::vector<float>*, 5> values{&vectorX, &map.vertical, &zero, &zero, &occlusion};
    if (isLeft) std::swap(values[0], values[2]), std::swap(values[1], values[3]);
    plane.writableBuffer();
    const Box& box = plane.box();
    int component = 0;
    const ChannelSet all = fieldChannels();
    for (const Channel channel : plane.channels()) {
        const std::vector<float>& source = *values[static_cast<std::size_t>(all.indexOf(channel))];
        for (int y = box.y0; y < box.y1; ++y)
            for (int x = box.x0; x < box.x1; ++x)
                *plane.at(x, y, component) = source[map.index(x, y)];
        ++component;
    }
    if (!plane.packed()) Cache::storePlane(plane, hash);
}

}  // namespace ViewTint::Host
