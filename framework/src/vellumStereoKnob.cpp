#include "framework/StereoKnob.h"

namespace Cobalt::Research {

namespace {

using Fresco::Image::OutputContext;

constexpr const char* leftControl = "leftView";
constexpr const char* rightControl = "rightView";
constexpr const char* leftViewName = "left";
constexpr const char* rightViewName = "right";

int viewOfControl(const Fresco::Image::Op* op, const char* name) {
    const Fresco::Image::Knob* knob = op ? op->knob(name) : nullptr;
    return knob ? static_cast<int>(knob->get_value()) : -1;
}

void setViewOfControl(const Fresco::Image::Op* op, const char* name, int view) {
    Fresco::Image::Knob* knob = op ? op->knob(name) : nullptr;
    if (knob && view >= 0) knob->set_value(view);
}

}  // namespace

StereoKnobI::StereoKnobI(Fresco::Image::Op* op) : op_(op) {
    if (op && OutputContext::viewcount() - 1 > 1) rightView = 2;
}

bool StereoKnobI::findDefaultViews() {
    const int left = OutputContext::lookup_view(leftViewName);
    const int right = OutputContext::lookup_view(rightViewName);
    if (left < 0 || right < 0) return false;
    if (getLeftView() == getRightView()) {
        setLeftView(left);
        setRightView(right);
    }
    return true;
}

void StereoKnobI::append(Fresco::Image::Hash& hash) const {
    hash.append(leftView);
    hash.append(rightView);
    hash.append(op_ ? OutputContext::viewcount() - 1 : -1);
}

void StereoKnobDropDown::addKnobs(Fresco::Image::Knob_Callback closure) {
    using namespace Fresco::Image;
    View_knob(closure, &leftView, leftControl, "Left View");
    SetFlags(closure, 0x80000000);
    ClearFlags(closure, 8192);
    Tooltip(closure, "Set the left view to use.");
    View_knob(closure, &rightView, rightControl, "Right View");
    SetFlags(closure, 0x80000000);
    ClearFlags(closure, startsLine);
    Tooltip(closure, "Set the right view to use.");
}

int StereoKnobDropDown::getLeftView() const {
    return viewOfControl(op_, leftControl);
}

int StereoKnobDropDown::getRightView() const {
    return viewOfControl(op_, rightControl);
}

void StereoKnobDropDown::setLeftView(int view) {
    setViewOfControl(op_, leftControl, view);
}

void StereoKnobDropDown::setRightView(int view) {
    setViewOfControl(op_, rightControl, view);
}

}  // namespace Cobalt::Research
