#include "host/graph/NeighbourRequests.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>

#include "host/graph/OperatorNode.h"
#include "host/graph/ProjectViews.h"

namespace ViewTint::Host {

namespace {

using Fresco::Image::Op;
using Fresco::Image::OutputContext;

constexpr Vellum::Image::Box anyBox{0, 0, 16, 16};

/// Stands for the picture of a frame that nobody has read yet.
class AnnouncedOp : public Fresco::Image::Iop {
public:
    explicit AnnouncedOp(int frame) : Iop(nullptr), frame(frame) { info_.box = anyBox; }
    const char* Class() const override { return "Announced"; }
    int minimum_inputs() const override { return 0; }
    void fetchPlane(Fresco::Image::ImagePlane&) override {}

    const int frame;

protected:
    void _validate(bool) override {}
};

}  // namespace

NeighbourRequests neighbourRequests(const ControlValues& controls, const ChannelRoles& roles,
                                    std::span<const std::string> views) {
    const ProjectViews project({views.begin(), views.end()});
    std::deque<AnnouncedOp> pictures;
    const RenderServices services;
    OperatorNode node(
        controls.className(),
        [&](int, const OutputContext& context) -> Op* {
            return &pictures.emplace_back(static_cast<int>(std::lround(context.frame)));
        },
        services);
    for (const ControlValues::Value& value : controls.resolve(project.names()))
        node.setControl(value.name, value.number);

    Fresco::Image::RequestOutput requests;
    for (int view = 1; view < project.viewcount(); ++view) {
        if (!node.enter({0.0, view})) continue;
        node.op().getRequests(anyBox, node.op().outChannels(), 1, requests);
    }
    NeighbourRequests found;
    for (const Fresco::Image::RequestData& request : requests.requests()) {
        const auto* picture = dynamic_cast<const AnnouncedOp*>(request.iop);
        if (!picture || picture->frame == 0) continue;
        found.reach = std::max(found.reach, std::abs(picture->frame));
        for (const Fresco::Image::Channel channel : request.channels)
            if (const ChannelRoles::Role* role = roles.find(channel)) found.channels.insert(role->fileChannel);
    }
    return found;
}

}  // namespace ViewTint::Host
