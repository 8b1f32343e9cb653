#include <gtest/gtest.h>

#include "framework/SextantShared.h"
#include "framework/StereoKnob.h"
#include "tests/framework/TestHost.h"

namespace {

using namespace ViewTint::Tests;
using Cobalt::Research::StereoKnobDropDown;

class Stereo : public testing::Test {
protected:
    /// The selected views as two digits.
    int selected(const StereoKnobDropDown& knob) const { return knob.getLeftView() * 10 + knob.getRightView(); }
    void declare(StereoKnobDropDown& knob) {
        Knob_Closure closure;
        knob.addKnobs(closure);
        for (const KnobDeclaration& view : closure.declarations())
            node.setKnob(view.name, view.defaultValue);
    }

    TestNode node;

    /// Has the node's controls.
    struct Operator : Op {
        using Op::Op;
        const char* Class() const override { return "Operator"; }
    } op{&node};
};

TEST_F(Stereo, TakesTwoViewsWhereThereAreTwo) {
    const TestProject project({"left", "right"});
    StereoKnobDropDown knob(&op);
    EXPECT_EQ(knob.getLeftView(), -1) << "before its controls exist";
    declare(knob);
    EXPECT_EQ(selected(knob), 12);
    knob.setLeftView(-1);
    EXPECT_EQ(selected(knob), 12);
    knob.setLeftView(2);
    EXPECT_EQ(selected(knob), 22);
    EXPECT_TRUE(knob.findDefaultViews());
    EXPECT_EQ(selected(knob), 12);
}

TEST_F(Stereo, FindsViewsByNameUnlessTwoAreChosen) {
    const TestProject project({"main", "right", "left"});
    StereoKnobDropDown knob(&op);
    declare(knob);
    EXPECT_TRUE(knob.findDefaultViews());
    EXPECT_EQ(selected(knob), 12);
    knob.setRightView(1);
    EXPECT_TRUE(knob.findDefaultViews());
    EXPECT_EQ(selected(knob), 32);
}

TEST_F(Stereo, StaysOnOneViewWhereThereIsOne) {
    const TestProject project({"main"});
    StereoKnobDropDown knob(&op);
    declare(knob);
    EXPECT_EQ(selected(knob), 11);
    EXPECT_FALSE(knob.findDefaultViews());
    EXPECT_EQ(selected(knob), 11);
}

TEST_F(Stereo, HashesItsViewsAndTheirNumber) {
    const auto hashOf = [](const StereoKnobDropDown& knob) {
        Hash hash;
        knob.append(hash);
        return hash;
    };
    const TestProject one({"main"});
    const StereoKnobDropDown knob(&op), detached(nullptr);
    const Hash before = hashOf(knob);
    EXPECT_NE(before, hashOf(detached));
    const TestProject three({"a", "b", "c"});
    EXPECT_NE(before, hashOf(knob));
}

TEST_F(Stereo, ReportsViewsThatCannotBeMatched) {
    const TestProject project({"left", "right"});
    Cobalt::Sextant::SextantPluginKnobVals views;
    views.rightView = 2;
    EXPECT_TRUE(CheckForStereoViewsMissing(op, views));
    EXPECT_TRUE(CheckForStereoViewsValid(op, views));
    EXPECT_TRUE(node.errors.empty());
    views.rightView = 3;
    EXPECT_FALSE(CheckForStereoViewsMissing(op, views));
    EXPECT_EQ(node.errors.back(),
              "leftView is view 1 and rightView is view 3, but the project has 2. Choose views that "
              "exist.");
    views.rightView = 1;
    EXPECT_FALSE(CheckForStereoViewsValid(op, views));
    EXPECT_EQ(node.errors.back(), "leftView and rightView are both view 1. Choose two different views.");

    const TestProject oneView({"main"});
    EXPECT_FALSE(CheckForStereoViewsValid(op, views));
    EXPECT_EQ(node.errors.back(), "Input Source missing views. Please provide left and right views.");
}

}  // namespace
