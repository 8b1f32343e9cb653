#include <bit>
#include <cmath>

#include "tests/Common/CommonTest.h"
#include "tests/harness/LabReference.h"

namespace ViewTint::Tests {

namespace {

double toLinear(double v) {
    return v > 0.04045 || std::isnan(v) ? std::pow((v + 0.055) / 1.055, 2.4) : v / 12.92;
}

double toCode(double v) {
    return v > 0.0031308 || std::isnan(v) ? 1.055 * std::pow(v, 1 / 2.4) - 0.055 : v * 12.92;
}

Reference curve(double (*f)(double)) {
    return [=](const Scene& scene, int x, int y) {
        Pixel pixel{};
        const int colours = std::min({3, scene.count(0), scene.count(1)});
        for (int c = 0; c < scene.count(1); ++c)
            pixel[c] = c < colours ? f(scene.at(0, x, y, c)) : c < scene.count(0) ? scene.at(0, x, y, c) : 0;
        return pixel;
    };
}

}  // namespace

TEST_F(CommonKernels, colour) {
    const std::array<float, 9> matrix{0.4f, 0.3f, -0.2f, 0.1f, 0.7f, 0.1f, -1.5f, 0.25f, 2.f};
    checkKernel({.kernel = "colourMatrixKernel",
                 .reference =
                     [=](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         for (int row = 0; row < 3; ++row) {
                             pixel[row] = 0;
                             for (int c = 0; c < 3; ++c)
                                 pixel[row] += scene.at(0, x, y, c) * static_cast<double>(matrix[row * 3 + c]);
                         }
                         return pixel;
                     },
                 .scalars = [=](KernelExecutionContext& context) { context.set({"matrix"}, matrix); }});
    checkKernel({.kernel = "xyzToLabKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const auto lab = labOfXyz({scene.at(0, x, y, 0), scene.at(0, x, y, 1), scene.at(0, x, y, 2)});
                         std::copy(lab.begin(), lab.end(), pixel.begin());
                         return pixel;
                     },
                 .tolerance = 3e-6});
    checkKernel({.kernel = "labToXyzKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         Pixel pixel = before(scene, x, y);
                         const auto xyz = xyzOfLab({scene.at(0, x, y, 0), scene.at(0, x, y, 1), scene.at(0, x, y, 2)});
                         std::copy(xyz.begin(), xyz.end(), pixel.begin());
                         return pixel;
                     },
                 .tolerance = 3e-6});
}

/// One pass gives the bits of two, greys apart.
TEST_F(CommonKernels, rgbToLabAndBack) {
    const auto matrix = [](const std::array<float, 9>& m) {
        return [=](KernelExecutionContext& context) { context.set({"matrix"}, m); };
    };
    checkKernel({.kernel = "rgbToLabKernel", .scalars = matrix(Vellum::Common::rgbToXyzMatrix)});
    checkKernel({.kernel = "labToRgbKernel", .scalars = matrix(Vellum::Common::xyzToRgbMatrix)});

    const Pixels values = randomPixels({0, 0, 67, 9}, 4, 5, true);
    const TestImage source(values, Arrangement::planar);
    TestImage once(values, Arrangement::planar), twice(values, Arrangement::planar);
    Vellum::Common::rgbToLab(source.image(), once.image());
    Vellum::Common::rgbToXyz(source.image(), twice.image());
    Vellum::Common::xyzToLab(twice.image(), twice.image());
    EXPECT_EQ(firstDifference(twice.pixels(), once.pixels()), "");
    Vellum::Common::labToRgb(once.image(), once.image());
    Vellum::Common::labToXyz(twice.image(), twice.image());
    Vellum::Common::xyzToRgb(twice.image(), twice.image());
    EXPECT_EQ(firstDifference(twice.pixels(), once.pixels()), "");
    values.forEach([&](int x, int y, int c) {
        const float v = values.at(x, y, c);
        const bool tame =
            std::abs(values.at(x, y, 0)) < 2 && std::abs(values.at(x, y, 1)) < 2 && std::abs(values.at(x, y, 2)) < 2;
        if (!tame || c == 3) return;
        EXPECT_NEAR(once.pixels().at(x, y, c), v, 1e-5);
    });
}

/// Of all sizes, which two passes through the matrix and the curve leave to rounding.
TEST_F(CommonKernels, greysHaveNoColour) {
    Pixels greys({0, 0, 256, 256}, 3);
    // The upper half of a float's bits: every exponent and sign.
    greys.forEach(
        [&](int x, int y, int c) { greys.at(x, y, c) = std::bit_cast<float>(((y * 256 + x) << 16) + 12345); });
    const TestImage source(greys, Arrangement::planar);
    TestImage lab(greys, Arrangement::planar), xyz(greys, Arrangement::planar);
    Vellum::Common::rgbToLab(source.image(), lab.image());
    Vellum::Common::rgbToXyz(source.image(), xyz.image());
    Vellum::Common::xyzToLab(xyz.image(), xyz.image());
    greys.forEach([&, exact = lab.pixels(), plain = xyz.pixels()](int x, int y, int c) {
        if (!std::isfinite(plain.at(x, y, 0))) return;
        ASSERT_EQ(exact.at(x, y, c), c == 0 ? plain.at(x, y, 0) : 0) << greys.at(x, y, 0);
    });
}

/// Each has its own definition; alpha and what a mask or a disparity lacks are no matter.
TEST_F(CommonKernels, brokenPixels) {
    const auto whole = [](const Scene& scene, int x, int y) {
        bool values = true;
        for (int c = 0; c < std::min(scene.count(0), 3); ++c)
            values = values && std::abs(scene.at(0, x, y, c)) <= 1e12f;
        return values;
    };
    checkKernel({.kernel = "countBrokenKernel", .sums = [=](const Scene& scene) {
                     double broken = 0;
                     const Box& box = scene.box(0);
                     for (int y = box.y0; y < box.y1; ++y)
                         for (int x = box.x0; x < box.x1; ++x)
                             broken += !whole(scene, x, y);
                     return std::map<std::string, std::vector<double>>{{"broken", {broken}}};
                 }});
    checkKernel({.kernel = "wholePixelsKernel",
                 .reference = [=](const Scene& scene, int x, int y) { return Pixel{whole(scene, x, y) ? 1.0 : 0.0}; }});
    checkKernel({.kernel = "replaceBrokenKernel",
                 .reference = eachComponent([](auto& v) { return std::abs(v[0]) <= 1e12f ? v[0] : 0.25; }),
                 .scalars = [](KernelExecutionContext& context) { context.set({"replacement"}, 0.25f); },
                 .tolerance = 0});
    checkKernel({.kernel = "mendPixelsKernel",
                 .reference =
                     [=](const Scene& scene, int x, int y) {
                         Pixel pixel{};
                         for (int c = 0; c < scene.count(0); ++c)
                             pixel[c] = scene.at(c == 3 || whole(scene, x, y) ? 0 : 1, x, y, c);
                         return pixel;
                     },
                 .tolerance = 0});
}

TEST_F(CommonKernels, transferCurves) {
    checkKernel({.kernel = "srgbToLinearKernel", .reference = curve(toLinear), .tolerance = 3e-6});
    checkKernel({.kernel = "linearToSrgbKernel", .reference = curve(toCode), .tolerance = 3e-6});
}

TEST(CommonWrappers, transferCurvesUndoEachOther) {
    Pixels values({0, 0, 3, 1}, 1);
    values.at(1, 0, 0) = 0.5f;
    values.at(2, 0, 0) = 1;
    TestImage image(values, Arrangement::planar);
    Vellum::Common::srgbToLinear(image.image(), image.image());
    EXPECT_NEAR(image.pixels().at(1, 0, 0), 0.214041, 1e-6);
    Vellum::Common::linearToSrgb(image.image(), image.image());
    EXPECT_EQ(image.pixels().at(0, 0, 0), 0);
    EXPECT_NEAR(image.pixels().at(1, 0, 0), 0.5, 1e-6);
    EXPECT_NEAR(image.pixels().at(2, 0, 0), 1, 1e-6);
}

}  // namespace ViewTint::Tests
