#include <gtest/gtest.h>

#include <cstdlib>

#include "compute/Device.h"
#include "node/KernelLibraries.h"

namespace {

class NeedsGpuText : public testing::Environment {
    void SetUp() override {
        if (VellumLibrary::FindGPUContexts(Cobalt::Device::APIEnum::CUDA).empty())
            GTEST_SKIP() << VellumLibrary::GetGPUProblems(Cobalt::Device::APIEnum::CUDA).front();
    }
};

}  // namespace

/// Without a word in the environment the libraries are the stand-ins.
int main(int argc, char** argv) {
    setenv("VIEWTINT_CUDA_DRIVER", VIEWTINT_STAND_IN_DRIVER, 0);
    setenv("VIEWTINT_CUFFT", VIEWTINT_STAND_IN_CUFFT, 0);
    setenv("VIEWTINT_STAND_IN_MIB", "256", 0);
    testing::InitGoogleTest(&argc, argv);
    Vellum::registerKernelLibraries();
    testing::AddGlobalTestEnvironment(new NeedsGpuText);
    return RUN_ALL_TESTS();
}
