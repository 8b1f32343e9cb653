#include <gtest/gtest.h>

#include "compute/Exception.h"
#include "compute/RunKernel.h"
#include "tests/harness/KernelHarness.h"
#include "tests/harness/SoftwareDevice.h"

namespace Vellum::Kernels {
extern const Family testPatterns;
}

namespace ViewTint::Tests {

using Vellum::CodeGen::Flags;
using Vellum::Compute::Host::hostDevice;
using Vellum::Kernels::ScalarType;

namespace {

using Images = std::vector<const Image*>;

Vellum::JIT::KernelPointer make(const char* kernel, const Images& images, Flags flags = Flags::packed) {
    return Vellum::JIT::Kernel::Make(*Vellum::Kernels::findKernel(kernel), images, flags);
}

TestImage ones(const Box& box, int components) {
    Pixels pixels(box, components);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = 1; });
    return TestImage(pixels, Arrangement::planar);
}

/// Runs the rule O = |A| with the given range and counts the ones in O, which starts at zero.
int written(const IterationController& range, int components = 4, const Box& box = {2, 3, 12, 9}) {
    TestImage a = ones(box, components);
    TestImage o(Pixels(box, components), Arrangement::planar);
    const Images images{&a.image(), &o.image()};
    KernelExecutionContext context(make("testMathKernel", images));
    context.setImageParamBindings(images);
    context.set({"function"}, 6);
    context.iterate(hostDevice(), range);
    int count = 0;
    const Pixels result = o.pixels();
    result.forEach([&](int x, int y, int c) { count += result.at(x, y, c) == 1; });
    return count;
}

std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Vellum::Compute::Exception& exception) {
        return Cobalt::Base::userMessage(exception);
    }
    return "";
}

}  // namespace

TEST(KernelCall, ranges) {
    EXPECT_EQ(written({}), 10 * 6 * 4) << "all zero covers the written image";
    EXPECT_EQ(written(IterationController::over({3, 4, 6, 6})), 3 * 2 * 4) << "no components given: all";
    EXPECT_EQ(written(IterationController::over({3, 4, 6, 6}, 1, 3)), 3 * 2 * 2);
    EXPECT_EQ(written(IterationController::over({2, 3, 12, 9}, 0, 1)), 60);
    EXPECT_EQ(written(IterationController::over({5, 5, 5, 9})), 0) << "empty, but not all zero";
    EXPECT_EQ(written(IterationController::over({8, 5, 5, 9})), 0);
    EXPECT_EQ(written({}, 1, {}), 0) << "an image without pixels";
}

TEST(KernelCall, scalars) {
    TestImage a = ones({0, 0, 4, 4}, 1);
    TestImage o = ones({0, 0, 4, 4}, 1);
    const Images images{&a.image(), &o.image()};
    KernelExecutionContext context(make("testAxisSumKernel", images));
    context.setImageParamBindings(images);
    const auto radius = context.getMarshalledParamThrow({"radius"});
    EXPECT_EQ(radius.type, ScalarType::integer);
    EXPECT_EQ(radius.count, 1);
    EXPECT_FALSE(radius.inAccumulator);
    EXPECT_EQ(context.get<int>({"radius"}), 2) << "the default";
    EXPECT_EQ(context.get<bool>({"horizontal"}), true);

    context.iterate(hostDevice(), {});
    EXPECT_FALSE(context.dirty());
    context.set({"radius"}, 2);
    context.set({"horizontal"}, true);
    EXPECT_FALSE(context.dirty()) << "the value is there already";
    context.set({"radius"}, 1);
    EXPECT_TRUE(context.dirty());
    context.iterate(hostDevice(), {});
    EXPECT_EQ(o.pixels().at(1, 1, 0), 3);

    EXPECT_NE(messageOf([&] { context.set({"radius"}, true); }).find("\"radius\" is int"), std::string::npos);
    EXPECT_NE(messageOf([&] { context.set({"horizontal"}, 1.0f); }).find("\"horizontal\" is bool"), std::string::npos);
    EXPECT_NE(messageOf([&] { context.set({"radius"}, std::array{1, 2}); }), "");
    EXPECT_EQ(messageOf([&] { context.set({"radiuss"}, 1); }),
              "Kernel \"testAxisSumKernel\" has no parameter \"radiuss\"; there are horizontal, radius.");
    EXPECT_NE(messageOf([&] { context.get<float>({"radius"}); }), "");
}

TEST(KernelCall, variantsAndFlags) {
    const TestImage one = ones({0, 0, 4, 4}, 1);
    const TestImage two = ones({0, 0, 4, 4}, 2);
    EXPECT_EQ(messageOf([&] {
                  make("testMathKernel", {&one.image(), &two.image()});
              }),
              "Kernel \"testMathKernel\" has no variant for pixel types 1f_2f; there are 1f_1f, 2f_2f, 3f_3f, 4f_4f.");
    EXPECT_NE(messageOf([&] { make("testMathKernel", {&one.image()}); }), "");
    EXPECT_NE(messageOf([&] { make("testMathKernel", {&one.image(), &one.image()}, static_cast<Flags>(2)); }), "");
    const Vellum::Compute::ProgramSource unknown(Vellum::Kernels::testPatterns, "noSuchKernel");
    EXPECT_EQ(messageOf([&] { unknown.entry(); }), "There is no kernel \"noSuchKernel\".");
    EXPECT_EQ(messageOf([&] { Vellum::Kernels::PixelTypes::parse("3f_5f"); }),
              "\"3f_5f\" is not a list of pixel types such as 3f_1f.");
}

TEST(KernelCall, rangesThatLeaveAnImageAreRefused) {
    EXPECT_NE(messageOf([] { written(IterationController::over({2, 3, 13, 9})); }), "");
    EXPECT_NE(messageOf([] { written(IterationController::over({1, 3, 12, 9})); }), "");
    EXPECT_NE(messageOf([] { written(IterationController::over({2, 3, 12, 9}, 0, 5)); }), "");
    EXPECT_NE(messageOf([] { written(IterationController::over({2, 3, 12, 9}, -1, 2)); }), "");

    // A clamped image may be smaller than the range; one that is read at its own pixel may not.
    TestImage small = ones({5, 5, 6, 6}, 1);
    TestImage large = ones({0, 0, 20, 20}, 1);
    const auto sum = [&](const TestImage& a, TestImage& o) {
        const Images images{&a.image(), &o.image()};
        KernelExecutionContext context(make("testAxisSumKernel", images));
        context.setImageParamBindings(images);
        context.iterate(hostDevice(), {});
    };
    sum(small, large);
    EXPECT_EQ(large.pixels().at(19, 0, 0), 5);
    EXPECT_EQ(messageOf([&] { sum(large, large); }),
              "Kernel \"testAxisSumKernel\" can't write into the image that it reads as \"A\".");
}

TEST(KernelCall, allImagesLieOnTheDeviceThatRuns) {
    SoftwareDevice device;
    const TestImage a = ones({0, 0, 4, 4}, 1);
    const Image away = a.image().distributeTo(device);
    const Images images{&a.image(), &away};
    KernelExecutionContext context(make("testMathKernel", images));
    context.setImageParamBindings(images);
    EXPECT_NE(messageOf([&] { context.iterate(hostDevice(), {}); }).find("another device"), std::string::npos);
}

TEST(KernelCall, withoutThreadsTheResultIsTheSame) {
    Vellum::Parallel::SetThreadingEnabled(false);
    EXPECT_EQ(written({}, 1, {0, 0, 400, 300}), 400 * 300);
    Vellum::Parallel::SetThreadingEnabled(true);
}

TEST(KernelCall, pointKernelsWorkInPlace) {
    Pixels pixels = randomPixels({0, 0, 37, 5}, 3, 3, false);
    TestImage image(pixels, Arrangement::paddedPlanar);
    const Images images{&image.image(), &image.image()};
    KernelExecutionContext context(make("testMathKernel", images));
    context.setImageParamBindings(images);
    context.set({"function"}, 6);
    context.iterate(hostDevice(), {});
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = std::abs(pixels.at(x, y, c)); });
    EXPECT_EQ(firstDifference(pixels, image.pixels()), "");

    // Moved against itself a pixel would be read after it was written.
    const Image moved = image.image().translate({1, 0});
    const Images shifted{&image.image(), &moved};
    KernelExecutionContext other(make("testMathKernel", shifted));
    other.setImageParamBindings(shifted);
    EXPECT_NE(messageOf([&] { other.iterate(hostDevice(), IterationController::over({1, 0, 37, 5})); }), "");
}

}  // namespace ViewTint::Tests
