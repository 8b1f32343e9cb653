#include "tests/host/graph/ProbeOp.h"

#include <array>

namespace ViewTint::Host::Testing {

using namespace Fresco::Image;

namespace {

constexpr std::array modes{"Plain", "Fancy Mode"};

Op* makeProbe(Node* node) {
    return new ProbeOp(node);
}

[[maybe_unused]] const bool registered = [] {
    static Op::Description description;
    description.ctor2(makeProbe, probeClass, "test", Op::Description::add);
    return true;
}();

}  // namespace

ProbeOp::Render ProbeOp::render;

const OutputContext& ProbeOp::inputContext(int input, int offset, OutputContext& context) const {
    context = outputContext();
    if (input == 0 && offset == 1) context = {context.frame - 1.0, 1};
    if (input == 0 && offset == 2) context.view = 2;
    return context;
}

void ProbeOp::knobs(Knob_Callback closure) {
    View_knob(closure, &corrected, "corrected", "Corrected");
    Int_knob(closure, &count, "count", "Count");
    SetRange(closure, 1, 10);
    SetFlags(closure, keepInRange);
    Float_knob(closure, &gain, "gain", "Gain");
    SetRange(closure, 0, 1);
    Bool_knob(closure, &clamp, "clamp", "Clamp");
    Enumeration_knob(closure, &mode, modes, "mode", "Mode");
    Text_knob(closure, "about", "About", "a text");
    Spacer(closure);
}

int ProbeOp::knob_changed(Knob* knob) {
    if (knob->name() == "gain" && knob->get_value() > 100.0) knob->set_value(100.0);
    return 1;
}

void ProbeOp::_validate(bool forReal) {
    PlanarIop::_validate(forReal);
    outChannels_.clear();
    if (outputContext().view == corrected) outChannels_ = {redChannel, alphaChannel};
}

float ProbeOp::pixelOf(int input, int offset, Channel channel, int x, int y) const {
    auto* source = dynamic_cast<Iop*>(this->input(input, offset));
    ImagePlane plane({x, y, x + 1, y + 1}, false, {channel});
    source->fetchPlane(plane);
    return *plane.at(x, y, 0);
}

}  // namespace ViewTint::Host::Testing
