#pragma once

#include "framework/ResearchVellumPlanarIop.h"
#include "framework/SextantShared.h"

namespace Cobalt::Sextant {

/// The base of stereo operators: their view choice and the test of their inputs.
class SextantVellumBase : public Cobalt::Research::ResearchVellumPlanarIop {
public:
    using ResearchVellumPlanarIop::ResearchVellumPlanarIop;

    /// True where the input of that number delivers pixels, at least 2 by 2 of them. The host puts an operator of class
    /// "Black" where nothing is connected.
    virtual bool isInputUsable(int inputIndex) const;
    /// The same for a split of input 0.
    virtual bool isSplitUsable(int offset) const;
    /// The input that a mask comes from: 0 for modes below 3, else `input`.
    virtual int maskSourceInput(int mode, int input) const { return mode < 3 ? 0 : input; }

    bool inputsUsable(int inputIndexA, int inputIndexB) const {
        return isInputUsable(inputIndexA) && isInputUsable(inputIndexB);
    }

protected:
    SextantPluginKnobVals knobVals;
};

}  // namespace Cobalt::Sextant
