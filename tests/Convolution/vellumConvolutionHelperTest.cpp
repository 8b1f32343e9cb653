#include "Convolution/ConvolutionHelper.h"

#include <gtest/gtest.h>

#include <cmath>

#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Convolution::ConvolutionHelper;

TestImage cells(int width, int height, int components = 1) {
    return TestImage(randomPixels({2, -1, 2 + width, -1 + height}, components, 3, false), Arrangement::paddedPlanar);
}

Pixels convolved(ConvolutionHelper& helper, const Pixels& pixels) {
    const TestImage input(pixels, Arrangement::planar);
    TestImage output(Pixels(pixels.box(), pixels.components()), Arrangement::packed);
    helper.convolve(input.image(), output.image());
    EXPECT_TRUE(output.guardsIntact());
    return output.pixels();
}

Pixels picture(int width, int height, int components = 1) {
    return randomPixels({-5, 7, -5 + width, 7 + height}, components, 11, false);
}

/// A circular sum in double precision over the padded box, its sides without prime factors above 7; the image's corner
/// lies at 0, and so does the kernel's centre.
double circularSum(const Pixels& image, const Pixels& kernel, int paddedWidth, int paddedHeight, int x, int y, int c) {
    const Box& box = image.box();
    const Box& from = kernel.box();
    double sum = 0;
    for (int v = 0; v < from.height(); ++v)
        for (int u = 0; u < from.width(); ++u) {
            const int dx = (x - (u - from.width() / 2) + paddedWidth) % paddedWidth;
            const int dy = (y - (v - from.height() / 2) + paddedHeight) % paddedHeight;
            if (dx < box.width() && dy < box.height())
                sum += double{image.at(box.x0 + dx, box.y0 + dy, c)} *
                       kernel.at(from.x0 + u, from.y0 + v, std::min(c, kernel.components() - 1));
        }
    return sum;
}

}  // namespace

TEST(ConvolutionHelper, aSideOfSixCellsGoesThroughTheTransform) {
    const auto transforms = [](int width, int height, int directLimit) {
        ConvolutionHelper helper(hostDevice());
        const TestImage kernel = cells(width, height);
        helper.setKernel(kernel.image());
        helper.setDirectLimit(directLimit);
        convolved(helper, picture(20, 18));
        return helper.kernelTransforms();
    };
    EXPECT_EQ(transforms(5, 5, 3), 0);
    EXPECT_EQ(transforms(1, 1, 3), 0);
    EXPECT_EQ(transforms(6, 1, 3), 1);
    EXPECT_EQ(transforms(1, 6, 3), 1);
    EXPECT_EQ(transforms(1, 1, 0), 1);
    EXPECT_EQ(transforms(9, 8, 5), 0);
}

TEST(ConvolutionHelper, theTransformGivesTheCircularSum) {
    // 22 x 13 is padded to 24 x 14, 20 x 16 isn't padded.
    const int sizes[][4] = {{22, 13, 24, 14}, {20, 16, 20, 16}};
    const int kernels[][3] = {{7, 6, 1}, {6, 9, 2}, {12, 13, 4}};
    for (const auto& [width, height, paddedWidth, paddedHeight] : sizes)
        for (const auto& [kernelWidth, kernelHeight, components] : kernels) {
            const TestImage kernel = cells(kernelWidth, kernelHeight, components);
            ConvolutionHelper helper(hostDevice());
            helper.setKernel(kernel.image());
            const Pixels image = picture(width, height, 3);
            const Pixels result = convolved(helper, image);
            const Pixels kernelPixels = kernel.pixels();
            result.forEach([&](int x, int y, int c) {
                const double expected = circularSum(image, kernelPixels, paddedWidth, paddedHeight, x - image.box().x0,
                                                    y - image.box().y0, c);
                ASSERT_NEAR(result.at(x, y, c), expected, 2e-5) << x << ", " << y << ", " << c;
            });
        }
}

TEST(ConvolutionHelper, bothWaysAgreeAwayFromTheBorders) {
    const TestImage kernel = cells(5, 4, 2);
    const Pixels image = picture(33, 29, 3);
    ConvolutionHelper direct(hostDevice()), byTransform(hostDevice());
    direct.setKernel(kernel.image());
    byTransform.setKernel(kernel.image());
    byTransform.setDirectLimit(0);
    const Pixels expected = convolved(direct, image), actual = convolved(byTransform, image);
    double atBorders = 0;
    expected.forEach([&](int x, int y, int c) {
        const double difference = std::abs(double{expected.at(x, y, c)} - actual.at(x, y, c));
        const Box& box = image.box();
        if (Box{box.x0 + 3, box.y0 + 2, box.x1 - 3, box.y1 - 2}.contains({x, y, x + 1, y + 1}))
            EXPECT_LT(difference, 1e-5) << x << ", " << y << ", " << c;
        else
            atBorders = std::max(atBorders, difference);
    });
    EXPECT_GT(atBorders, 0.5) << "one way repeats the border, the other fades to 0";
}

TEST(ConvolutionHelper, theKernelIsTransformedOnceForAsLongAsItServes) {
    const TestImage one = cells(8, 7), two = cells(8, 7, 2);
    ConvolutionHelper helper(hostDevice());
    helper.setKernel(one.image());
    const Pixels first = convolved(helper, picture(32, 30, 3));
    EXPECT_EQ(helper.kernelTransforms(), 1) << "one for three components";
    convolved(helper, picture(31, 29, 3));
    EXPECT_EQ(helper.kernelTransforms(), 1) << "a smaller picture, the same padded size";
    EXPECT_EQ(firstDifference(first, convolved(helper, picture(32, 30, 3))), "") << "with the kept transform";
    EXPECT_EQ(helper.kernelTransforms(), 1);
    convolved(helper, picture(33, 30));
    EXPECT_EQ(helper.kernelTransforms(), 2) << "another size";
    helper.setKernel(two.image());
    convolved(helper, picture(33, 30, 3));
    EXPECT_EQ(helper.kernelTransforms(), 4) << "components 1 and 2 share the second";
    convolved(helper, picture(33, 30, 3));
    EXPECT_EQ(helper.kernelTransforms(), 6) << "only the last one was kept";
    convolved(helper, picture(33, 30, 1));
    convolved(helper, picture(33, 30, 1));
    EXPECT_EQ(helper.kernelTransforms(), 7);
}

TEST(ConvolutionHelper, anEmptyKernelIsToldTwiceAndGivesZero) {
    const auto convolveBy = [](const Image& kernel) {
        ConvolutionHelper helper(hostDevice());
        helper.setKernel(kernel);
        testing::internal::CaptureStdout();
        const Pixels result = convolved(helper, picture(9, 8, 3));
        const std::string said = testing::internal::GetCapturedStdout();
        EXPECT_EQ(firstDifference(Pixels(result.box(), 3), result), "");
        return said;
    };
    const std::string line = "ConvolutionHelper: _kernel is empty.\n";
    EXPECT_EQ(convolveBy(Image()), line + line);
    EXPECT_EQ(convolveBy(Image({{4, 4, 4, 4}, 1}, hostDevice())), line + line);
    EXPECT_EQ(convolveBy(Image({{0, 0, 0, 5}, 1}, hostDevice())), "") << "without cells, but not empty";
    EXPECT_EQ(convolveBy(Image({{0, 0, 40, 0}, 1}, hostDevice())), "");
}

TEST(ConvolutionHelper, whatCantBeDoneIsTold) {
    ConvolutionHelper helper(hostDevice());
    const TestImage kernel = cells(3, 3);
    helper.setKernel(kernel.image());
    const TestImage input(picture(9, 8, 3), Arrangement::planar);
    TestImage small(picture(8, 8, 3), Arrangement::planar), other(picture(9, 8, 2), Arrangement::planar);
    EXPECT_THROW(helper.convolve(input.image(), small.image()), Vellum::Compute::Exception);
    EXPECT_THROW(helper.convolve(input.image(), other.image()), Vellum::Compute::Exception);
    // 9 x 8 needs no padding, so a kernel of 18 x 16 cells just finds room.
    TestImage output(picture(9, 8, 3), Arrangement::planar);
    const TestImage largest = cells(18, 16), wide = cells(19, 1), high = cells(1, 17);
    helper.setKernel(largest.image());
    EXPECT_NO_THROW(helper.convolve(input.image(), output.image()));
    for (const TestImage* larger : {&wide, &high}) {
        helper.setKernel(larger->image());
        EXPECT_THROW(helper.convolve(input.image(), output.image()), Vellum::Compute::Exception);
    }
}

/// A device of its own memory sums small kernels; for others it has no transform.
TEST(ConvolutionHelper, anotherDevice) {
    const SoftwareContext gpu;
    const auto there = [&](const Image& image) { return image.distributeTo(gpu.device()); };
    const Pixels pixels = picture(20, 18, 3);
    const Image input = there(TestImage(pixels, Arrangement::planar).image());
    Image output = there(TestImage(Pixels(pixels.box(), 3), Arrangement::planar).image());
    ConvolutionHelper here(hostDevice()), helper(gpu.device());
    const TestImage kernel = cells(4, 5, 2), large = cells(6, 1);
    here.setKernel(kernel.image());
    helper.setKernel(there(kernel.image()));
    helper.convolve(input, output);
    EXPECT_EQ(firstDifference(convolved(here, pixels), pixelsOf(output)), "");
    helper.setKernel(there(large.image()));
    EXPECT_THROW(helper.convolve(input, output), Cobalt::Base::NotImplemented);
}

}  // namespace ViewTint::Tests
