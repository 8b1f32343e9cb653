#include "node/ViewTintPlugin.h"

#include <string>

#include "node/KernelLibraries.h"

namespace Cobalt::Research {

namespace {

const std::string nodeName = "Q_ViewTint";
const std::string majorVersion = "2";
const std::string minorVersion = "1";
const std::string className = nodeName + majorVersion + "_" + minorVersion;

Fresco::Image::Op* makeViewTint(Fresco::Image::Node* node) {
    return new ViewTintPlugin(node);
}

Fresco::Image::Op::Description& describe() {
    static Fresco::Image::Op::Description description;
    const std::string buildStamp = std::string(__DATE__) + " for " + Fresco::Image::hostVersion;
    description.ctor2(makeViewTint, className, buildStamp, Fresco::Image::Op::Description::add);
    return description;
}

const Fresco::Image::Op::Description& description = describe();

}  // namespace

ViewTintPlugin::ViewTintPlugin(Fresco::Image::Node* node)
    : SextantVellumBase(node), stereoKnob(std::make_unique<StereoKnobDropDown>(this)) {
    knobVals.version = majorVersion + "." + minorVersion;
    Vellum::registerKernelLibraries();
}

ViewTintPlugin::~ViewTintPlugin() = default;

const char* ViewTintPlugin::Class() const {
    return description.className.c_str();
}

const char* ViewTintPlugin::displayName() const {
    return nodeName.c_str();
}

const char* ViewTintPlugin::node_help() const {
    static const std::string help = Cobalt::Sextant::BuildHelpString(
        nodeName,
        "Q_ViewTint corrects colour differences between stereo views. The 'Local Matching' mode matches subtle colour "
        "shifts that are typically present in stereo images. <p>Set the view that is corrected and compare to the "
        "original view. Increase the 'Scale' parameter to prevent any pixel shifts. Reduce 'Scale' for a more detailed "
        "colour correction. Then compare the correction to the matched view. Adjust 'Preserve Noise' to match the "
        "noise "
        "profile. Use the 'Stabilise occlusions' option to prevent flicker in the correction.");
    return help.c_str();
}

const char* ViewTintPlugin::input_label(int input, char*) const {
    switch (input) {
        case 0:
            return "Source";
        case 1:
            return "Mask";
        default:
            return "Invalid";
    }
}

}  // namespace Cobalt::Research

/// The linker takes this object file into every program that links the node, so that the node registers itself.
extern "C" {
extern const char viewtintNodeIsLinked;
const char viewtintNodeIsLinked = 1;
}
