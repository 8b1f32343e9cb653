#include <gtest/gtest.h>

#include <cmath>

#include "host/graph/RenderJob.h"
#include "tests/CUDA/StandIns.h"
#include "tests/CUDA/StereoPictures.h"

namespace ViewTint::Tests {

namespace {

using Host::ControlValues;
using Host::FramePictures;
using Host::NodeRender;

const Box frame{0, 0, 72, 48};
constexpr auto cuda = Cobalt::Device::APIEnum::CUDA;

/// Renders one frame on the CPU or on the stand-in of a GPU.
class CudaRender : public testing::TestWithParam<const char*> {
protected:
    ~CudaRender() override { VellumLibrary::SelectGPUContext(cuda, -1); }

    struct Outcome {
        Pixels picture{Box{}, 4};
        std::vector<std::string> messages;
        std::string printed;
    };
    Outcome render(bool onGpu) const {
        VellumLibrary::SelectGPUContext(cuda, onGpu ? 0 : -1);
        ControlValues controls(Host::viewTintClass);
        controls.set("matchingMode", GetParam());
        controls.set("maxBlockSize", "20");
        controls.set("samples", "2");
        controls.set("correctionLimit", "0.02");
        testing::internal::CaptureStdout();
        const auto result = NodeRender::render(controls, pictures);
        Outcome outcome{.messages = result.messages, .printed = testing::internal::GetCapturedStdout()};
        if (result.picture) outcome.picture = pixelsOf(*result.picture);
        return outcome;
    }
    /// The result of sums differs in its last bits between devices, and everything that follows from it.
    void expectLike(const Outcome& expected, const Outcome& actual, double allowed, const std::string& when) const {
        ASSERT_TRUE(actual.messages.empty()) << when << ": " << actual.messages.front();
        ASSERT_EQ(actual.picture.box(), frame) << when;
        double most = 0;
        expected.picture.forEach([&](int x, int y, int c) {
            most = std::max(most, std::abs(double{expected.picture.at(x, y, c)} - actual.picture.at(x, y, c)));
        });
        EXPECT_LE(most, allowed) << when;
    }
    static constexpr double bound = 5e-6;
    const FramePictures pictures = stereoPictures(frame);
};

}  // namespace

TEST_P(CudaRender, givesTheCpusPictureToRounding) {
    const Outcome onCpu = render(false);
    const int before = driverCalls("cuLaunchKernel");
    const Outcome onGpu = render(true);
    EXPECT_GT(driverCalls("cuLaunchKernel"), before + 60);
    EXPECT_EQ(onGpu.printed, "");
    expectLike(onCpu, onGpu, bound, "undisturbed");
    EXPECT_EQ(firstDifference(onGpu.picture, render(true).picture), "") << "the same each time";
    EXPECT_EQ(gpu().pool().bytesInUse(), 0u);
}

/// Whatever call fails, once or from then on: a frame, or a sentence on the node.
TEST_P(CudaRender, failingCallsCostAMessageAtMost) {
    const Outcome onCpu = render(false);
    const std::string noRoom = "Warning: not enough memory on GPU, switching to CPU.\n";
    const std::string switching = "Warning: switching to CPU.\n";
    int delivered = 0, refused = 0;
    for (const auto& [call, result] : {std::pair{"cuMemAlloc", 2},
                                       {"cuLaunchKernel", 719},
                                       {"cuLaunchKernel", 2},
                                       {"cuMemcpyHtoD", 700},
                                       {"cuCtxSynchronize", 719},
                                       {"cuModuleLoadData", 218}}) {
        const int before = driverCalls(call);
        gpu().pool().trim();
        render(true);
        const int calls = driverCalls(call) - before;
        for (const bool always : {false, true}) {
            for (int step = 0; step < 7 && calls > 0; ++step) {
                gpu().pool().trim();
                const int number = calls * step / 7;
                const FailingDriver failing(call, number, result, always);
                const Outcome outcome = render(true);
                const std::string when = std::string(call) + " " + std::to_string(number) + (always ? "+" : "");
                if (outcome.messages.empty()) {
                    ++delivered;
                    expectLike(onCpu, outcome, bound, when);
                    const bool atOnce = outcome.printed.empty();  // the pool's second try found room
                    EXPECT_TRUE(atOnce || outcome.printed == noRoom || outcome.printed == switching)
                        << when << ": " << outcome.printed;
                } else {
                    ++refused;
                    EXPECT_NE(outcome.messages.front().find("Stand-in GPU"), std::string::npos)
                        << when << ": " << outcome.messages.front();
                }
                EXPECT_EQ(gpu().pool().bytesInUse(), 0u) << when;
            }
        }
    }
    EXPECT_GT(delivered, 20);
    EXPECT_GT(refused, 5);
}

/// After a fault within a kernel a card answers nothing any more.
TEST_P(CudaRender, aCardThatDiesInTheMatchCostsNoFrame) {
    const Outcome onCpu = render(false);
    const int before = driverCalls("*");
    render(true);
    const int calls = driverCalls("*") - before;
    int delivered = 0;
    for (int step = 0; step < 12; ++step) {
        const FailingDriver dead("*", calls * step / 12, 700, true);
        const Outcome outcome = render(true);
        if (!outcome.messages.empty()) continue;
        ++delivered;
        expectLike(onCpu, outcome, bound, "step " + std::to_string(step));
    }
    EXPECT_GE(delivered, GetParam() == std::string("Basic") ? 1 : 7);
}

INSTANTIATE_TEST_SUITE_P(Modes, CudaRender, testing::Values("Basic", "Local Matching"),
                         [](const auto& mode) { return mode.index == 0 ? "Basic" : "Local"; });

}  // namespace ViewTint::Tests
