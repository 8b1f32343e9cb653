#include "Convolution/src/vellumDirectConvolution.h"

#include <gtest/gtest.h>

#include "Convolution/ConvolutionHelper.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

/// The kernel's box is of its own size and begins anywhere.
KernelCase convolutionCase(const std::string& name, int width, int height) {
    return {.kernel = name,
            .reference =
                [=](const Scene& scene, int x, int y) {
                    const Box& cells = scene.box(1);
                    Pixel sum{};
                    for (int c = 0; c < scene.count(2); ++c)
                        for (int v = 0; v < height; ++v)
                            for (int u = 0; u < width; ++u)
                                sum[c] += scene.clamped(0, x + width / 2 - u, y + height / 2 - v, c) *
                                          scene.at(1, cells.x0 + u, cells.y0 + v, std::min(c, scene.count(1) - 1));
                    return sum;
                },
            .tolerance = 3e-6,
            .boxOf =
                [=](int index, const Box& box) {
                    return index == 1 ? Box{4, -2, 4 + width, -2 + height} : box;
                },
            // Large numbers would cancel out to nothing but rounding; NaN and infinity stay.
            .prepare =
                [](int, Pixels& pixels) {
                    pixels.forEach([&](int x, int y, int c) {
                        float& v = pixels.at(x, y, c);
                        if (std::isfinite(v) && std::abs(v) > 100) v = 1;
                    });
                }};
}

}  // namespace

TEST(DirectConvolution, kernelsDoWhatTheSumSays) {
    Vellum::Convolution::registerKernels();
    const int sizes[][2] = {{1, 1}, {5, 5}, {4, 3}, {2, 5}};
    for (const auto& [width, height] : sizes)
        for (const char* name : {"directConvolveKernel", "sharedConvolveKernel"})
            checkKernel(convolutionCase(name, width, height));
}

/// A kernel of two components on images of one and of four.
TEST(DirectConvolution, theLastComponentOfAKernelServesTheRest) {
    const TestImage kernel(randomPixels({0, 0, 3, 2}, 2, 5, false), Arrangement::packed);
    const Pixels pixels = randomPixels({-3, 1, 20, 14}, 4, 6, false);
    const auto component = [](const Pixels& from, int c) {
        Pixels one(from.box(), 1);
        one.forEach([&](int x, int y, int) { one.at(x, y, 0) = from.at(x, y, c); });
        return one;
    };
    const auto convolved = [&](const Pixels& of, const Image& cells) {
        const TestImage input(of, Arrangement::planar);
        TestImage output(Pixels(of.box(), of.components()), Arrangement::paddedPlanar);
        Vellum::Convolution::convolveDirectly(input.image(), cells, output.image());
        return output.pixels();
    };
    const Pixels all = convolved(pixels, kernel.image());
    for (int c = 0; c < 4; ++c) {
        const TestImage own(component(kernel.pixels(), std::min(c, 1)), Arrangement::planar);
        EXPECT_EQ(firstDifference(convolved(component(pixels, c), own.image()), component(all, c)), "") << c;
    }
    EXPECT_EQ(firstDifference(component(all, 0), convolved(component(pixels, 0), kernel.image())), "");
}

}  // namespace ViewTint::Tests
