#pragma once

#include <gtest/gtest.h>

#include "node/ViewTintChoices.h"
#include "node/ViewTintPlugin.h"
#include "tests/framework/TestHost.h"

namespace ViewTint::Tests {

/// The node with what only it and its host see.
class TestedNode : public Cobalt::Research::ViewTintPlugin {
public:
    using VellumSettings::gpuContext;
    using VellumSettings::hostContext;
    using VellumSettings::useGPUIfAvailable;
    using ViewTintPlugin::fetchDisparity;
    using ViewTintPlugin::fetchMask;
    using ViewTintPlugin::fetchOcclusionMask;
    using ViewTintPlugin::fetchSourceViews;
    using ViewTintPlugin::ViewTintPlugin;
};

/// A node on a stereo project: two views with everything that a render needs, four neighbour frames, no mask.
class NodeTest : public testing::Test {
protected:
    NodeTest() {
        for (TestSource* source : {&base, &left, &right})
            source->withColour(0.2f, 0.4f, 0.6f, 0.5f).withDisparity();
        for (TestSource* source : {&base, &left, &right})
            source->withUndeclared(occlusion, constant(0.0f));
        for (TestSource& frame : frames)
            frame.withUndeclared(occlusion, constant(0.0f));
        op.matchingMode = 0;
        op.matchInputOffset = 1;
        host.makeKnobs(op);
        connect();
    }

    /// Connects as many splits as the node asks for; input 1 is `maskSource`.
    void connect(Op* maskSource = nullptr) {
        std::vector<Op*> splits{&base, &left, &right};
        for (int i = 3; i < op.split_input(0); ++i)
            splits.push_back(&frames[i - 3]);
        host.splits = {splits, {maskSource}};
    }

    const Box box{0, 0, 6, 4};
    const Channel occlusion = Cobalt::Research::occlusionChannel();
    TestProject project{{"left", "right"}};
    TestNode host;
    TestSource base{box}, left{box}, right{box};
    TestSource frames[4] = {TestSource(box), TestSource(box), TestSource(box), TestSource(box)};
    TestedNode op{&host};
};

/// Renders with a dark left view and a bright right one.
class Render : public NodeTest {
protected:
    Render() {
        left.withColour(0.1f, 0.12f, 0.15f, 0.5f);
        right.withColour(0.4f, 0.3f, 0.2f, 0.25f);
    }

    /// Renders RGBA and returns the standard output.
    std::string render() {
        testing::internal::CaptureStdout();
        op.renderStripe(plane);
        return testing::internal::GetCapturedStdout();
    }
    /// The other view is rebuilt and the match runs.
    bool matching() const { return host.progress.back() == "0.429:0"; }
    bool rendered() const { return static_cast<bool>(plane.buffer()); }
    void expectPixel(int x, int y, std::array<float, 4> expected) const {
        ASSERT_TRUE(rendered());
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(*plane.at(x, y, c), expected[c], 1e-5f) << "component " << c;
    }

    const std::string switching = "Warning: switching to CPU.\n";
    ImagePlane plane{box, false, ChannelSet::fromMask(rgbaMask)};
};

}  // namespace ViewTint::Tests
