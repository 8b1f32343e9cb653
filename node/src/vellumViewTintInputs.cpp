#include "node/ViewTintChoices.h"
#include "node/ViewTintPlugin.h"

namespace Cobalt::Research {

namespace {

using Fresco::Image::ChannelSet;
using Fresco::Image::OutputContext;

constexpr int lastFrameOffset = 6;

/// Offsets 3, 4, 5, 6 of input 0 stand for the frames -1, +1, -2, +2 from the base.
double frameDistance(int offset) {
    const int distance = (offset - 1) / 2;
    return offset % 2 == 1 ? -distance : distance;
}

int viewOrFirst(int view) {
    return view == 0 || view == -1 ? 1 : view;
}

}  // namespace

void ViewTintPlugin::refreshKnobVals() {
    if (!stereoKnob) return;
    knobVals.leftView = stereoKnob->getLeftView();
    knobVals.rightView = stereoKnob->getRightView();
}

void ViewTintPlugin::append(Fresco::Image::Hash& hash) {
    SextantVellumBase::append(hash);
    refreshKnobVals();
    hash.append(knobVals.leftView);
    hash.append(knobVals.rightView);
    hash.append(OutputContext::viewcount() - 1);
}

int ViewTintPlugin::split_input(int input) const {
    if (input >= 1) return 1;
    return stabilises() ? stabiliseOcclusionsNumberOfFrames + 2 : 3;
}

const OutputContext& ViewTintPlugin::inputContext(int input, int offset, OutputContext& context) const {
    context = outputContext();
    if (input > 0) return context;
    if (offset == 1) {
        context.view = viewOrFirst(stereoKnob->getLeftView());
    } else if (offset == 2) {
        context.view = viewOrFirst(stereoKnob->getRightView());
    } else if (offset >= firstFrameOffset && offset <= lastFrameOffset) {
        context.frame += frameDistance(offset);
        // The control's value stands for a view here, so the neighbours are those of view 1 either way.
        context.view = viewOrFirst(matchWhat);
    }
    return context;
}

int ViewTintPlugin::doPreValidate(Fresco::Image::ViewerContext* viewer, Fresco::Image::PreValidateContext* context) {
    constexpr int failed = 2;
    if (const int result = Op::doPreValidate(viewer, context); result != 0) return result;
    refreshKnobVals();
    if (!Cobalt::Sextant::CheckForStereoViewsMissing(*this, knobVals)) return failed;
    return Cobalt::Sextant::CheckForStereoViewsValid(*this, knobVals) ? 0 : failed;
}

void ViewTintPlugin::_validate(bool forReal) {
    Iop::_validate(forReal);
    info_.channels.insert(Fresco::Image::alphaChannel);
    outChannels_.clear();
    const int view = outputContext().view;
    const int corrected = matchWhat == 0 ? stereoKnob->getLeftView() : stereoKnob->getRightView();
    if ((matchWhat == 0 || matchWhat == 1) && view == corrected) outChannels_ = colourChannels();
}

void ViewTintPlugin::getRequests(const Fresco::Image::Box& box, const ChannelSet& channels, int count,
                                 Fresco::Image::RequestOutput& requests) {
    if (!channels.intersects(colourChannels())) return;
    const auto request = [&](int inputIndex, int offset, const ChannelSet& wanted) {
        if (auto* iop = dynamic_cast<Iop*>(input(inputIndex, offset))) requests.add({iop, box, wanted, count});
    };
    const ChannelSet occlusion{occlusionChannel()};
    request(0, 1, colourChannels());
    request(0, 2, colourChannels());
    request(0, 1, disparityChannels());
    request(0, 2, disparityChannels());
    request(0, matchWhat + 1, occlusion);
    if (stabilises() && stabiliseOcclusionsNumberOfFrames > 1)
        for (int offset = firstFrameOffset; offset <= stabiliseOcclusionsNumberOfFrames + 1; ++offset)
            request(0, offset, occlusion);
    // Also for "Source Inverted Alpha", which is fetched from input 0 after all; it does no harm.
    if (maskWith > 1) request(1, 0, maskChannels(maskWith));
}

}  // namespace Cobalt::Research
