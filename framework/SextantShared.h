#pragma once

#include <string>

#include "host/sdk/Op.h"

namespace Cobalt::Sextant {

/// What all stereo operators know of their controls.
struct SextantPluginKnobVals {
    int leftView = 1;
    int rightView = 1;
    std::string version;  ///< shown in the panel
};

/// The line that tells the operator's version.
void AddSextantVersionKnobs(Fresco::Image::Knob_Callback closure, const SextantPluginKnobVals& knobVals);

/// The help of an operator: its name as a heading, then the text.
std::string BuildHelpString(const std::string& name, const std::string& text);

/// False, with an error on the operator, when a selected view doesn't exist in the project.
bool CheckForStereoViewsMissing(const Fresco::Image::Op& op, const SextantPluginKnobVals& knobVals);
/// False, with an error on the operator, when the selected views are one and the same.
bool CheckForStereoViewsValid(const Fresco::Image::Op& op, const SextantPluginKnobVals& knobVals);

/// "Input Source missing views. Please provide left and right views."
std::string missingViewsMessage(const std::string& inputName);

}  // namespace Cobalt::Sextant
