#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "compute/Exception.h"
#include "compute/HostDevice.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace Vellum::Kernels {
extern const Family testPatterns;
}

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::KernelCall;
using Vellum::JIT::IterationController;
using Vellum::JIT::KernelExecutionContext;
using Vellum::Kernels::ImageArgument;
using Operation = SoftwareDevice::Operation;

/// Keeps what it is asked to launch.
class RecordingDevice : public SoftwareDevice {
public:
    struct Launch {
        Pass pass;
        Grid grid;
        std::vector<std::byte> arguments;
    };
    std::vector<Launch> launches;

protected:
    void launch(const Vellum::JIT::Kernel&, Pass pass, const Grid& grid,
                std::span<const std::byte> arguments) override {
        launches.push_back({pass, grid, {arguments.begin(), arguments.end()}});
    }
};

/// Reads arguments in their order.
class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}
    template <class T>
    T next() {
        T value;
        std::memcpy(&value, bytes_.data(), sizeof value);
        bytes_ = bytes_.subspan(sizeof value);
        return value;
    }
    bool atEnd() const { return bytes_.empty(); }

private:
    std::span<const std::byte> bytes_;
};

Image imageOn(SoftwareDevice& device, const Box& box, std::uint32_t components) {
    return Image({box, components, Vellum::Pixel::DataEnum::float32}, device);
}

void iterate(const char* kernel, const std::vector<const Image*>& images, SoftwareDevice& device,
             const IterationController& range) {
    const auto* entry = Vellum::Kernels::testPatterns.find(kernel);
    KernelExecutionContext context(Vellum::JIT::Kernel::Make(*entry, images, Vellum::CodeGen::Flags::packed));
    context.setImageParamBindings(images);
    context.iterate(device, range);
}

void expectBox(Reader& reader, const Box& box) {
    for (const int edge : {box.x0, box.y0, box.x1, box.y1})
        EXPECT_EQ(reader.next<std::int32_t>(), edge);
}

void expectImage(Reader& reader, const Image& image) {
    EXPECT_EQ(reader.next<std::uint64_t>(), reinterpret_cast<std::uint64_t>(image.data()));
    expectBox(reader, image.box());
    const auto& layout = image.tile().layout;
    EXPECT_EQ(reader.next<std::int32_t>(), layout.x.elements);
    EXPECT_EQ(reader.next<std::int32_t>(), layout.y.elements);
    EXPECT_EQ(reader.next<std::int32_t>(), layout.component.elements);
    reader.next<std::int32_t>();  // not used
}

}  // namespace

TEST(RemoteDevice, argumentsAndGridOfAPlainCall) {
    RecordingDevice device;
    const Image a = imageOn(device, {-3, 2, 30, 20}, 3);
    const Image o = imageOn(device, {-3, 2, 30, 20}, 3);
    iterate("testAxisSumKernel", {&a, &o}, device, IterationController::over({-2, 3, 20, 19}, 1, 3));
    ASSERT_EQ(device.launches.size(), 1u);
    const auto& launch = device.launches.front();
    // 22 columns by 16 rows by 2 components in groups of 32 by 8.
    EXPECT_EQ(launch.grid.groups[0], 1);
    EXPECT_EQ(launch.grid.groups[1], 2);
    EXPECT_EQ(launch.grid.groups[2], 2);
    EXPECT_EQ(launch.grid.workers[0] * 100 + launch.grid.workers[1], 3208);
    Reader reader(launch.arguments);
    expectBox(reader, {-2, 3, 20, 19});
    expectImage(reader, a);
    expectImage(reader, o);
    EXPECT_NE(reader.next<std::uint64_t>(), 0u) << "the parameter block";
    EXPECT_EQ(reader.next<std::uint32_t>(), 1u) << "the first component";
    EXPECT_TRUE(reader.atEnd());
}

TEST(RemoteDevice, aReductionHasSlotsTheEndOfTheComponentsAndTwoPasses) {
    RecordingDevice device;
    const Image a = imageOn(device, {0, 0, 9, 4}, 4);
    iterate("testSumKernel", {&a}, device, {});
    ASSERT_EQ(device.launches.size(), 2u);
    const auto& [pass, grid, arguments] = device.launches.front();
    EXPECT_EQ(grid.groups[0] * grid.workers[0], 256);
    EXPECT_EQ(grid.groups[1] * grid.workers[1], 256);
    EXPECT_EQ(grid.groups[2], 1);
    EXPECT_EQ(device.launches[1].grid.workers[0], 256);
    EXPECT_EQ(device.launches[1].arguments, arguments);
    Reader reader(arguments);
    expectBox(reader, a.box());
    expectImage(reader, a);
    EXPECT_NE(reader.next<std::uint64_t>(), 0u) << "the slots; this kernel has no parameters";
    EXPECT_EQ(reader.next<std::uint32_t>(), 4u) << "the end of the components before their beginning";
    EXPECT_EQ(reader.next<std::uint32_t>(), 0u);
    EXPECT_TRUE(reader.atEnd());
}

TEST(SoftwareDeviceDeathTest, hostCodeCantTouchItsMemory) {
    SoftwareDevice device;
    const Image image = imageOn(device, {0, 0, 4, 4}, 1);
    EXPECT_DEATH(image.data()[0] = 1, "");
}

TEST(SoftwareDevice, memoryHasABudgetAndIsGivenBack) {
    SoftwareDevice device(1 << 16);
    const Box box{0, 0, 128, 50};
    {
        const Image first = imageOn(device, box, 1);
        EXPECT_THROW(imageOn(device, box, 2), Vellum::Compute::MemoryException);
        EXPECT_GT(device.bytesInUse(), 128u * 50 * 4 - 1);
        const Pixels fresh = pixelsOf(first);
        EXPECT_TRUE(std::isnan(fresh.at(7, 7, 0))) << "fresh memory must not look like pixels";
    }
    EXPECT_EQ(device.bytesInUse(), 0u);
    EXPECT_NO_THROW(imageOn(device, box, 2));
}

TEST(SoftwareDevice, failsWhereAskedTo) {
    SoftwareDevice device;
    device.failAt(Operation::allocation, 1);
    imageOn(device, {0, 0, 4, 4}, 1);
    EXPECT_THROW(imageOn(device, {0, 0, 4, 4}, 1), Vellum::Compute::MemoryException);
    const Image image = imageOn(device, {0, 0, 4, 4}, 1);
    Image target = imageOn(device, {0, 0, 4, 4}, 1);
    device.failAt(Operation::copy, 0, SoftwareDevice::Failing::fromThenOn);
    EXPECT_THROW(pixelsOf(image), Vellum::Compute::Exception);
    EXPECT_THROW(pixelsOf(image), Vellum::Compute::Exception);
    device.failAt(Operation::launch, 0);
    EXPECT_THROW(iterate("testMathKernel", {&image, &target}, device, {}), Vellum::Compute::Exception);
    EXPECT_TRUE(device.failedInsideCall());
    iterate("testMathKernel", {&image, &target}, device, {});
}

}  // namespace ViewTint::Tests
