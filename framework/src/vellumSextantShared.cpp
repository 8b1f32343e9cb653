#include "framework/SextantShared.h"

#include <fmt/format.h>

namespace Cobalt::Sextant {

namespace {

bool viewExists(int view) {
    return view >= 1 && view < Fresco::Image::OutputContext::viewcount();
}

}  // namespace

void AddSextantVersionKnobs(Fresco::Image::Knob_Callback closure, const SextantPluginKnobVals& knobVals) {
    Fresco::Image::Text_knob(closure, "version", "Version", knobVals.version);
}

std::string BuildHelpString(const std::string& name, const std::string& text) {
    return fmt::format("<b>{}</b><p>{}", name, text);
}

std::string missingViewsMessage(const std::string& inputName) {
    return fmt::format("Input {} missing views. Please provide left and right views.", inputName);
}

bool CheckForStereoViewsMissing(const Fresco::Image::Op& op, const SextantPluginKnobVals& knobVals) {
    if (viewExists(knobVals.leftView) && viewExists(knobVals.rightView)) return true;
    op.error(
        fmt::format("leftView is view {} and rightView is view {}, but the project has {}. Choose views that exist.",
                    knobVals.leftView, knobVals.rightView, Fresco::Image::OutputContext::viewcount() - 1));
    return false;
}

bool CheckForStereoViewsValid(const Fresco::Image::Op& op, const SextantPluginKnobVals& knobVals) {
    if (knobVals.leftView != knobVals.rightView) return true;
    const bool oneViewOnly = Fresco::Image::OutputContext::viewcount() - 1 < 2;
    op.error(oneViewOnly ? missingViewsMessage("Source")
                         : fmt::format("leftView and rightView are both view {}. Choose two different views.",
                                       knobVals.leftView));
    return false;
}

}  // namespace Cobalt::Sextant
