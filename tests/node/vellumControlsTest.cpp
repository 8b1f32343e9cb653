#include <algorithm>
#include <set>

#include "tests/node/NodeTest.h"

namespace {

using namespace ViewTint::Tests;
using Names = std::set<std::string>;

TEST(Registration, FindsTheNodeByItsClassName) {
    const Op::Description* description = Op::Description::find("Q_ViewTint2_1");
    ASSERT_NE(description, nullptr);
    EXPECT_NE(description->buildStamp.find(" for "), std::string::npos);
    const std::unique_ptr<Op> first = description->make(nullptr);
    const std::unique_ptr<Op> second = description->make(nullptr);
    EXPECT_STREQ(second->Class(), "Q_ViewTint2_1");
    EXPECT_STREQ(second->displayName(), "Q_ViewTint");
    EXPECT_NE(std::string(second->node_help()).find("Adjust 'Preserve Noise' to match"), std::string::npos);
    char buffer[32];
    EXPECT_STREQ(first->input_label(1, buffer), "Mask");
    EXPECT_STREQ(first->input_label(5, buffer), "Invalid");
    EXPECT_EQ(first->minimum_inputs() * 10 + first->maximum_inputs(), 12);
}

class Controls : public NodeTest {
protected:
    Controls() { op.knobs(closure); }

    Names with(KnobFlags flag) const {
        Names names;
        for (const KnobDeclaration& knob : closure.declarations())
            if (knob.flags & flag) names.insert(knob.name);
        return names;
    }
    void set(const std::string& name, double value) {
        host.knobs.at(name)->set_value(value);
        EXPECT_EQ(op.knob_changed(host.knobs.at(name).get()), 1) << name;
    }
    bool enabled(const std::string& name) const { return host.knobs.at(name)->enabled(); }

    Knob_Closure closure;
};

TEST_F(Controls, StandInTheirOrder) {
    std::string order;
    for (const KnobDeclaration& knob : closure.declarations())
        order += (knob.name.empty() ? "[" + knob.label + "]" : knob.name) + " ";
    EXPECT_EQ(
        order,
        "[Local GPU:] gpuName [ ] useGPUIfAvailable enableMultiGPU [] version leftView rightView "
        "matchWhat matchingMode [ ] maskWith [Local Matching] [ ] previewCorrection blockSize maxBlockSize "
        "correctionType [ ] correctionScale [ ] correctionLimit [ ] noiseLevel samples intervalType [Occlusions] "
        "[ ] outputOcclusionsToAlpha occlusionCorrection stabiliseOcclusionsNumberOfFrames adjustEdges edgeDetect "
        "colourTolerance supportSize [ ] stabiliseOcclusions featherSize ");
}

TEST_F(Controls, CarryTheirFlags) {
    EXPECT_EQ(with(0x40000), (Names{"maxBlockSize", "correctionType", "samples", "intervalType",
                                    "stabiliseOcclusionsNumberOfFrames", "edgeDetect", "featherSize"}));
    EXPECT_EQ(with(16), (Names{"blockSize", "maxBlockSize", "correctionScale", "noiseLevel", "samples",
                               "stabiliseOcclusionsNumberOfFrames", "adjustEdges", "edgeDetect", "colourTolerance",
                               "supportSize"}));
    EXPECT_EQ(with(4), (Names{"correctionLimit", "colourTolerance"}));
    EXPECT_EQ(with(0x80000000), (Names{"leftView", "rightView", "maskWith", "occlusionCorrection",
                                       "stabiliseOcclusionsNumberOfFrames", "stabiliseOcclusions"}));
    EXPECT_EQ(with(0x8000000000), (Names{"previewCorrection", "outputOcclusionsToAlpha"}));
}

TEST_F(Controls, FitTheirDefaultsAndReachTheirMembers) {
    for (const KnobDeclaration& knob : closure.declarations()) {
        if (!knob.holdsValue()) continue;
        EXPECT_EQ(knob.tooltip.empty(), knob.name == "stabiliseOcclusionsNumberOfFrames") << knob.name;
        if (knob.hasRange) {
            EXPECT_TRUE(knob.minimum <= knob.defaultValue && knob.defaultValue <= knob.maximum) << knob.name;
        }
        if (knob.kind == KnobKind::enumeration) {
            EXPECT_LT(knob.defaultValue, knob.choices.size()) << knob.name;
        }
        storeValue(knob.storage, knob.kind == KnobKind::boolean ? 1 - knob.defaultValue : knob.defaultValue + 1);
    }
    EXPECT_EQ(op.matchWhat, 1);
    EXPECT_EQ(op.maskWith, 1);
    EXPECT_EQ(op.blockSize, 6);
    EXPECT_EQ(op.maxBlockSize, 101);
    EXPECT_EQ(op.samples, 6);
    EXPECT_EQ(op.supportSize, 21);
    EXPECT_EQ(op.stabiliseOcclusionsNumberOfFrames, 6);
    EXPECT_EQ(op.featherSize, 2.5f);
    EXPECT_EQ(op.colourTolerance, 1.1f);
    EXPECT_EQ(op.correctionScale, 1.5f);
    EXPECT_EQ(op.noiseLevel, 1.25f);
    EXPECT_FALSE(op.stabiliseOcclusions);
    EXPECT_TRUE(op.previewCorrection && op.outputOcclusionsToAlpha);
    EXPECT_EQ(closure.find("matchWhat")->choices, (std::vector<std::string>{"Left to Right", "Right to left"}));
    EXPECT_EQ(closure.find("maskWith")->choices[4], "Mask Inverted Luminance");
}

TEST_F(Controls, OfLocalMatchingRestInBasic) {
    set("matchingMode", 0);
    for (const auto& [name, knob] : host.knobs) {
        const Names always{"useGPUIfAvailable", "leftView", "rightView", "matchWhat", "matchingMode", "maskWith"};
        EXPECT_EQ(knob->enabled(), always.contains(name)) << name;
    }
}

TEST_F(Controls, FollowTheNumberOfSamples) {
    set("matchingMode", 1);
    const auto states = [&](double samples) {
        set("samples", samples);
        return std::string(enabled("correctionType") ? "c" : "") + (enabled("maxBlockSize") ? "m" : "") +
               (enabled("intervalType") ? "i" : "");
    };
    EXPECT_EQ(states(1), "");
    EXPECT_EQ(states(2), "cm");
    EXPECT_EQ(states(3), "cmi");
}

TEST_F(Controls, FollowTheOcclusionCorrection) {
    set("matchingMode", 1);
    const auto states = [&](double correction) {
        set("occlusionCorrection", correction);
        return std::string(enabled("adjustEdges") ? "a" : "") + (enabled("stabiliseOcclusions") ? "s" : "") +
               (enabled("featherSize") ? "f" : "") + (enabled("occlusionCorrection") ? "o" : "");
    };
    EXPECT_EQ(states(0), "sfo");
    EXPECT_EQ(states(1), "asfo");
    EXPECT_EQ(states(2), "o");
}

TEST_F(Controls, AreAskedForTheirValuesNotTheMembers) {
    op.matchingMode = 0;
    host.knobs.at("matchingMode")->set_value(1);
    TestKnob panel("showPanel");
    EXPECT_EQ(op.knob_changed(&panel), 1);
    EXPECT_TRUE(enabled("blockSize"));
    EXPECT_FALSE(enabled("adjustEdges"));
}

TEST_F(Controls, KeepTheLimitFromFallingBelowZero) {
    set("correctionLimit", -0.5);
    EXPECT_EQ(host.knobs.at("correctionLimit")->get_value(), 0.0);
    set("correctionLimit", 3.0);
    EXPECT_EQ(host.knobs.at("correctionLimit")->get_value(), 3.0);
    host.knobs.at("correctionLimit")->set_value(-1);
    EXPECT_EQ(op.knob_changed(host.knobs.at("blockSize").get()), 0);
    EXPECT_EQ(host.knobs.at("correctionLimit")->get_value(), -1.0);
}

}  // namespace
