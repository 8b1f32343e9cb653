#include <cstdlib>

#include <gtest/gtest.h>

#include "compute/HostDevice.h"
#include "framework/VellumSettings.h"

namespace {

using namespace Fresco::Image;

class TestSettings : public Cobalt::PlinthPlugins::VellumSettings {
public:
    TestSettings() : VellumSettings(0) {}
    bool isGpuUsable() const override { return usable; }

    using VellumSettings::gpuContext;
    using VellumSettings::gpuContexts;
    using VellumSettings::hostContext;
    using VellumSettings::useGPUIfAvailable;
    bool usable = true;
};

/// A second device of the host's kind stands for a GPU.
Vellum::Compute::ContextPointer makeGpu() {
    std::vector<std::unique_ptr<Vellum::Compute::Device>> devices;
    devices.push_back(std::make_unique<Vellum::Compute::Host::Device>());
    return new Vellum::Compute::Context(std::move(devices));
}

TEST(Settings, ChooseTheDevice) {
    TestSettings settings;
    settings.gpuContext = nullptr;
    EXPECT_TRUE(settings.useGPUIfAvailable);
    EXPECT_EQ(settings.renderContext(), settings.hostContext);
    settings.gpuContext = makeGpu();
    EXPECT_EQ(settings.renderContext(), settings.gpuContext);
    EXPECT_NE(&settings.hostDevice(), &settings.gpuContext->device());
    settings.useGPUIfAvailable = false;
    EXPECT_EQ(settings.renderContext(), settings.hostContext);
}

TEST(Settings, NameTheGpu) {
    TestSettings settings;
    settings.gpuContext = nullptr;
    EXPECT_EQ(settings.gpuDisplayName(), "Not available");
    settings.gpuContext = makeGpu();
    settings.gpuContexts = {settings.gpuContext};
    EXPECT_EQ(settings.gpuDisplayName(), settings.gpuContext->device().name());
    settings.gpuContexts.push_back(makeGpu());
    EXPECT_EQ(settings.gpuDisplayName(), "2x " + settings.gpuContext->device().name());
    settings.usable = false;
    EXPECT_EQ(settings.gpuDisplayName(), "Not available");
}

TEST(Settings, DeclareTheirControls) {
    TestSettings settings;
    Knob_Closure closure;
    settings.addKnobs(closure, true, 32);
    ASSERT_EQ(closure.declarations().size(), 6u);
    EXPECT_EQ(closure.find("gpuName")->text, settings.gpuDisplayName());
    EXPECT_EQ(closure.find("enableMultiGPU")->kind, KnobKind::hidden);
    const KnobDeclaration& use = *closure.find("useGPUIfAvailable");
    EXPECT_EQ(use.defaultValue, 1.0);
    EXPECT_EQ(use.flags, 32u | startsLine);
    storeValue(use.storage, 0.0);
    EXPECT_FALSE(settings.useGPUIfAvailable);

    Knob_Closure withoutDivider;
    settings.addKnobs(withoutDivider, false, 0);
    EXPECT_EQ(withoutDivider.declarations().size(), 5u);
}

TEST(SettingsDeathTest, TellTheOpenClSwitchOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto readTwice = [](const char* value) {
        setenv("CB_VELLUM_ALLOW_OPENCL_GPU", value, 1);
        TestSettings first, second;
        std::exit(first.kernelFlags());
    };
    EXPECT_EXIT(readTwice("0"), testing::ExitedWithCode(19), "^CB_VELLUM_ALLOW_OPENCL_GPU: 0\n$");
    EXPECT_EXIT(readTwice("2x"), testing::ExitedWithCode(19), "^CB_VELLUM_ALLOW_OPENCL_GPU: 2\n$");
}

}  // namespace
