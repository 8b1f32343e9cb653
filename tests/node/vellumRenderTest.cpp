#include <algorithm>
#include <cmath>
#include <functional>

#include "Common/Common.h"
#include "compute/HostDevice.h"
#include "compute/Kernel.h"
#include "tests/node/NodeTest.h"

namespace {

using namespace ViewTint::Tests;

/// A device of the host's kind that calls back before every launch.
class WatchedDevice : public Vellum::Compute::Host::Device {
public:
    static Vellum::Compute::ContextPointer context(std::function<void()> beforeLaunch) {
        std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
        auto device = std::make_unique<WatchedDevice>();
        device->beforeLaunch_ = std::move(beforeLaunch);
        devices.push_back(std::move(device));
        return new Vellum::Compute::Context(std::move(devices));
    }
    void run(const Vellum::Compute::KernelCall& call) override {
        beforeLaunch_();
        Device::run(call);
    }

private:
    std::function<void()> beforeLaunch_;
};

class DeviceFailure : public Cobalt::Base::Exception {
public:
    using Exception::Exception;
};

TEST_F(Render, GivesTheCorrectedViewTheOthersColourAndKeepsItsAlpha) {
    EXPECT_EQ(render(), "");
    EXPECT_TRUE(host.errors.empty());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            expectPixel(x, y, {0.4f, 0.3f, 0.2f, 0.5f});
}

TEST_F(Render, CorrectsTheRightViewWhenTold) {
    op.matchWhat = 1;
    render();
    EXPECT_EQ(op.matchInputOffset, 2);
    expectPixel(2, 2, {0.1f, 0.12f, 0.15f, 0.25f});
}

TEST_F(Render, FollowsAColourCast) {
    // With the same picture under a gain, the spread of the colours has to come over, not only their mean.
    const auto shade = [](int x, int y) { return 0.2f + 0.02f * x + 0.01f * y; };
    for (const Channel channel : {redChannel, greenChannel, blueChannel}) {
        right.with(channel, shade);
        left.with(channel, [=](int x, int y) { return 0.8f * shade(x, y); });
    }
    render();
    ASSERT_TRUE(rendered());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_NEAR(*plane.at(x, y, 1), shade(x, y), 2e-3f);
}

TEST_F(Render, ReportsItsStagesInOrder) {
    render();
    EXPECT_EQ(host.progress, (std::vector<std::string>{"Adjusting colours", "0.000:0", "Fetching images", "0.143:0",
                                                       "0.286:0", "0.429:0", "0.571:0", "0.714:0", "0.857:0"}));
}

TEST_F(Render, LeavesUnselectedPixelsAsTheyCame) {
    TestSource half(box);
    half.with(alphaChannel, [](int x, int) { return x < 3 ? 1.0f : 0.0f; });
    op.maskWith = 5;
    connect(&half);
    render();
    expectPixel(1, 1, {0.4f, 0.3f, 0.2f, 0.5f});
    expectPixel(4, 1, {0.1f, 0.12f, 0.15f, 0.5f});
}

TEST_F(Render, OccludedPixelsDoNotCount) {
    right.with(redChannel, [](int x, int) { return x == 5 ? 9.0f : 0.4f; });
    frames[2].withUndeclared(occlusion, [](int x, int) { return x == 5 ? 1.0f : 0.0f; });
    render();
    expectPixel(0, 0, {0.4f, 0.3f, 0.2f, 0.5f});
}

TEST_F(Render, FillsPlanesOfSomeChannelsPackedOrPlanar) {
    for (const bool packed : {false, true}) {
        ImagePlane some(box, packed, {redChannel, alphaChannel});
        op.renderStripe(some);
        ASSERT_TRUE(some.buffer());
        EXPECT_NEAR(*some.at(5, 3, 0), 0.4f, 1e-5f);
        EXPECT_EQ(*some.at(5, 3, 1), 0.5f);
    }
}

TEST_F(Render, LocalMatchingGivesEachPlaceTheOthersColour) {
    // Opposite casts at the two ends: one map for all would leave both halves.
    left.with(redChannel, [](int x, int) { return x < 3 ? 0.1f : 0.4f; });
    right.with(redChannel, [](int x, int) { return x < 3 ? 0.4f : 0.1f; });
    op.matchingMode = 1;
    op.blockSize = 2;
    op.maxBlockSize = 3;
    for (const int samples : {1, 2}) {
        op.samples = samples;
        op.occlusionCorrection = 2;
        op.correctionScale = 0;
        ASSERT_EQ(render(), "");
        ASSERT_TRUE(rendered());
        EXPECT_GT(*plane.at(0, 1, 0), 0.3f) << samples;
        EXPECT_LT(*plane.at(5, 1, 0), 0.3f) << samples;
        EXPECT_EQ(*plane.at(0, 1, 3), 0.5f);
    }
}

TEST_F(Render, ShowsTheStagesOfLocalMatching) {
    std::vector<std::string> names;
    op.matchingMode = 1;
    op.samples = 2;
    op.stageObserver = [&](const char* name, const auto& picture) {
        names.emplace_back(name);
        EXPECT_EQ(picture.box().width(), box.width());
    };
    EXPECT_EQ(render(), "");
    EXPECT_EQ(names, (std::vector<std::string>{"V", "N", "T", "noise", "E0", "E1", "merged", "O", "delta", "refilled",
                                               "average", "limited", "smoothed"}));
}

TEST_F(Render, NeedsTwoUsableViews) {
    TestSource flat({0, 0, 6, 1});
    TestSource black(box, "Black");
    for (TestSource* useless : {&flat, &black}) {
        host.splits[0][2] = useless;
        host.errors.clear();
        render();
        EXPECT_EQ(host.errors,
                  std::vector<std::string>{"Input Source missing views. Please provide left and right views."});
    }
    host.errors.clear();
    host.abortWanted = true;
    render();
    host.splits.clear();
    render();
    EXPECT_TRUE(host.errors.empty());
    EXPECT_FALSE(rendered());
    EXPECT_TRUE(host.progress.empty());
}

TEST_F(Render, NeedsDisparityAlsoInBasic) {
    TestSource without(box);
    without.withColour(0.1f, 0.1f, 0.1f, 1.0f);
    host.splits[0][1] = &without;
    render();
    EXPECT_EQ(host.errors,
              std::vector<std::string>{"Input Source missing disparity. Please add an upstream Q_ParallaxField node."});
    EXPECT_FALSE(rendered());
}

TEST_F(Render, WithoutItsMaskLeavesThePlaneUnwritten) {
    op.maskWith = 3;
    render();
    EXPECT_EQ(host.errors,
              std::vector<std::string>{"Channel selected as Mask is missing. Please connect the correct input."});
    EXPECT_FALSE(rendered());
    EXPECT_EQ(host.progress.back(), "Fetching images");
}

TEST_F(Render, AbortedAtAnyFetchEndsSilently) {
    for (int fetches = 0; fetches < 12; ++fetches) {
        SCOPED_TRACE(fetches);
        int left_ = fetches;
        const auto countDown = [&](const ChannelSet&) { host.abortWanted = left_-- <= 0; };
        for (TestSource* source : {&left, &right, &frames[0], &frames[1], &frames[2], &frames[3]})
            source->onFetch = countDown;
        host.abortWanted = false;
        host.errors.clear();
        ImagePlane fresh(box, false, ChannelSet::fromMask(rgbaMask));
        op.renderStripe(fresh);
        // Five occlusion frames, two views, the disparity.
        EXPECT_EQ(static_cast<bool>(fresh.buffer()), fetches >= 8);
        // While occlusion is fetched the sentence about disparity comes out all the same.
        EXPECT_EQ(host.errors.size(), fetches < 5 ? 1u : 0u);
    }
}

TEST_F(Render, AbortedBetweenStagesEndsSilently) {
    const auto lastReport = [&](const std::string& abortAfter) {
        host.abortAfter = abortAfter;
        host.abortWanted = false;
        host.progress.clear();
        render();
        EXPECT_TRUE(host.errors.empty());
        EXPECT_FALSE(rendered());
        return host.progress.back();
    };
    EXPECT_EQ(lastReport("Adjusting colours"), "Adjusting colours");
    EXPECT_EQ(lastReport("0.429:0"), "0.429:0");

    bool fetched = false;
    left.onFetch = [&](const ChannelSet& channels) { fetched = channels.contains(firstDisparityChannel); };
    op.hostContext = WatchedDevice::context([&] { host.abortWanted = fetched; });
    EXPECT_EQ(lastReport(""), "Fetching images");
}

TEST_F(Render, ReportsAFailureThatHappensTwice) {
    bool gpuLost = false;
    std::function<void()> failure;
    op.gpuContext = WatchedDevice::context([&] {
        if (!matching()) return;
        gpuLost = true;
        failure();
    });
    op.hostContext = WatchedDevice::context([&] {
        if (gpuLost) failure();
    });
    const auto errorAfter = [&](std::function<void()> what) {
        failure = std::move(what);
        gpuLost = false;
        host.errors.clear();
        EXPECT_EQ(render(), switching);
        EXPECT_EQ(host.errors.size(), 1u);
        return host.errors.empty() ? "" : host.errors[0];
    };
    EXPECT_EQ(errorAfter([] {
                  DeviceFailure lost("no answer from %%(Device)%%");
                  lost.set("Device", "GPU 0");
                  Cobalt::Base::raise(lost);
              }),
              "no answer from GPU 0");
    EXPECT_EQ(errorAfter([] { throw std::runtime_error("foreign"); }), "Exception while running kernel on device");
    EXPECT_FALSE(rendered());
}

TEST_F(Render, DoesNotRunTheMatcherAgainAfterAnAbort) {
    op.gpuContext = WatchedDevice::context([&] {
        if (!matching()) return;
        host.abortWanted = true;
        Cobalt::Base::raise(DeviceFailure("lost"));
    });
    EXPECT_EQ(render(), "");
    EXPECT_TRUE(host.errors.empty());
    EXPECT_FALSE(rendered());
}

TEST_F(Render, ViewsOfOtherBoxesAreComparedWhereTheyOverlap) {
    TestSource smaller({1, 1, 4, 4});
    smaller.withColour(0.4f, 0.3f, 0.2f, 1.0f);
    host.splits[0][2] = &smaller;
    TestSource maskSource({1, 1, 4, 4});
    maskSource.withColour(1, 1, 1, 1);
    op.maskWith = 5;
    host.splits[1] = {&maskSource};
    render();
    EXPECT_TRUE(host.errors.empty());
    expectPixel(2, 2, {0.4f, 0.3f, 0.2f, 0.5f});
    expectPixel(0, 0, {0.1f, 0.12f, 0.15f, 0.5f});
}

TEST_F(Render, BeyondTheOtherViewItsBorderGoesOnNotStaleMemory) {
    TestSource smaller({0, 0, 6, 2});
    smaller.withColour(0.4f, 0.3f, 0.2f, 1.0f);
    host.splits[0][2] = &smaller;
    // Memory that goes back to the pool and comes out again for the render's images.
    std::vector<Vellum::Image::Image> stale;
    for (int i = 0; i < 16; ++i) {
        stale.emplace_back(Vellum::Image::Info{box, 4, Vellum::Pixel::DataEnum::float32}, op.hostContext->device());
        Vellum::Common::fillConstant(stale.back(), std::nanf(""));
    }
    stale.clear();
    render();
    expectPixel(0, 0, {0.4f, 0.3f, 0.2f, 0.5f});
    expectPixel(5, 3, {0.4f, 0.3f, 0.2f, 0.5f});
}

}  // namespace
