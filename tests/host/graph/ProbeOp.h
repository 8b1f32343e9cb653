#pragma once

#include <functional>

#include "host/sdk/Iop.h"

namespace ViewTint::Host::Testing {

inline constexpr const char* probeClass = "HostProbe";

/// An operator whose render is given by the test. Input 0 has three splits: the picture itself, view 1 of the frame
/// before, and view 2. Input 1 is optional. It changes red and alpha of the view that `corrected` names.
class ProbeOp : public Fresco::Image::PlanarIop {
public:
    using Render = std::function<void(ProbeOp&, Fresco::Image::ImagePlane&)>;
    /// What renderStripe does, for all operators of the class.
    static Render render;

    explicit ProbeOp(Fresco::Image::Node* node) : PlanarIop(node) {}

    int corrected = 1;  ///< control of a view
    int count = 3;      ///< control, 1 to 10
    float gain = 1.0f;  ///< control with a range that doesn't bind
    bool clamp = false;
    int mode = 1;  ///< "Plain", "Fancy Mode"

    const char* Class() const override { return probeClass; }
    int maximum_inputs() const override { return 2; }
    int split_input(int input) const override { return input == 0 ? 3 : 1; }
    const Fresco::Image::OutputContext& inputContext(int input, int offset,
                                                     Fresco::Image::OutputContext& context) const override;
    void knobs(Fresco::Image::Knob_Callback closure) override;
    int knob_changed(Fresco::Image::Knob* knob) override;
    void renderStripe(Fresco::Image::ImagePlane& plane) override { render(*this, plane); }

    /// The first pixel of a channel that an input delivers at (x, y).
    float pixelOf(int input, int offset, Fresco::Image::Channel channel, int x, int y) const;

protected:
    void _validate(bool forReal) override;
};

}  // namespace ViewTint::Host::Testing
