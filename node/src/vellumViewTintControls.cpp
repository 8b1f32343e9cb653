#include <algorithm>
#include <array>
#include <string_view>

#include "node/ViewTintPlugin.h"

namespace Cobalt::Research {

namespace {

using namespace Fresco::Image;

constexpr std::array matchWhatChoices{"Left to Right", "Right to left"};
constexpr std::array matchingModeChoices{"Basic", "Local Matching"};
constexpr std::array maskWithChoices{
    "None",       "Source Alpha",       "Source Inverted Alpha", "Mask Luminance", "Mask Inverted Luminance",
    "Mask Alpha", "Mask Inverted Alpha"};
constexpr std::array correctionTypeChoices{"Minimum", "Closest", "Average"};
constexpr std::array intervalTypeChoices{"Uniform", "Favour Small Block Sizes"};
constexpr std::array occlusionCorrectionChoices{"Occlusions", "Occlusions and Edges", "None"};

// Bits that belong to the host's panel.
constexpr KnobFlags panelBit18 = 0x40000;
constexpr KnobFlags panelBit31 = 0x80000000;
constexpr KnobFlags panelBit39 = 0x8000000000;

void addGeneralKnobs(Knob_Callback closure, ViewTintPlugin& node) {
    Enumeration_knob(closure, &node.matchWhat, matchWhatChoices, "matchWhat", "Match");
    Tooltip(closure, "Set the view to correct.");
    Enumeration_knob(closure, &node.matchingMode, matchingModeChoices, "matchingMode", "Mode");
    Tooltip(closure,
            "How to do the matching. 'Basic' matches the global colour distribution of one view to that of the other. "
            "'Local matching' matches the colour distribution inside corresponding blocks.");
    Spacer(closure);
    Enumeration_knob(closure, &node.maskWith, maskWithChoices, "maskWith", "Mask");
    SetFlags(closure, panelBit31);
    Tooltip(
        closure,
        "Which channel to use for the mask. For 'Basic' matching the correction is calculated for the masked region "
        "and applied to the whole image. In 'Local matching' the colour correction is calculated and applied in the "
        "masked area only.");
}

void addBlockKnobs(Knob_Callback closure, ViewTintPlugin& node) {
    Bool_knob(closure, &node.previewCorrection, "previewCorrection", "Preview colour correction");
    SetFlags(closure, panelBit39);
    Tooltip(closure, "Preview the colour correction that is applied to the original image.");
    Int_knob(closure, &node.blockSize, "blockSize", "Block Size");
    SetRange(closure, 2, 100);
    SetFlags(closure, keepInRange);
    Tooltip(closure,
            "The size (in pixels) of blocks used to match local colour. Use a small block size to pick up detailed "
            "colour changes or a larger block size for a more global update. ");
    Int_knob(closure, &node.maxBlockSize, "maxBlockSize", "Max Block Size");
    SetRange(closure, 3, 1000);
    SetFlags(closure, keepInRange | panelBit18);
    ClearFlags(closure, startsLine);
    Tooltip(closure, "The maximum block size (in pixels) to go up to when sampling over multiple block sizes.");
    Enumeration_knob(closure, &node.correctionType, correctionTypeChoices, "correctionType", "Correction");
    SetFlags(closure, panelBit18);
    Tooltip(closure,
            "How to combine the samples from multiple block sizes: Choose 'minimum' colour correction, 'closest' given "
            "the disparity map or take the 'average' correction at each point.");
}

void addCorrectionKnobs(Knob_Callback closure, ViewTintPlugin& node) {
    Float_knob(closure, &node.correctionScale, "correctionScale", "Scale");
    SetRange(closure, 0, 1);
    SetFlags(closure, keepInRange);
    Tooltip(closure,
            "Set the image scale for local colour matching. Match at a small scale to transfer highlights and detailed "
            "colour changes. Increase the scale to broaden the colour update and preserve the image structure. Try "
            "decreasing the scale to pick up highlights and increase to prevent image shift compared to the original "
            "view.");
    Spacer(closure);
    Float_knob(closure, &node.correctionLimit, "correctionLimit", "Limit");
    SetRange(closure, 0, 1);
    SetFlags(closure, logarithmicSlider);
    Tooltip(
        closure,
        "Set the limit for the local colour correction. The colour change is limited against the average correction "
        "in a region. Try reducing the limit to prevent excessive colour changes at highlights.");
    Spacer(closure);
    Float_knob(closure, &node.noiseLevel, "noiseLevel", "Noise");
    SetRange(closure, 0, 1);
    SetFlags(closure, keepInRange);
    Tooltip(closure,
            "Preserve the noise of the original image. Increase this if colour matching smooths the input noise. Too "
            "high a value will retain colour differences at fine details. ");
    Int_knob(closure, &node.samples, "samples", "Number of Samples");
    SetRange(closure, 1, 20);
    SetFlags(closure, keepInRange | panelBit18);
    Tooltip(closure,
            "Increase this to sample over multiple block sizes (between Block Size and Max Block Size) in order to "
            "reduce artefacts in the colour correction and improve temporal consistency.");
    Enumeration_knob(closure, &node.intervalType, intervalTypeChoices, "intervalType", "Sample Spacing");
    SetFlags(closure, panelBit18);
    Tooltip(
        closure,
        "Whether to weight the correction towards smaller block sizes or space the samples evenly between Block "
        "Size and Max Block Size. Smaller block sizes can give more accurate results but will be strongly dependent "
        "on the quality of the incoming disparity field.");
}

void addOcclusionAreaKnobs(Knob_Callback closure, ViewTintPlugin& node) {
    Bool_knob(closure, &node.outputOcclusionsToAlpha, "outputOcclusionsToAlpha", "Output corrected area to alpha");
    SetFlags(closure, panelBit39);
    Tooltip(closure,
            "Output the corrected area to alpha. Local colour matching cannot be performed at occlusions where pixels "
            "are not visible in both views. Use this to preview the area where local colour matching is corrected.");
    Enumeration_knob(closure, &node.occlusionCorrection, occlusionCorrectionChoices, "occlusionCorrection",
                     "Correction");
    SetFlags(closure, panelBit31);
    Tooltip(closure,
            "Set the corrected area where local matching is not valid. Choose whether to fill occluded pixels (where "
            "the colour is missing in the other view) and disparity edges (where the transfer of colour between views "
            "can fail).");
    Int_knob(closure, &node.stabiliseOcclusionsNumberOfFrames, "stabiliseOcclusionsNumberOfFrames",
             "Temporal blend extent");
    SetRange(closure, 2, 5);
    SetFlags(closure, keepInRange | panelBit18 | panelBit31);
}

void addOcclusionToolKnobs(Knob_Callback closure, ViewTintPlugin& node) {
    Float_knob(closure, &node.adjustEdges, "adjustEdges", "Adjust Edges");
    SetRange(closure, -20, 20);
    SetFlags(closure, keepInRange);
    Tooltip(
        closure,
        "Use a positive value to incorporate more disparity edges. Use a negative value to reduce the extent of the "
        "edges.");
    Float_knob(closure, &node.edgeDetect, "edgeDetect", "Image Edges");
    SetRange(closure, 0, 1);
    SetFlags(closure, keepInRange | panelBit18);
    Tooltip(closure,
            "Treat edges of the image as occlusions to reduce haloing and edge flicker.               Increase the "
            "value to incorporate more image edges as occlusions.");
    Float_knob(closure, &node.colourTolerance, "colourTolerance", "Colour Tolerance");
    SetRange(closure, 0, 10);
    SetFlags(closure, keepInRange | logarithmicSlider);
    Tooltip(closure,
            "Controls the amount of blurring across edges in the colour match at occluded regions.               "
            "Decrease the colour tolerance to restrict updates to similar colours and increase the tolerance to blur "
            "the update.");
    Int_knob(closure, &node.supportSize, "supportSize", "Support Size");
    SetRange(closure, 0, 50);
    SetFlags(closure, keepInRange);
    Tooltip(closure,
            "The size of the region (in pixels) of unoccluded pixels used to calculate the update at a corrected "
            "pixel.");
    Spacer(closure);
    Bool_knob(closure, &node.stabiliseOcclusions, "stabiliseOcclusions", "Stabilise occlusions");
    SetFlags(closure, panelBit31);
    Tooltip(closure,
            "Enable this to reduce flicker in the correction of occlusion regions.<p>Note: Stabilisation requires "
            "occlusions from multiple frames which can take some time to compute.");
    Float_knob(closure, &node.featherSize, "featherSize", "Feather Size");
    SetRange(closure, 0, 50);
    SetFlags(closure, panelBit18);
    Tooltip(closure, "Controls the amount of feathering of the occlusion mask.");
}

/// The controls whose change may enable or disable others; "showPanel" stands for the opened panel.
constexpr std::array<std::string_view, 7> watchedControls{"showPanel",      "matchingMode", "occlusionCorrection",
                                                          "samples",        "maxBlockSize", "correctionLimit",
                                                          "correctionScale"};

}  // namespace

void ViewTintPlugin::knobs(Knob_Callback closure) {
    VellumSettings::addKnobs(closure, true, 0);
    Cobalt::Sextant::AddSextantVersionKnobs(closure, knobVals);
    if (stereoKnob) stereoKnob->addKnobs(closure);
    addGeneralKnobs(closure, *this);
    Divider(closure, "Local Matching");
    Spacer(closure);
    addBlockKnobs(closure, *this);
    Spacer(closure);
    addCorrectionKnobs(closure, *this);
    Divider(closure, "Occlusions");
    Spacer(closure);
    addOcclusionAreaKnobs(closure, *this);
    addOcclusionToolKnobs(closure, *this);
}

int ViewTintPlugin::knob_changed(Knob* knob) {
    const bool watched =
        knob && std::find(watchedControls.begin(), watchedControls.end(), knob->name()) != watchedControls.end();
    const int result = Op::knob_changed(knob);
    if (!watched) return result;
    enableControls();
    if (Knob* limit = this->knob("correctionLimit"); limit && limit->get_value() < 0.0) limit->set_value(0.0);
    return 1;
}

void ViewTintPlugin::enableControls() {
    // Asked of the controls: the members get their values later.
    const auto valueOf = [this](const char* name) {
        const Knob* control = knob(name);
        return control ? static_cast<int>(control->get_value()) : 0;
    };
    const auto enable = [this](bool enabled, std::initializer_list<const char*> names) {
        for (const char* name : names)
            if (Knob* control = knob(name)) control->enable(enabled);
    };
    const bool local = valueOf("matchingMode") == 1;
    const int samplesValue = valueOf("samples");
    const int correction = valueOf("occlusionCorrection");

    enable(local, {"noiseLevel", "blockSize", "samples", "outputOcclusionsToAlpha", "occlusionCorrection",
                   "correctionScale", "correctionLimit", "previewCorrection"});
    enable(local && samplesValue > 1, {"correctionType", "maxBlockSize"});
    enable(local && samplesValue > 2, {"intervalType"});
    enable(local && correction == 1, {"adjustEdges"});
    enable(local && correction != 2, {"stabiliseOcclusionsNumberOfFrames", "edgeDetect", "colourTolerance",
                                      "supportSize", "stabiliseOcclusions", "featherSize"});
}

}  // namespace Cobalt::Research
