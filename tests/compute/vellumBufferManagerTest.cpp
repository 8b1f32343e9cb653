#include <gtest/gtest.h>

#include "compute/BufferManagement/BufferManager.h"
#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

using namespace Vellum::Utils::BufferManagement;
using Vellum::Compute::Host::hostDevice;
using Vellum::Pixel::DataEnum;

namespace {

constexpr char memoryWarning[] = "Warning: not enough memory on GPU, switching to CPU.\n";
const Info oneByOne{{0, 0, 8, 4}, 1, DataEnum::float32};

Image filled(DeviceBase& device, float value) {
    Image image(oneByOne, device);
    Pixels pixels(oneByOne.box, 1);
    pixels.forEach([&](int x, int y, int) { pixels.at(x, y, 0) = value + static_cast<float>(x + 100 * y); });
    image.copyFrom(TestImage(pixels, Arrangement::planar).image());
    return image;
}

float lastPixel(const Image& image) {
    return pixelsOf(image).at(7, 3, 0);
}

}  // namespace

TEST(BufferManager, namesReplaceAndUnknownNamesGiveEmptyImages) {
    BufferManager manager(hostDevice(), hostDevice());
    EXPECT_TRUE(manager.sameDevices());
    const Image first = manager.allocate("kInput", oneByOne);
    const Image second = manager.allocate("kInput", {{1, 1, 4, 4}, 2, DataEnum::float32});
    EXPECT_EQ(manager.image("kInput").box(), second.box());
    EXPECT_EQ(first.box(), oneByOne.box) << "another share of the replaced image lives on";
    EXPECT_TRUE(manager.image("other").empty());
    EXPECT_TRUE(manager.imageView("other", {0, 0, 1, 1}).empty());
    EXPECT_TRUE(manager.tupleView("other", {0, 0, 1, 1}).empty());
    EXPECT_TRUE(manager.toFallback("other").empty());
    EXPECT_TRUE(manager.toCurrent("other").empty());
    manager.release("other");
    manager.releaseTuple("other");
    manager.release("kInput");
    EXPECT_FALSE(manager.hasImage("kInput"));
}

TEST(BufferManager, anImageCanBeReplacedByOneLikeIt) {
    BufferManager manager(hostDevice(), hostDevice());
    Image& image = manager.allocate("kInput", oneByOne);
    EXPECT_EQ(manager.allocate("kInput", image.info()).box(), oneByOne.box);
    EXPECT_EQ(&manager.image("kInput"), &image) << "the place of a name stays";
}

TEST(BufferManager, viewsHaveTheWantedBoxOrAreEmpty) {
    BufferManager manager(hostDevice(), hostDevice());
    manager.adopt("kInput", filled(hostDevice(), 5));
    const Image whole = manager.imageView("kInput", {20, 20, 28, 24});
    EXPECT_EQ(whole.box(), (Box{20, 20, 28, 24}));
    EXPECT_EQ(pixelsOf(whole).at(27, 23, 0), 5 + 307.0f);
    EXPECT_TRUE(manager.imageView("kInput", {20, 20, 29, 24}).empty());
    EXPECT_TRUE(manager.imageView("kInput", {20, 20, 28, 25}).empty());
    manager.allocateTupleOfBoxes("kTuple", {{0, 0, 2, 2}, {0, 0, 9, 9}, {3, 3, 4, 9}}, 1, DataEnum::float32);
    const auto views = manager.tupleView("kTuple", {0, 0, 2, 3});
    ASSERT_EQ(views.size(), 3u) << "a member that is too small keeps its place";
    EXPECT_TRUE(views[0].empty());
    EXPECT_EQ(views[1].box(), (Box{0, 0, 2, 3}));
    EXPECT_TRUE(views[2].empty());
    EXPECT_EQ(manager.allocateTuple("kTuple", 2, oneByOne).size(), 2u);
}

TEST(BufferManager, handlesRemoveExactlyTheirOwnEntries) {
    BufferManager manager(hostDevice(), hostDevice());
    manager.allocate("kInput", oneByOne);
    {
        BufferManagedImage a(manager, oneByOne);
        BufferManagedImage b(manager, filled(hostDevice(), 1));
        BufferManagedImageTuple tuple(manager, 3, oneByOne);
        EXPECT_NE(a.image().data(), b.image().data());
        EXPECT_EQ(lastPixel(b.toFallback().toCurrent().image()), 1 + 307.0f);
        EXPECT_EQ(tuple.toFallback().toCurrent().images().size(), 3u);
        a.release();
        EXPECT_TRUE(a.image().empty());
        EXPECT_FALSE(b.image().empty());
    }
    EXPECT_TRUE(manager.hasImage("kInput"));
}

TEST(BufferManager, aFailedAllocationMovesEverythingToTheFallbackDevice) {
    SoftwareContext gpu;
    const Image input = filled(hostDevice(), 3);
    // Whatever allocation it is that fails, the images made before it keep their pixels.
    for (int left = 0; left <= 5; ++left) {
        gpu.device().failAt(SoftwareDevice::Operation::allocation, left, SoftwareDevice::Failing::fromThenOn);
        BufferManager manager(gpu.device(), hostDevice());
        EXPECT_FALSE(manager.sameDevices());
        testing::internal::CaptureStdout();
        manager.adopt("kA", input);
        BufferManagedImage handle(manager, input);
        manager.allocateTuple("kTuple", 2, oneByOne);
        const Image last = manager.allocate("kB", oneByOne);
        const std::string warning = testing::internal::GetCapturedStdout();
        const bool fell = left < 5;
        EXPECT_EQ(warning, fell ? memoryWarning : "") << left;
        EXPECT_EQ(last.device(), fell ? static_cast<DeviceBase*>(&hostDevice()) : &gpu.device());
        for (const Image& image : {manager.image("kA"), handle.image(), manager.tuple("kTuple")[1]})
            EXPECT_EQ(image.device(), last.device());
        EXPECT_EQ(lastPixel(manager.image("kA")), 3 + 307.0f);
        EXPECT_EQ(lastPixel(handle.image()), 3 + 307.0f);
    }
}

TEST(BufferManager, aSecondFailureReachesTheCaller) {
    SoftwareContext gpu;
    SoftwareContext cpu;
    gpu.device().failAt(SoftwareDevice::Operation::allocation, 0);
    cpu.device().failAt(SoftwareDevice::Operation::allocation, 0);
    BufferManager manager(gpu.device(), cpu.device());
    testing::internal::CaptureStdout();
    EXPECT_THROW(manager.allocate("kA", oneByOne), Vellum::Compute::Exception);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), memoryWarning);
}

TEST(BufferManager, parkingMovesOneImageAndBack) {
    SoftwareContext gpu;
    BufferManager manager(gpu.device(), hostDevice());
    manager.adopt("kA", filled(hostDevice(), 2));
    manager.allocate("kB", oneByOne);
    EXPECT_EQ(manager.toFallback("kA").device(), &hostDevice());
    EXPECT_EQ(manager.image("kB").device(), &gpu.device());
    EXPECT_EQ(manager.toCurrent("kA").device(), &gpu.device());
    EXPECT_EQ(lastPixel(manager.image("kA")), 2 + 307.0f);
}

TEST(BufferManager, switchingAfterADeviceFailureForgetsThePixels) {
    SoftwareContext gpu;
    BufferManager manager(gpu.device(), hostDevice());
    manager.allocate("kA", oneByOne);
    BufferManagedImage handle(manager, oneByOne);
    testing::internal::CaptureStdout();
    manager.switchToFallback(true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: switching to CPU.\n");
    EXPECT_FALSE(manager.hasImage("kA"));
    EXPECT_TRUE(handle.image().empty());
    EXPECT_EQ(manager.allocate("kA", oneByOne).device(), &hostDevice());
}

TEST(BufferManager, anObserverHearsTheReasonInPlaceOfTheLine) {
    SoftwareContext first, second;
    for (const bool other : {false, true})
        for (const bool heard : {false, true}) {
            BufferManager manager(first.device(), other ? second.device() : first.device());
            std::vector<Fallback> told;
            manager.setObserver([&](const Fallback& fallback) {
                told.push_back(fallback);
                return heard;
            });
            first.device().failAt(SoftwareDevice::Operation::allocation, 0);
            testing::internal::CaptureStdout();
            manager.allocate("kA", oneByOne);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), heard ? "" : memoryWarning);
            ASSERT_EQ(told.size(), 1u);
            EXPECT_EQ(told[0].cause, Fallback::Cause::allocation);
            EXPECT_EQ(told[0].otherDevice, other);
            EXPECT_NE(told[0].reason.find("The software device"), std::string::npos) << told[0].reason;
        }
}

TEST(BufferManager, onTheCpuMovingChangesNothing) {
    BufferManager manager(hostDevice(), hostDevice());
    const Image& image = manager.adopt("kA", filled(hostDevice(), 4));
    const float* const data = image.data();
    manager.moveToFallback(false);
    EXPECT_EQ(manager.image("kA").data(), data);
}

}  // namespace ViewTint::Tests
