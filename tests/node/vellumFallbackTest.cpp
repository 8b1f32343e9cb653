#include <algorithm>

#include "tests/harness/SoftwareDevice.h"
#include "tests/node/NodeTest.h"

namespace ViewTint::Tests {

namespace {

using Operation = SoftwareDevice::Operation;
using Failing = SoftwareDevice::Failing;

/// Renders on a device of its own memory that fails at one point after the other.
class Fallback : public Render {
protected:
    Fallback() {
        // Pictures with some spread, so that every statistic matters.
        for (const Channel channel : {redChannel, greenChannel, blueChannel}) {
            left.with(channel, [=](int x, int y) { return 0.1f + 0.03f * x + 0.02f * y * (channel + 1); });
            right.with(channel, [=](int x, int y) { return 0.2f + 0.05f * x + 0.01f * y * (channel + 2); });
        }
        // A step in the disparity, so that there are holes to fill.
        left.with(disparityTowardsRight, [](int x, int) { return x < 3 ? 0.0f : -2.0f; });
        renderAgain();
        onTheCpu = picture();
        op.gpuContext = gpu.context();
    }

    /// Renders into a new plane and returns the standard output.
    std::string renderAgain() {
        fresh = std::make_unique<ImagePlane>(box, false, ChannelSet::fromMask(rgbaMask));
        testing::internal::CaptureStdout();
        op.renderStripe(*fresh);
        return testing::internal::GetCapturedStdout();
    }

    /// What the latest render wrote; nothing where it wrote nothing.
    std::vector<float> picture() const {
        std::vector<float> values;
        for (int y = box.y0; fresh->buffer() && y < box.y1; ++y)
            for (int x = box.x0; x < box.x1; ++x)
                for (int c = 0; c < 4; ++c)
                    values.push_back(*fresh->at(x, y, c));
        return values;
    }

    /// How many operations of a kind an undisturbed render tries.
    struct Tried {
        int forTheOtherView;  ///< before the match: failures there end the render
        int all;
    };
    Tried operationsOfARender(Operation operation) {
        const int before = gpu.device().count(operation);
        int rebuilt = 0;
        host.onReport = [&](const std::string& report) {
            if (report == "0.143:0") rebuilt = gpu.device().count(operation);
        };
        EXPECT_EQ(renderAgain(), "");
        host.onReport = nullptr;
        return {rebuilt - before, gpu.device().count(operation) - before};
    }

    void expectAFailedRender(const std::string& when) {
        ASSERT_EQ(host.errors.size(), 1u) << when;
        EXPECT_NE(host.errors[0].find("The software device"), std::string::npos) << host.errors[0];
        EXPECT_TRUE(picture().empty()) << when;
        EXPECT_EQ(gpu.device().bytesInUse(), 0u) << when;
        host.errors.clear();
    }

    void expectTheCpusFrame(const std::string& when) {
        EXPECT_TRUE(host.errors.empty()) << when;
        EXPECT_EQ(picture(), onTheCpu) << when;
        EXPECT_EQ(gpu.device().bytesInUse(), 0u) << when;
    }

    const Channel disparityTowardsRight = static_cast<Channel>(firstDisparityChannel + 2);
    const std::string outOfMemory = "Warning: not enough memory on GPU, switching to CPU.\n";
    SoftwareContext gpu;
    std::unique_ptr<ImagePlane> fresh;
    std::vector<float> onTheCpu;
};

TEST_F(Fallback, WithoutFailuresTheDeviceGivesTheCpusFrameToRounding) {
    EXPECT_GT(operationsOfARender(Operation::launch).all, 60);
    EXPECT_TRUE(host.errors.empty());
    const auto onTheGpu = picture();
    ASSERT_EQ(onTheGpu.size(), onTheCpu.size());
    for (std::size_t i = 0; i < onTheCpu.size(); ++i)
        EXPECT_NEAR(onTheGpu[i], onTheCpu[i], 1e-6f);

    op.useGPUIfAvailable = false;
    EXPECT_EQ(operationsOfARender(Operation::launch).all, 0);
    expectTheCpusFrame("not wanted");
}

/// An image that finds no room moves the render to the CPU where it stands; a call that finds none for its own blocks
/// is a failed call: in the match it is started again, before that the render ends.
TEST_F(Fallback, AnyFailingAllocation) {
    int images = 0;
    int calls = 0;
    const Tried tried = operationsOfARender(Operation::allocation);
    for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
        for (int number = 0; number < tried.all; ++number) {
            const std::string when = "allocation " + std::to_string(number);
            gpu.device().failAt(Operation::allocation, number, failing);
            const std::string warning = renderAgain();
            const bool insideCall = gpu.device().failedInsideCall();
            ++(insideCall ? calls : images);
            if (insideCall && number < tried.forTheOtherView) {
                EXPECT_EQ(warning, "") << when;
                expectAFailedRender(when);
            } else {
                EXPECT_EQ(warning, insideCall ? switching : outOfMemory) << when;
                expectTheCpusFrame(when);
            }
        }
    }
    EXPECT_GT(images, 0);
    EXPECT_GT(calls, 0);
}

TEST_F(Fallback, AHostThatTakesWarningsHearsTheReason) {
    host.takesWarnings = true;
    for (const Operation operation : {Operation::allocation, Operation::launch}) {
        host.warnings.clear();
        gpu.device().failAt(operation, operationsOfARender(operation).all - 1, Failing::once);
        EXPECT_EQ(renderAgain(), "");
        expectTheCpusFrame("");
        ASSERT_EQ(host.warnings.size(), 1u);
        EXPECT_NE(host.warnings[0].find("on the GPU (The software device"), std::string::npos) << host.warnings[0];
    }
}

TEST_F(Fallback, AnyFailingLaunch) {
    const Tried tried = operationsOfARender(Operation::launch);
    for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
        for (int number = 0; number < tried.all; ++number) {
            const std::string when = "launch " + std::to_string(number);
            gpu.device().failAt(Operation::launch, number, failing);
            const bool inTheMatch = number >= tried.forTheOtherView;
            EXPECT_EQ(renderAgain(), inTheMatch ? switching : "") << when;
            inTheMatch ? expectTheCpusFrame(when) : expectAFailedRender(when);
        }
    }
}

/// A device that no longer gives out what it holds makes the move to the CPU fail too: then the match starts again.
TEST_F(Fallback, AnyFailingCopy) {
    bool both = false;
    const Tried tried = operationsOfARender(Operation::copy);
    for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
        for (int number = 0; number < tried.all; ++number) {
            const std::string when = "copy " + std::to_string(number);
            gpu.device().failAt(Operation::copy, number, failing);
            const std::string warning = renderAgain();
            if (number < tried.forTheOtherView) {
                if (warning == outOfMemory && host.errors.empty())
                    expectTheCpusFrame(when);
                else
                    expectAFailedRender(when);
                continue;
            }
            both |= warning == outOfMemory + switching;
            EXPECT_TRUE(warning == switching || warning == outOfMemory ||
                        (failing == Failing::fromThenOn && warning == outOfMemory + switching))
                << when << ": " << warning;
            expectTheCpusFrame(when);
        }
    }
    EXPECT_TRUE(both);
}

/// As above: an image without room moves the match where it stands, other failures start it again.
TEST_F(Fallback, AnyFailureInLocalMatching) {
    op.matchingMode = 1;
    op.samples = 2;
    op.gpuContext = Vellum::Compute::ContextPointer();
    renderAgain();
    onTheCpu = picture();
    op.gpuContext = gpu.context();
    for (const Operation operation : {Operation::allocation, Operation::launch, Operation::copy}) {
        const Tried tried = operationsOfARender(operation);
        EXPECT_GT(tried.all, tried.forTheOtherView + 5);
        const int step = std::max(1, (tried.all - tried.forTheOtherView) / 4);  // such a render has 1000 launches
        for (int number = tried.forTheOtherView; number < tried.all; number += step) {
            const std::string when =
                "operation " + std::to_string(static_cast<int>(operation)) + ", " + std::to_string(number);
            gpu.device().failAt(operation, number);
            const std::string warning = renderAgain();
            const bool moved = operation != Operation::launch && warning == outOfMemory;
            EXPECT_TRUE(moved || warning == switching) << when << ": " << warning;
            ASSERT_TRUE(host.errors.empty()) << when;
            const auto values = picture();
            ASSERT_EQ(values.size(), onTheCpu.size()) << when;
            for (std::size_t i = 0; i < values.size(); ++i)
                EXPECT_NEAR(values[i], onTheCpu[i], 1e-5f) << when;
            EXPECT_EQ(gpu.device().bytesInUse(), 0u) << when;
        }
    }
}

TEST_F(Fallback, ADeviceTooSmallForTheRenderIsLeft) {
    for (const std::size_t budget : {0, 1000, 4000, 100000}) {
        const SoftwareContext small(budget);
        op.gpuContext = small.context();
        const std::string warning = renderAgain();
        if (small.device().failedInsideCall() && warning.empty()) {
            expectAFailedRender("budget " + std::to_string(budget));
        } else {
            EXPECT_EQ(warning, small.device().failedInsideCall() ? switching : outOfMemory) << budget;
            expectTheCpusFrame("budget " + std::to_string(budget));
        }
    }
}

TEST_F(Fallback, AFailureThatStaysIsReported) {
    const SoftwareContext cpu;
    op.hostContext = cpu.context();
    cpu.device().failAt(Operation::launch, 0, Failing::fromThenOn);
    gpu.device().failAt(Operation::launch, 0);
    renderAgain();
    ASSERT_EQ(host.errors.size(), 1u);
    EXPECT_NE(host.errors[0].find("The software device failed"), std::string::npos) << host.errors[0];
    EXPECT_TRUE(picture().empty());
}

}  // namespace

}  // namespace ViewTint::Tests
