#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "PullPush/PullPush.h"
#include "PullPush/src/vellumLevels.h"
#include "tests/PullPush/PyramidReference.h"

namespace ViewTint::Tests {

namespace {

/// The nearest pixel of image `values` and of its weights, the next one.
Filled nearest(const Scene& scene, int values, int x, int y) {
    Filled pixel;
    for (int c = 0; c < scene.count(values); ++c)
        pixel.values[c] = scene.clamped(values, x, y, c);
    pixel.weight = scene.clamped(values + 1, x, y, 0);
    return pixel;
}

/// The same with the weight limited to 0 .. 1, as a picture's is before the first pull.
Filled limited(Filled pixel) {
    pixel.weight = std::clamp(pixel.weight, 0.0, 1.0);
    return pixel;
}

/// In a level no weight is below 0; of both signs their sum may come near 0 and magnify every rounding.
void withoutNegativeWeights(Pixels& pixels) {
    pixels.forEach([&](int x, int y, int c) {
        float& weight = pixels.at(x, y, c);
        if (weight < 0) weight = 0;
    });
}

/// What a step is given and what it makes.
struct Step {
    std::string kernel;
    bool ofThePicture;  ///< weights may be anything; a push leaves no weights
    bool pushes;
    std::function<Filled(const Scene&, int x, int y)> formula;

    bool makesWeights() const { return !(ofThePicture && pushes); }
    int values() const { return ofThePicture && pushes ? 4 : 2; }
    /// Before.
    Filled old(const Scene& scene, int x, int y) const {
        Filled pixel;
        for (int c = 0; c < scene.count(values()); ++c)
            pixel.values[c] = scene.at(values(), x, y, c);
        if (makesWeights()) pixel.weight = scene.at(values() + 1, x, y, 0);
        return pixel;
    }
    /// The other level's box. Of those that are pulled some are odd: then no coarse pixel lies over the last column or
    /// row.
    Box otherLevel(const Box& box) const {
        if (!pushes) return {2 * box.x0, 2 * box.y0, 2 * box.x1 + box.width() % 2, 2 * box.y1 + box.height() % 2};
        const auto half = [](int coordinate) { return static_cast<int>(std::floor(coordinate * 0.5)); };
        return {half(box.x0), half(box.y0), std::max(half(box.x1), half(box.x0) + 1),
                std::max(half(box.y1), half(box.y0) + 1)};
    }
};

/// Checks a step over whole images, and over a part of them that begins and ends anywhere.
void checkStep(const Step& step) {
    Vellum::PullPush::registerKernels();
    const auto part = [](const Box& box) { return Box{box.x0 + 3, box.y0 + 1, box.x1 - 2, box.y1}; };
    for (const bool whole : {true, false}) {
        const auto made = [=](const Scene& scene, int x, int y) {
            const bool untouched = !whole && !part(scene.box(step.values())).contains({x, y, x + 1, y + 1});
            return untouched ? step.old(scene, x, y) : step.formula(scene, x, y);
        };
        const Reference values = [=](const Scene& scene, int x, int y) { return made(scene, x, y).values; };
        const Reference weights = [=](const Scene& scene, int x, int y) -> Pixel { return {made(scene, x, y).weight}; };
        KernelCase kernelCase{.kernel = step.kernel, .tolerance = 2e-6};
        kernelCase.reference = step.makesWeights() ? weights : values;
        if (step.makesWeights()) kernelCase.otherReferences = {{2, values}};
        if (!whole) kernelCase.range = [=](const Box& box) { return IterationController::over(part(box)); };
        kernelCase.boxOf = [=](int index, const Box& box) { return index < 2 ? step.otherLevel(box) : box; };
        kernelCase.prepare = [=](int index, Pixels& pixels) {
            const bool given = step.ofThePicture && index == (step.pushes ? 3 : 1);
            if (index % 2 == 1 && !given) withoutNegativeWeights(pixels);
        };
        checkKernel(kernelCase);
    }
}

}  // namespace

TEST(PullPushKernels, pull) {
    checkStep({"pullKernel", false, false, [](const Scene& scene, int x, int y) {
                   return pulledPixel([&](int fx, int fy) { return nearest(scene, 0, fx, fy); }, x, y);
               }});
}

TEST(PullPushKernels, pullPicture) {
    checkStep({"pullPictureKernel", true, false, [](const Scene& scene, int x, int y) {
                   return pulledPixel([&](int fx, int fy) { return limited(nearest(scene, 0, fx, fy)); }, x, y);
               }});
}

TEST(PullPushKernels, push) {
    checkStep({"pushKernel", false, true, [](const Scene& scene, int x, int y) {
                   return pushedPixel([&](int cx, int cy) { return nearest(scene, 0, cx, cy); },
                                      nearest(scene, 2, x, y), x, y);
               }});
}

TEST(PullPushKernels, pushPicture) {
    checkStep({"pushPictureKernel", true, true, [](const Scene& scene, int x, int y) {
                   return pushedPixel([&](int cx, int cy) { return nearest(scene, 0, cx, cy); },
                                      limited(nearest(scene, 2, x, y)), x, y);
               }});
}

/// A weight below 0 in a level counts as it is, and a sum that isn't above 0 leaves the values as they were summed.
TEST(PullPushKernels, sumsOfWeightsThatAreNotAboveZero) {
    const auto pulled = [](float weight) {
        Pixels image({0, 0, 2, 2}, 1);
        image.forEach([&](int x, int y, int) { image.at(x, y, 0) = weight; });
        const TestImage values(image, Arrangement::planar), weights(image, Arrangement::planar);
        TestImage coarseValues(Pixels({0, 0, 1, 1}, 1), Arrangement::planar);
        TestImage coarseWeights(Pixels({0, 0, 1, 1}, 1), Arrangement::planar);
        Vellum::PullPush::pull(values.image(), weights.image(), coarseValues.image(), coarseWeights.image(), 19);
        return std::pair(coarseValues.pixels().at(0, 0, 0), coarseWeights.pixels().at(0, 0, 0));
    };
    const float all = 4 + 8 * 0.3333f + 4 * 0.1111f;
    EXPECT_FLOAT_EQ(pulled(0.5f).second, 0.5f * all);
    EXPECT_FLOAT_EQ(pulled(-0.5f).first, 0.25f * all);
    EXPECT_EQ(pulled(-0.5f).second, 0);
    EXPECT_EQ(pulled(0).first, 0);
}

/// One fine pixel of weight 1 after the other under one coarse pixel: the weights that come out are the stencil.
TEST(PullPushKernels, theStencilHasFourDecimals) {
    for (int j = 0; j < 4; ++j) {
        for (int i = 0; i < 4; ++i) {
            Pixels weights({-1, -1, 3, 3}, 1);
            weights.at(i - 1, j - 1, 0) = 1;
            const TestImage fineValues(weights, Arrangement::planar);
            const TestImage fineWeights(weights, Arrangement::planar);
            TestImage coarseValues(Pixels({0, 0, 1, 1}, 1), Arrangement::planar);
            TestImage coarseWeights(Pixels({0, 0, 1, 1}, 1), Arrangement::planar);
            Vellum::PullPush::pull(fineValues.image(), fineWeights.image(), coarseValues.image(), coarseWeights.image(),
                                   19);
            const int inner = (i == 1 || i == 2) + (j == 1 || j == 2);
            const std::uint32_t bits[] = {0x3de38866, 0x3eaaa64c, 0x3f800000};
            EXPECT_EQ(std::bit_cast<std::uint32_t>(coarseWeights.pixels().at(0, 0, 0)), bits[inner]) << i << ", " << j;
        }
    }
}

}  // namespace ViewTint::Tests
