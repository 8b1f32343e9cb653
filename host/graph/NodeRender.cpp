#include "host/graph/NodeRender.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>

#include "base/Exception.h"
#include "compute/HostDevice.h"
#include "host/graph/MatchCheck.h"
#include "host/graph/ProjectViews.h"
#include "host/graph/ReaderOps.h"

namespace ViewTint::Host {

namespace {

using Fresco::Image::Box;
using Fresco::Image::Channel;
using Fresco::Image::ImagePlane;
using Vellum::Image::Image;

/// Delivers components of images as channels.
class PictureOp : public Fresco::Image::Iop {
public:
    explicit PictureOp(const Box& box) : Iop(nullptr) {
        info_.box = box;
        info_.format = {box.x1, box.y1};
    }
    /// Component i of the image is channel first + i.
    void add(const Image& image, Channel first) {
        for (int c = 0; c < static_cast<int>(image.components()); ++c)
            add(image, c, first + static_cast<Channel>(c));
    }
    void add(const Image& image, int component, Channel channel) {
        info_.channels.insert(channel);
        sources_.push_back({channel, image, component});
    }

    const char* Class() const override { return "Picture"; }
    int minimum_inputs() const override { return 0; }
    void fetchPlane(ImagePlane& plane) override {
        std::fill_n(plane.writableBuffer().data(), static_cast<std::size_t>(plane.box().pixels()) * plane.components(),
                    0.0f);
        int component = 0;
        for (const Channel channel : plane.channels()) {
            const auto source = std::ranges::find(sources_, channel, &Source::channel);
            if (source != sources_.end()) copy(*source, plane, component);
            ++component;
        }
    }

protected:
    void _validate(bool) override {}

private:
    struct Source {
        Channel channel;
        Image image;
        int component;
    };

    static void copy(const Source& source, ImagePlane& plane, int component) {
        const Box box = intersect(source.image.box(), plane.box());
        const auto& layout = source.image.tile().layout;
        for (int y = box.y0; y < box.y1; ++y) {
            const float* from = source.image.data() + source.component * layout.component.elements +
                                (y - source.image.box().y0) * layout.y.elements;
            for (int x = box.x0; x < box.x1; ++x)
                *plane.at(x, y, component) = from[(x - source.image.box().x0) * layout.x.elements];
        }
    }

    std::vector<Source> sources_;
};

/// The pictures as operators, by frame and view.
class Sources {
public:
    explicit Sources(const FramePictures& pictures)
        : occlusion_(Fresco::Image::getChannel("mask_occlusion.alpha", true)),
          views_{PictureOp(pictures.left.box()), PictureOp(pictures.left.box())},
          mask_(pictures.mask ? pictures.mask->box() : Box{}),
          hasMask_(pictures.mask) {
        views_[0].add(pictures.left, Fresco::Image::redChannel);
        views_[1].add(pictures.right, Fresco::Image::redChannel);
        for (PictureOp& view : views_) {
            view.add(pictures.disparity, Fresco::Image::firstDisparityChannel);
            if (!pictures.occlusions.empty()) view.add(pictures.occlusions.front(), occlusion_);
        }
        views_[0].validate(true);
        empty_ = std::make_unique<EmptyFrameOp>(views_[0].info());
        for (std::size_t i = 1; i < pictures.occlusions.size(); ++i) {
            neighbours_.push_back(std::make_unique<PictureOp>(pictures.left.box()));
            neighbours_.back()->add(pictures.occlusions[i], occlusion_);
        }
        if (!hasMask_) return;
        if (pictures.mask->components() == 1)  // serves as luminance and as alpha
            for (Channel channel = Fresco::Image::redChannel; channel <= Fresco::Image::alphaChannel; ++channel)
                mask_.add(*pictures.mask, 0, channel);
        else
            mask_.add(*pictures.mask, Fresco::Image::redChannel);
    }

    Fresco::Image::Iop* at(int input, const Fresco::Image::OutputContext& context) {
        if (input != 0) return hasMask_ ? &mask_ : nullptr;
        const int frame = static_cast<int>(std::lround(context.frame));
        if (frame == 0) return context.view == 1 ? &views_[0] : &views_[1];
        // -1, 1, -2, 2
        const auto place = static_cast<std::size_t>(2 * std::abs(frame) - (frame < 0 ? 2 : 1));
        return place < neighbours_.size() ? static_cast<Fresco::Image::Iop*>(neighbours_[place].get()) : empty_.get();
    }

private:
    Channel occlusion_;
    std::array<PictureOp, 2> views_;
    PictureOp mask_;
    bool hasMask_;
    std::unique_ptr<EmptyFrameOp> empty_;
    std::vector<std::unique_ptr<PictureOp>> neighbours_;
};

Image imageOf(const ImagePlane& plane) {
    Image image({plane.box(), plane.components()}, Vellum::Compute::Host::hostDevice());
    const auto& layout = image.tile().layout;
    const Box& box = plane.box();
    for (int c = 0; c < static_cast<int>(plane.components()); ++c)
        for (int y = 0; y < box.height(); ++y)
            for (int x = 0; x < box.width(); ++x)
                image.data()[x * layout.x.elements + y * layout.y.elements + c * layout.component.elements] =
                    *plane.at(box.x0 + x, box.y0 + y, c);
    return image;
}

}  // namespace

NodeRender::Result NodeRender::render(const ControlValues& controls, const FramePictures& pictures,
                                      const RenderServices& services) {
    const ProjectViews project({"left", "right"});
    Sources sources(pictures);
    OperatorNode node(
        controls.className(),
        [&](int input, const Fresco::Image::OutputContext& context) { return sources.at(input, context); }, services);
    for (const ControlValues::Value& value : controls.resolve(project.names()))
        node.setControl(value.name, value.number);
    Result result;
    for (const int view : {1, 2}) {
        if (!node.enter({0.0, view})) break;
        if (node.op().outChannels().empty()) continue;
        ImagePlane plane(node.op().info().box, false, node.op().outChannels());
        try {
            if (const auto shared = tooLittleShared(node)) {
                if (services.warn) services.warn(shared->complaint(view == 1 ? "left" : "right", "occlusions"));
                sources.at(0, {0.0, view})->fetchPlane(plane);
                result.matched = false;
                result.picture = imageOf(plane);
                return result;
            }
            node.op().fetchPlane(plane);
        } catch (const Cobalt::Base::Exception& failure) {
            result.messages.push_back(userMessage(failure));
            return result;
        }
        if (node.errors().empty() && plane.buffer()) result.picture = imageOf(plane);
        break;
    }
    result.messages = node.errors();
    return result;
}

}  // namespace ViewTint::Host
