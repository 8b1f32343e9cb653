#pragma once

#include <vector>

#include "base/Ensure.h"
#include "host/sdk/ImagePlane.h"
#include "host/sdk/Op.h"

namespace Fresco::Image {

class Iop;

/// Pixels that an operator will want from one of its inputs.
struct RequestData {
    Iop* iop;
    Box box;
    ChannelSet channels;
    int count;  ///< how often they will be asked for
};

/// Collects requests in their order.
class RequestOutput {
public:
    void add(RequestData request) { requests_.push_back(std::move(request)); }
    const std::vector<RequestData>& requests() const { return requests_; }

private:
    std::vector<RequestData> requests_;
};

/// An operator that delivers pixels.
class Iop : public Op {
public:
    using Op::Op;

    /// What is delivered; after `validate`.
    const Info& info() const { return info_; }
    /// The channels that differ from those of input 0; after `validate`. The host takes all others from the input.
    const ChannelSet& outChannels() const { return outChannels_; }

    /// Fills the plane's box and channels; a channel that doesn't exist is 0. After an abort or an error the pixels
    /// are unspecified. Synchronous; any thread, one plane at a time for each copy.
    virtual void fetchPlane(ImagePlane& plane) = 0;

    /// Announces what fetchPlane will ask of the inputs for a box and channels.
    virtual void getRequests(const Box& /*box*/, const ChannelSet& /*channels*/, int /*count*/,
                             RequestOutput& /*requests*/) {}

protected:
    /// Takes the info of input 0.
    void copy_info() {
        if (const auto* source = dynamic_cast<const Iop*>(input(0))) info_ = source->info();
    }
    /// Validates the inputs and takes the info of input 0.
    void _validate(bool forReal) override {
        for (int number = 0; number < inputs(); ++number)
            if (Op* source = input(number)) source->validate(forReal);
        copy_info();
    }

    Info info_;
    ChannelSet outChannels_;
};

/// An operator that delivers planes, whole or in stripes.
class PlanarIop : public Iop {
public:
    using Iop::Iop;

    virtual void renderStripe(ImagePlane& plane) = 0;
    virtual bool useStripes() const { return true; }
    virtual std::size_t stripeHeight() const { return 256; }
    virtual bool renderFullPlanes() const { return false; }

    /// A plane holds changed channels or unchanged ones, never both: the former are rendered, the latter are fetched
    /// from input 0.
    void fetchPlane(ImagePlane& plane) override {
        if (outChannels().intersects(plane.channels())) {
            ENSURE(outChannels().contains(plane.channels()), "a plane mixes changed channels of {} with others",
                   Class());
            renderStripe(plane);
        } else if (auto* source = dynamic_cast<Iop*>(input(0))) {
            source->fetchPlane(plane);
        }
    }
};

}  // namespace Fresco::Image
