#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Info;
using Vellum::Image::LayoutSpec;
using Vellum::Pixel::DataEnum;

namespace {

Image imageOf(const Box& box, std::uint32_t components, const LayoutSpec& spec = Vellum::Image::ordinaryLayout) {
    return Image({box, components, DataEnum::float32}, hostDevice(), spec);
}

}  // namespace

TEST(Image, emptyImagesAreValues) {
    Image image;
    EXPECT_TRUE(image.empty());
    EXPECT_TRUE(image.box().empty());
    EXPECT_EQ(image.components(), 0u);
    image = imageOf({0, 0, 3, 2}, 1);
    EXPECT_FALSE(image.empty());
    image = Image();
    EXPECT_TRUE(image.empty());
    EXPECT_TRUE(image.translate({1, 1}).empty());
    EXPECT_TRUE(image.distributeTo(hostDevice()).empty());
    image.clear();
    const Image none = imageOf({4, 4, 4, 4}, 2);
    EXPECT_TRUE(none.box().empty());
}

TEST(Image, copiesShareAndTranslateMovesTheBoxOnly) {
    Image image = imageOf({-4, -2, 3, 5}, 2);
    image.clear();
    *image.data() = 7;
    const Image copy = image;
    EXPECT_EQ(copy.data(), image.data());
    const Image same = image.translate({0, 0});
    EXPECT_EQ(same.box(), image.box());
    EXPECT_EQ(same.data(), image.data());
    const Image moved = image.translate({10, -20});
    EXPECT_EQ(moved.box(), (Box{6, -22, 13, -15}));
    EXPECT_EQ(pixelsOf(moved).at(6, -22, 0), 7) << "the first pixel is element 0, whatever the corner";
    EXPECT_EQ(image.box(), (Box{-4, -2, 3, 5}));
    image.reset(image.info(), hostDevice());
    EXPECT_NE(image.data(), copy.data());
    EXPECT_EQ(image.box(), copy.box());
    EXPECT_EQ(*copy.data(), 7) << "the other shares stay";
}

TEST(Image, aSubViewReadsTheFirstPixelsUnderItsOwnName) {
    TestImage source(randomPixels({5, 5, 25, 17}, 3, 1, false), Arrangement::wide);
    const Image view = source.image().subView({100, -3, 108, 2});
    EXPECT_EQ(view.tile().layout.spec, (LayoutSpec{3, 1, 0}));
    const Pixels pixels = source.pixels();
    const Pixels viewed = pixelsOf(view);
    viewed.forEach([&](int x, int y, int c) { EXPECT_EQ(viewed.at(x, y, c), pixels.at(x - 95, y + 8, c)); });
    Image writable = view;
    writable.clear();
    EXPECT_EQ(source.pixels().at(5, 5, 2), 0) << "a view shares the memory";
    EXPECT_EQ(source.pixels().at(13, 5, 0), pixels.at(13, 5, 0)) << "and no more of it than its box";
    EXPECT_TRUE(source.guardsIntact());
}

TEST(Image, layouts) {
    for (const int width : {1, 16, 17, 1920, 2048}) {
        const Vellum::Image::Layout planar = imageOf({0, 0, width, 3}, 4).tile().layout;
        EXPECT_EQ(planar.x.elements, 1);
        EXPECT_EQ(planar.y.bytes % 64, 0);
        EXPECT_EQ(planar.y.bytes / 64 % 2, 1) << "an odd number of cache lines a row";
        EXPECT_GE(planar.y.elements, width);
    }
    const Vellum::Image::Layout complex = imageOf({0, 0, 21, 4}, 2, {2, 16, 0}).tile().layout;
    EXPECT_EQ(complex.component.elements, 1);
    EXPECT_EQ(complex.x.elements, 2);
    EXPECT_EQ(complex.y.elements % 16, 0);
}

TEST(Image, makeLikeAndCopyFromOverArrangementsAndDevices) {
    const Pixels pixels = randomPixels({-9, 4, 260, 261}, 3, 5, true);
    SoftwareContext other;
    for (const Arrangement from : allArrangements) {
        for (const Arrangement to : allArrangements) {
            const TestImage source(pixels, from);
            TestImage target(randomPixels(pixels.box(), 3, 6, false), to);
            target.image().copyFrom(source.image());
            EXPECT_EQ(firstDifference(pixels, target.pixels()), "") << toString(from) << " to " << toString(to);
            EXPECT_TRUE(target.guardsIntact());
        }
        const TestImage source(pixels, from);
        const Image away = source.image().distributeTo(other.device());
        EXPECT_EQ(away.device(), &other.device());
        EXPECT_NE(away.data(), source.image().data());
        EXPECT_EQ(away.box(), pixels.box());
        const Image back = away.distributeTo(hostDevice());
        EXPECT_EQ(firstDifference(pixels, pixelsOf(back)), "");
        EXPECT_EQ(back.distributeTo(hostDevice()).data(), back.data()) << "already there: shared";
        Image like = away.makeLike(hostDevice());
        EXPECT_EQ(like.info(), source.image().info());
    }
    const TestImage small(randomPixels({0, 0, 5, 5}, 1, 1, false), Arrangement::planar);
    Image wrong = imageOf({0, 0, 5, 6}, 1);
    EXPECT_THROW(wrong.copyFrom(small.image()), Cobalt::Base::Exception);
}

TEST(Image, transfersToADeviceOfItsOwnMemory) {
    SoftwareDevice device;
    const Pixels pixels = randomPixels({-3, 2, 34, 20}, 3, 8, true);
    const TestImage source(pixels, Arrangement::wide);
    Image away = source.image().distributeTo(device);
    EXPECT_EQ(away.device(), &device);
    EXPECT_EQ(firstDifference(pixels, pixelsOf(away.distributeTo(hostDevice()))), "");
    // A view takes its own pixels and leaves the rest of the block.
    Image corner = away.subView({0, 0, 5, 4});
    corner.clear();
    Pixels expected = pixels;
    expected.forEach([&](int x, int y, int c) {
        if (x < 2 && y < 6) expected.at(x, y, c) = 0;
    });
    EXPECT_EQ(firstDifference(expected, pixelsOf(away.distributeTo(hostDevice()))), "");
    TestImage target(Pixels(pixels.box(), 3), Arrangement::packed);
    target.image().copyFrom(away);
    EXPECT_EQ(firstDifference(expected, target.pixels()), "");
    EXPECT_EQ(away.translate({1, 1}).device(), &device);
}

/// Before anything is allocated or given back.
TEST(Image, impossibleImagesAreRefusedAndLeaveWhatWasThere) {
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max(), far = 1 << 30;
    Image image = imageOf({0, 0, 8, 8}, 1);
    const float* const pixels = image.data();
    const std::pair<Box, std::uint32_t> cases[] = {{{0, 0, 1, 1}, 0},
                                                   {{0, 0, 1, 1}, 5},
                                                   {{0, 0, 0, 0}, 0},
                                                   {{-most, 0, most, 1}, 1},
                                                   {{-most, -most, most, most}, 4},
                                                   {{-far, 0, far, 1}, 1},
                                                   {{-far, -far, far, far}, 4},
                                                   {{0, -far, 1, far}, 1},
                                                   {{0, 0, 1 << 20, 1 << 20}, 1},
                                                   {{most - 1, 0, most, 1}, 1}};
    for (const auto& [box, components] : cases) {
        EXPECT_THROW(image.reset({box, components}, hostDevice()), Cobalt::Base::Exception) << toString(box);
        EXPECT_EQ(image.data(), pixels);
        EXPECT_EQ(image.box(), (Box{0, 0, 8, 8}));
    }
    EXPECT_THROW(image.subView({-most, 0, most, 1}), Cobalt::Base::Exception);
    SoftwareContext full;
    full.device().failAt(SoftwareDevice::Operation::allocation, 0);
    EXPECT_THROW(image.reset(image.info(), full.device()), Cobalt::Base::Exception);
    EXPECT_EQ(image.data(), pixels);
}

TEST(MemoryPool, blocksAreReusedWithinTheBudget) {
    const auto pool = std::make_shared<Vellum::Compute::MemoryPool>(std::size_t{8} << 20);
    auto block = pool->allocate(3 << 20);
    void* const address = block->address();
    EXPECT_GE(pool->bytesInUse(), std::size_t{3} << 20);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(address) % (2 << 20), 0u);
    block.reset();
    EXPECT_EQ(pool->bytesInUse(), 0u);
    EXPECT_GE(pool->bytesKept(), std::size_t{3} << 20);
    block = pool->allocate((3 << 20) - 1000);
    EXPECT_EQ(block->address(), address);
    block.reset();
    block = pool->allocate((9 << 20) / 4);
    EXPECT_EQ(block->address(), address) << "four planes serve where three are wanted";
    auto second = pool->allocate(7 << 20);
    second.reset();
    second = pool->allocate(4 << 20);
    EXPECT_LT(second->bytes(), std::size_t{5} << 20) << "seven are too many for four";
    block.reset();
    second.reset();
    EXPECT_LE(pool->bytesKept(), std::size_t{8} << 20);
    pool->trim();
    EXPECT_EQ(pool->bytesKept(), 0u);
}

TEST(MemoryPool, sizesThatNoMachineHasAreRefused) {
    const auto pool = std::make_shared<Vellum::Compute::MemoryPool>(0);
    for (const std::size_t bytes : {std::numeric_limits<std::size_t>::max(), (std::size_t{1} << 63) + 1})
        EXPECT_THROW(pool->allocate(bytes), Vellum::Compute::MemoryException);
}

TEST(MemoryPool, imagesMayOutliveTheirDevice) {
    Image image;
    {
        Vellum::Compute::Host::Device device;
        image = Image({{0, 0, 64, 64}, 1, DataEnum::float32}, device);
    }
    std::memset(image.data(), 0, 64 * 64);
}

}  // namespace ViewTint::Tests
