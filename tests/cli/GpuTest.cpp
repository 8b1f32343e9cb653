#include <cstdlib>

#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

/// The command on a machine with cards, which a stand-in of the driver's library pretends.
class Gpu : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        if (!VIEWTINT_HAS_GPU_TEXT) GTEST_SKIP() << "this build was made without a compiler for GPUs";
        setenv("VIEWTINT_CUDA_DRIVER", VIEWTINT_STAND_IN_DRIVER, 1);
        setenv("VIEWTINT_STAND_IN_MIB", "256", 1);
        writePair();
        EXPECT_EQ(pack("in.exr").exitCode, 0);
    }
    void TearDown() override {
        for (const char* name :
             {"VIEWTINT_CUDA_DRIVER", "VIEWTINT_STAND_IN_MIB", "VIEWTINT_STAND_IN_DEVICES", "VIEWTINT_STAND_IN_FAIL"})
            unsetenv(name);
        CommandTest::TearDown();
    }
    Outcome render(std::vector<std::string> more) const {
        std::vector<std::string> words{"render", "in.exr", "-o", "out.exr", "--matchingMode", "Basic"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }
};

}  // namespace

TEST_F(Gpu, DevicesAreListed) {
    setenv("VIEWTINT_STAND_IN_DEVICES", "2", 1);
    const Outcome text = run({"info", "--devices"});
    EXPECT_NE(text.output.find("GPU 1: Stand-in GPU 1, compute capability 9.0, 256 MiB\n"), std::string::npos)
        << text.output;
    const auto json = parseJson(run({"info", "--devices", "--json"}).output);
    EXPECT_EQ(json.get_child("gpus").size(), 2u);
    EXPECT_EQ(run({"info", "--devices", "in.exr"}).exitCode, 2);
    EXPECT_EQ(run({"info"}).exitCode, 2);
    setenv("VIEWTINT_STAND_IN_FAIL", "cuInit:0:719", 1);
    EXPECT_NE(run({"info", "--devices"}).output.find("can't be started: CUDA_ERROR_LAUNCH_FAILED"), std::string::npos);
    setenv("VIEWTINT_STAND_IN_FAIL", "cuDevicePrimaryCtxRetain:0:2", 1);
    const std::string one = run({"info", "--devices"}).output;
    EXPECT_NE(one.find("no further GPU: GPU 0 can't be used: CUDA_ERROR_OUT_OF_MEMORY"), std::string::npos) << one;
    setenv("VIEWTINT_CUDA_DRIVER", "/no/such/library.so", 1);
    EXPECT_NE(run({"info", "--devices"}).output.find("no GPU: no NVIDIA driver: VIEWTINT_CUDA_DRIVER=/no/such"),
              std::string::npos);
}

TEST_F(Gpu, RendersWhereItIsAskedTo) {
    EXPECT_EQ(render({"--stats"}).output.find("Stand-in"), std::string::npos) << "only when asked";
    const Outcome onGpu = render({"--gpu", "--stats"});
    EXPECT_EQ(onGpu.exitCode, 0) << onGpu.errors;
    EXPECT_NE(onGpu.output.find("Stand-in GPU 0: at most "), std::string::npos) << onGpu.output;
    EXPECT_EQ(render({"--gpu", "--useGPUIfAvailable", "off"}).exitCode, 0);
    EXPECT_EQ(render({"--gpu", "--gpu-device", "3"}).exitCode, 2);
    EXPECT_EQ(render({"--gpu-device", "0"}).exitCode, 2) << "needs --gpu";
    setenv("VIEWTINT_STAND_IN_FAIL", "cuLaunchKernel:0:719", 1);
    const Outcome failed = render({"--gpu"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_NE(failed.errors.find("Stand-in GPU 0 failed while it ran kernel "), std::string::npos) << failed.errors;
    setenv("VIEWTINT_CUDA_DRIVER", "/no/such/library.so", 1);
    const Outcome without = render({"--gpu"});
    EXPECT_EQ(without.exitCode, 0);
    EXPECT_NE(without.errors.find("There is no GPU to render on"), std::string::npos) << without.errors;
}

}  // namespace ViewTint::Cli
