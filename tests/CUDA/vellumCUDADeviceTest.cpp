#include <gtest/gtest.h>

#include <numeric>
#include <thread>

#include "Common/Common.h"
#include "compute/CUDA/Exception.h"
#include "compute/HostDevice.h"
#include "compute/PrecompiledKernels.h"
#include "tests/CUDA/StandIns.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::CUDA::Device;
using DriverException = Vellum::Compute::CUDA::Exception;

const Box box{-3, 2, 30, 20};

Image onGpu(const Pixels& pixels) {
    Image image({pixels.box(), static_cast<std::uint32_t>(pixels.components())}, gpu());
    image.copyFrom(TestImage(pixels, Arrangement::planar).image());
    return image;
}

/// The exception of one operation while a call of the driver fails.
template <class Work>
DriverException failureOf(const char* call, int result, Work&& work) {
    const FailingDriver failing(call, 0, result);
    try {
        work();
    } catch (const DriverException& failure) {
        return failure;
    }
    ADD_FAILURE() << call << " failed unnoticed";
    return DriverException(0, "", "", "");
}

class CudaDevice : public testing::Test {
protected:
    /// Nothing stays current on the thread.
    ~CudaDevice() override {
        void* context = nullptr;
        const auto pop = standIn<int(void**)>("VIEWTINT_CUDA_DRIVER", "cuCtxPopCurrent_v2");
        EXPECT_NE(pop(&context), 0) << "a context was left bound";
    }
    const Pixels a = randomPixels(box, 3, 1, false), b = randomPixels(box, 3, 2, false);
};

}  // namespace

TEST_F(CudaDevice, tellsItsNameAndSize) {
    EXPECT_EQ(gpu().name(), "Stand-in GPU 0");
    EXPECT_EQ(gpu().computeCapability(), "9.0");
    EXPECT_EQ(gpu().totalBytes(), std::size_t{256} << 20);
    EXPECT_TRUE(VellumLibrary::GetGPUProblems(Cobalt::Device::APIEnum::CUDA).empty());
    EXPECT_FALSE(gpu().hostAccessible());
    EXPECT_TRUE(VellumLibrary::GetGPUContexts(Cobalt::Device::APIEnum::CUDA).empty()) << "none is selected";
    EXPECT_EQ(VellumLibrary::GetCurrentGPUContext(Cobalt::Device::APIEnum::CUDA), nullptr);
    VellumLibrary::SelectGPUContext(Cobalt::Device::APIEnum::CUDA, 0);
    EXPECT_EQ(VellumLibrary::GetCurrentGPUContext(Cobalt::Device::APIEnum::CUDA), gpuContext());
    VellumLibrary::SelectGPUContext(Cobalt::Device::APIEnum::CUDA, 7);
    EXPECT_EQ(VellumLibrary::GetCurrentGPUContext(Cobalt::Device::APIEnum::CUDA), nullptr);
    VellumLibrary::SelectGPUContext(Cobalt::Device::APIEnum::CUDA, -1);
}

TEST_F(CudaDevice, runsStoredKernelsFromAnyThread) {
    const Image first = onGpu(a), second = onGpu(b);
    Image larger({box, 3}, gpu());
    std::thread([&] { Vellum::Common::max(first, second, larger); }).join();
    const Pixels result = pixelsOf(larger);
    result.forEach([&](int x, int y, int c) { EXPECT_EQ(result.at(x, y, c), std::max(a.at(x, y, c), b.at(x, y, c))); });
    const int loaded = driverCalls("cuModuleLoadData");
    const int launched = driverCalls("cuLaunchKernel");
    Vellum::Common::max(second, first, larger);
    EXPECT_EQ(driverCalls("cuModuleLoadData"), loaded) << "code is loaded once";
    EXPECT_EQ(driverCalls("cuLaunchKernel"), launched + 1);
}

TEST_F(CudaDevice, failuresTellWhatWasDone) {
    const Image first = onGpu(a), second = onGpu(b);
    Image larger({box, 3}, gpu());
    const auto run = [&] { Vellum::Common::max(first, second, larger); };
    constexpr int illegalAddress = 700, launchFailed = 719, invalidValue = 1;
    const auto launch = failureOf("cuLaunchKernel", launchFailed, run);
    EXPECT_EQ(launch.errorCode(), launchFailed);
    EXPECT_EQ(launch.toString(), "CUDA_ERROR_LAUNCH_FAILED");
    const std::string text = userMessage(launch);
    const std::vector<std::string> parts{"Stand-in GPU 0", "maxKernel", toString(box), "bytes of images",
                                         "CUDA_ERROR_LAUNCH_FAILED (719)"};
    for (const std::string& part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << " in: " << text;
    EXPECT_EQ(failureOf("cuCtxSynchronize", illegalAddress, run).errorCode(), illegalAddress);
    EXPECT_EQ(failureOf("cuCtxPushCurrent", invalidValue, run).errorCode(), invalidValue);
    EXPECT_NE(userMessage(failureOf("cuMemcpyDtoH", illegalAddress, [&] { pixelsOf(first); })).find("gave out"),
              std::string::npos);
    EXPECT_NE(userMessage(failureOf("cuMemcpyHtoD", illegalAddress, [&] { onGpu(a); })).find("took in"),
              std::string::npos);
    run();
}

TEST_F(CudaDevice, aFullDeviceGivesBackWhatItKeptAndThenSaysSo) {
    gpu().pool().trim();
    { const Image kept({{0, 0, 4096, 1500}, 4}, gpu()); }
    EXPECT_GT(gpu().pool().bytesKept(), 0u);
    const Image large({{0, 0, 4096, 3500}, 4}, gpu());  // 219 of 256 MiB
    EXPECT_EQ(gpu().pool().bytesKept(), 0u);
    EXPECT_THROW(Image({{0, 0, 2048, 1024}, 4}, gpu()), Vellum::Compute::MemoryException);
    const FailingDriver failing("cuLaunchKernel", 0, 2);
    const Image first = onGpu(a);
    Image copy({box, 3}, gpu());
    EXPECT_THROW(Vellum::Common::copy(first, copy), Vellum::Compute::MemoryException) << "a launch needs room too";
}

TEST_F(CudaDevice, memoryGivenBackToADeadCardLeavesTheCallerBound) {
    const Device::Bound bound(gpu());
    { const Image kept(onGpu(a)); }
    {
        const FailingDriver dead("cuCtxPushCurrent", 0, 700, true);
        gpu().pool().trim();
    }
    EXPECT_EQ(standIn<int()>("VIEWTINT_CUDA_DRIVER", "cuCtxSynchronize")(), 0);
}

TEST_F(CudaDevice, variantsWithoutCodeAreNotSelected) {
    const auto& entry = *Vellum::Kernels::findKernel("maxKernel");
    const Image image({box, 3}, gpu());
    const std::vector<const Image*> images{&image, &image, &image};
    using Vellum::CodeGen::Flags;
    using Vellum::JIT::Kernel;
    for (const Flags flags : {Flags::onePixel, Flags::packed})
        EXPECT_EQ(Kernel::Make(entry, images, flags, Cobalt::Device::APIEnum::CUDA)->key().text(),
                  entry.key(2, Vellum::Kernels::KernelTarget::cuda).text());
    // A kernel of the same declaration under another name has a key of its own, with nothing stored.
    auto declaration = entry.declaration();
    declaration.name = "nowhereKernel";
    const Vellum::Kernels::CatalogueEntry nowhere(declaration);
    const auto refusal = [&] {
        try {
            Kernel::Make(nowhere, images, Flags::packed, Cobalt::Device::APIEnum::CUDA);
        } catch (const Vellum::Compute::Exception& failure) {
            return userMessage(failure);
        }
        return std::string();
    };
    EXPECT_NE(refusal().find("no code for GPUs"), std::string::npos);
    const std::string key = nowhere.key(2, Vellum::Kernels::KernelTarget::cuda).text();
    static const std::string keptKey = key;
    Vellum::JIT::AddPrecompiledKernel(keptKey, "12", 2, 2, "12", 2, 2, "", 0);
    EXPECT_NE(refusal().find("no code for GPUs"), std::string::npos) << "the placeholder";
    declaration.name = "damagedKernel";
    const Vellum::Kernels::CatalogueEntry damaged(declaration);
    static const std::string damagedKey = damaged.key(2, Vellum::Kernels::KernelTarget::cuda).text();
    Vellum::JIT::AddPrecompiledKernel(damagedKey, "not deflated", 12, 400, "12", 2, 2, "", 0);
    EXPECT_THROW(Kernel::Make(damaged, images, Flags::packed, Cobalt::Device::APIEnum::CUDA),
                 Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
