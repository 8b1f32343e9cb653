#include <algorithm>

#include "tests/Common/CommonTest.h"

namespace ViewTint::Tests {

TEST_F(CommonKernels, maskMix) {
    checkKernel({.kernel = "maskMixKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const double m = scene.at(2, x, y, 0);
                         for (int c = 0; c < std::min(scene.count(0), scene.count(3)); ++c)
                             pixel[c] = (1 - m) * scene.at(1, x, y, c) + m * scene.at(0, x, y, c);
                         return pixel;
                     },
                 .tolerance = 1e-6});
}

TEST_F(CommonKernels, aMaskOfZeroGivesBAndOfOneGivesA) {
    const Box box{0, 0, 37, 3};
    TestImage a(randomPixels(box, 4, 1, false), Arrangement::planar);
    TestImage b(randomPixels(box, 4, 2, false), Arrangement::packed);
    for (const float m : {0.0f, 1.0f}) {
        Pixels values(box, 1);
        values.forEach([&](int x, int y, int) { values.at(x, y, 0) = m; });
        const TestImage mask(values, Arrangement::planar);
        TestImage output(Pixels(box, 4), Arrangement::planar);
        Vellum::Common::maskMix(a.image(), b.image(), mask.image(), output.image());
        EXPECT_EQ(firstDifference(m == 0 ? b.pixels() : a.pixels(), output.pixels()), "");
    }
}

TEST_F(CommonKernels, multiplyByMask) {
    for (const bool invert : {false, true})
        checkKernel({.kernel = "multiplyByMaskKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             Pixel pixel{};
                             const double m = scene.at(1, x, y, 0);
                             for (int c = 0; c < scene.count(0); ++c)
                                 pixel[c] = static_cast<float>(scene.at(0, x, y, c) * (invert ? 1 - m : m));
                             return pixel;
                         },
                     .scalars = [=](KernelExecutionContext& context) { context.set({"invert"}, invert); }});
}

TEST_F(CommonKernels, crossFade) {
    const std::array<float, 4> outsideA{1, 2, 3, 4};
    const std::array<float, 4> outsideB{-1, -2, -3, -4};
    for (const auto& [mix, clampMix] : {std::pair{0.25f, true}, {2.f, true}, {-1.f, true}, {2.f, false}}) {
        const float fraction = mix;
        const bool clamps = clampMix;
        const double w = clamps ? std::clamp(fraction, 0.f, 1.f) : fraction;
        checkKernel({.kernel = "crossFadeKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             const auto value = [&](int image, int c, const std::array<float, 4>& outside) {
                                 const bool inside = scene.box(image).contains({x, y, x + 1, y + 1});
                                 return inside ? scene.at(image, x, y, c) : outside[c];
                             };
                             Pixel pixel{};
                             for (int c = 0; c < scene.count(2); ++c)
                                 pixel[c] = w * value(0, c, outsideA) + (1 - w) * value(1, c, outsideB);
                             return pixel;
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"mix"}, fraction);
                             context.set({"clampMix"}, clamps);
                             context.set({"constEdgeColorA"}, outsideA);
                             context.set({"constEdgeColorB"}, outsideB);
                         },
                     .boxOf =
                         [](int index, const Box& box) {
                             if (index == 2) return box;
                             return index == 0 ? Box{box.x0 + 2, box.y0 - 1, box.x1 + 3, box.y1}
                                               : Box{box.x0 - 4, box.y0 + 1, box.x0 + 9, box.y1 + 2};
                         },
                     .hostilePixels = false});
    }
}

/// A has the first two of three pixels, B the last two.
TEST(CommonWrappers, blendingByHand) {
    const TestImage a(row({1, 2}), Arrangement::planar);
    const TestImage b(row({10, 20}, 1), Arrangement::planar);
    const auto faded = [&](float mix, bool clampMix) {
        return resultOf(
            [&](Image& o) { Vellum::Common::crossFade(a.image(), b.image(), o, mix, clampMix, {4}, {100}); },
            row({0, 0, 0}));
    };
    EXPECT_EQ(firstDifference(row({75.25f, 8, 16}), faded(0.25f, true)), "");
    EXPECT_EQ(firstDifference(row({1, 2, 4}), faded(2, true)), "") << "as with 1";
    EXPECT_EQ(firstDifference(row({-98, -6, -12}), faded(2, false)), "");

    const TestImage mask(row({0.25f, 1}), Arrangement::planar);
    for (const bool invert : {false, true})
        EXPECT_EQ(firstDifference(
                      invert ? row({0.75f, 0}) : row({0.25f, 2}),
                      resultOf([&](Image& o) { Vellum::Common::multiplyByMask(a.image(), mask.image(), o, invert); },
                               row({0, 0}))),
                  "");
}

}  // namespace ViewTint::Tests
