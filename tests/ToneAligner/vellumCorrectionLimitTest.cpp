#include "ToneAligner/src/vellumCorrectionLimit.h"

#include <gtest/gtest.h>

#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "ToneAligner/ToneAligner.h"
#include "compute/Exception.h"
#include "tests/harness/KernelHarness.h"
#include "tests/harness/LabReference.h"
#include "tests/harness/SoftwareDevice.h"

namespace ViewTint::Tests {

namespace {

namespace Common = Vellum::Common;

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::DeviceBase;
using Vellum::Tone::ToneAligner;
using Vellum::Utils::BufferManagement::BufferManagedImage;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;

Triple multiplied(const std::array<float, 9>& m, const Triple& v) {
    Triple result{};
    for (int row = 0; row < 3; ++row)
        for (int c = 0; c < 3; ++c)
            result[row] += double{m[3 * row + c]} * v[c];
    return result;
}

Triple labOf(double r, double g, double b) {
    return labOfXyz(multiplied(Common::rgbToXyzMatrix, {r, g, b}));
}

double lightness(const Pixels& pixels, int x, int y) {
    return labOf(pixels.at(x, y, 0), pixels.at(x, y, 1), pixels.at(x, y, 2))[0];
}

/// The knee's slope is 1 at its inner end and 0 at its outer one.
double softLimited(double v, double limit, double knee) {
    const double m = std::abs(v);
    if (m <= limit - knee) return v;
    if (m < limit + knee) return std::copysign(limit - (limit + knee - m) * (limit + knee - m) / (4 * knee), v);
    return limit;  // on both sides
}

/// Source and corrected picture of one call.
struct Pictures {
    Pixels source, corrected;

    Pictures(const Box& box, int components, std::uint32_t seed = 1)
        : source(colours(box, components, seed)), corrected(colours(box, components, seed + 1)) {}

    static Pixels colours(const Box& box, int components, std::uint32_t seed) {
        Pixels pixels = randomPixels(box, components, seed, false);
        pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = 0.02f + 0.4f * (pixels.at(x, y, c) + 0.5f); });
        return pixels;
    }

    Pictures limited(float limit, DeviceBase& primary = hostDevice()) const {
        BufferManager manager(primary, hostDevice());
        const BufferManagedImage from(manager, TestImage(source, Arrangement::planar).image());
        const BufferManagedImage to(manager, TestImage(corrected, Arrangement::packed).image());
        ToneAligner aligner(manager, packed);
        aligner.setCorrectionLimit(limit);
        aligner.limitCorrection(from.image(), to.image());
        Pictures result = *this;
        result.source = pixelsOf(from.image());
        result.corrected = pixelsOf(to.image());
        return result;
    }

    /// The same by the catalogue's kernels, one step after the other.
    Pictures limitedStepByStep(float limit) const {
        TestImage from(source, Arrangement::planar), to(corrected, Arrangement::planar);
        const auto make = [](const Box& of, std::uint32_t components) { return Image({of, components}, hostDevice()); };
        const Box& box = source.box();
        Image lab = make(box, 3), correctedLab = make(box, 3), difference = make(box, 3);
        Common::rgbToLab(from.image(), lab, packed);
        Common::rgbToLab(to.image(), correctedLab, packed);
        Common::subtract(correctedLab, lab, difference);

        const Image window = Vellum::Tone::makeGaussianWindow(100, hostDevice());
        const Box larger{box.x0, box.y0, box.x0 + std::max(box.width(), 151), box.y0 + std::max(box.height(), 151)};
        Image enlarged = make(larger, 3), convolved = make(larger, 3), mean = make(box, 3);
        Common::copyClamped(difference, enlarged);
        Vellum::Convolution::ConvolutionHelper helper(hostDevice());
        helper.setKernel(window);
        helper.convolve(enlarged, convolved);
        Common::copy(convolved.subView(box), mean);

        Common::subtract(difference, mean, difference);
        Image l = make(box, 1);
        Common::copyChannel(difference, l, 0, 0);
        Common::softLimit(l, l, limit, limit * 0.15f);
        Common::copyChannel(l, difference, 0, 0);
        Common::add(difference, mean, difference);
        Common::add(difference, lab, correctedLab);
        Common::labToRgb(lab, from.image(), packed);
        Common::labToRgb(correctedLab, to.image(), packed);
        Pictures result = *this;
        result.source = from.pixels();
        result.corrected = to.pixels();
        return result;
    }
};

void expectNear(const Pixels& expected, const Pixels& actual, double tolerance) {
    double worst = 0;
    expected.forEach([&](int x, int y, int c) {
        worst = std::max(worst, std::abs(double{expected.at(x, y, c)} - actual.at(x, y, c)));
    });
    EXPECT_LE(worst, tolerance);
}

}  // namespace

TEST(CorrectionLimit, kernels) {
    Vellum::Tone::registerKernels();
    const auto lab = [](const Scene& scene, int image, int x, int y) {
        return labOf(scene.at(image, x, y, 0), scene.at(image, x, y, 1), scene.at(image, x, y, 2));
    };
    const auto inRgb = [](const Scene& scene, int image, int x, int y, const Triple& of) {
        const Triple rgb = multiplied(Common::xyzToRgbMatrix, xyzOfLab(of));
        return Pixel{rgb[0], rgb[1], rgb[2], scene.count(image) == 4 ? scene.at(image, x, y, 3) : 0};
    };
    const auto setToXyz = [](KernelExecutionContext& context) { context.set({"rgbToXyz"}, Common::rgbToXyzMatrix); };
    checkKernel({.kernel = "lightnessDifferenceKernel",
                 .reference = [=](const Scene& scene, int x,
                                  int y) { return Pixel{lab(scene, 1, x, y)[0] - lab(scene, 0, x, y)[0]}; },
                 .scalars = setToXyz,
                 .hostilePixels = false});
    checkKernel({.kernel = "lightnessDifferenceKernel", .scalars = setToXyz});
    for (const float limit : {0.25f, 0.8f}) {
        const auto scalars = [=](KernelExecutionContext& context) {
            setToXyz(context);
            context.set({"xyzToRgb"}, Common::xyzToRgbMatrix);
            context.set({"limit"}, limit);
            context.set({"softness"}, 0.15f * limit);
        };
        checkKernel({.kernel = "limitCorrectionKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             const double mean = scene.at(0, x, y, 0);
                             const Triple from = lab(scene, 1, x, y), to = lab(scene, 2, x, y);
                             const double l = softLimited(to[0] - from[0] - mean, limit, 0.15 * limit) + mean + from[0];
                             return inRgb(scene, 2, x, y, {l, to[1], to[2]});
                         },
                     .scalars = scalars,
                     .tolerance = 1e-5,
                     .otherReferences = {{1, [=](const Scene& scene, int x,
                                                 int y) { return inRgb(scene, 1, x, y, lab(scene, 1, x, y)); }}},
                     // Lab magnifies negative colours a hundredfold, and their rounding with them.
                     .prepare =
                         [](int index, Pixels& pixels) {
                             pixels.forEach([&](int x, int y, int c) {
                                 float& v = pixels.at(x, y, c);
                                 v = index == 0 ? 0.3f * v : std::abs(v);
                             });
                         },
                     .hostilePixels = false});
        checkKernel({.kernel = "limitCorrectionKernel", .scalars = scalars});
    }
}

/// Sizes that the transform takes as they are, that it pads, and that are smaller than half the window.
TEST(CorrectionLimit, fewPassesGiveWhatTheStepsGive) {
    const Box boxes[] = {{0, 0, 160, 175}, {-20, 5, 191, 205}, {3, -7, 103, 93}, {0, 0, 40, 200}, {5, 5, 6, 6}};
    std::uint32_t seed = 1;
    for (const Box& box : boxes)
        for (const float limit : {0.1f, 0.5f, 1.0f}) {
            const Pictures pictures(box, 3 + seed % 2, seed);
            const Pictures expected = pictures.limitedStepByStep(limit), actual = pictures.limited(limit);
            expectNear(expected.source, actual.source, 3e-6);
            expectNear(expected.corrected, actual.corrected, 1e-5);
            ++seed;
        }
}

TEST(CorrectionLimit, aSpotStaysNearTheMeanAndSmallChangesPass) {
    const Box box{0, 0, 300, 320};
    Pictures pictures(box, 4);
    const auto change = [&](double by) {
        pictures.corrected = pictures.source;
        pictures.source.forEach([&](int x, int y, int c) {
            pictures.source.at(x, y, c) = c == 3 ? 0.5f : 0.05f;
            const bool spot = x >= 100 && x < 104 && y >= 50 && y < 54;
            const double u = (labOf(0.05, 0.05, 0.05)[0] + (spot ? by : 0) + 0.16) / 1.16;
            pictures.corrected.at(x, y, c) = c == 3 ? 0.25f : static_cast<float>(u * u * u);
        });
    };
    const auto changeOfSpot = [](const Pictures& result) {
        return lightness(result.corrected, 101, 51) - lightness(result.source, 101, 51);
    };
    change(0.5);
    const Pictures limited = pictures.limited(0.1f);
    EXPECT_NEAR(changeOfSpot(limited), 0.1, 3e-4) << "a mean of almost 0";
    EXPECT_NEAR(lightness(limited.corrected, 200, 200), lightness(pictures.corrected, 200, 200), 1e-6);
    EXPECT_EQ(limited.corrected.at(101, 51, 3), 0.25f);
    EXPECT_EQ(limited.source.at(101, 51, 3), 0.5f);
    EXPECT_NEAR(changeOfSpot(pictures.limited(0)), 0, 3e-4) << "the mean's own change";
    change(0.6);
    EXPECT_NEAR(changeOfSpot(pictures.limited(1)), 0.6, 1e-5);
    change(-0.1);
    EXPECT_NEAR(changeOfSpot(pictures.limited(0.2f)), -0.1, 1e-5);
    EXPECT_NEAR(changeOfSpot(pictures.limited(0.05f)), 0.05, 3e-4) << "far below, the limit has the other sign";
}

/// The window fits into the box without padding, so the mean of one change is that change.
TEST(CorrectionLimit, oneColourIsNotLimited) {
    Pictures pictures({0, 0, 300, 300}, 3);
    pictures.source.forEach([&](int x, int y, int c) {
        pictures.source.at(x, y, c) = 0.1f + 0.05f * static_cast<float>(c);
        pictures.corrected.at(x, y, c) = 0.7f - 0.1f * static_cast<float>(c);
    });
    const Pictures result = pictures.limited(0.05f);
    expectNear(pictures.corrected, result.corrected, 1e-5);
    expectNear(pictures.source, result.source, 1e-6);
}

TEST(CorrectionLimit, theWindowsSumIsOne) {
    const Pixels window = pixelsOf(Vellum::Tone::makeGaussianWindow(100, hostDevice()));
    EXPECT_EQ(window.box(), (Box{0, 0, 300, 300}));
    double sum = 0;
    window.forEach([&](int x, int y, int c) { sum += window.at(x, y, c); });
    EXPECT_NEAR(sum, 1, 1e-6);
    EXPECT_NEAR(window.at(0, 20, 0) / window.at(149, 20, 0), std::exp((0.5 * 0.5 - 149.5 * 149.5) / 20000), 1e-6);
    const Pixels least = pixelsOf(Vellum::Tone::makeGaussianWindow(0.1f, hostDevice()));
    EXPECT_EQ(least.box(), (Box{0, 0, 1, 1}));
    EXPECT_EQ(least.at(0, 0, 0), 1.0f);
}

TEST(CorrectionLimit, nanAndInfinityStayInTheirPixels) {
    Pictures pictures({0, 0, 160, 160}, 3);
    const Pictures clean = pictures.limited(0.3f);
    pictures.source.at(5, 5, 1) = std::numeric_limits<float>::quiet_NaN();
    pictures.corrected.at(9, 9, 0) = std::numeric_limits<float>::infinity();
    const Pictures result = pictures.limited(0.3f);
    result.corrected.forEach([&](int x, int y, int c) {
        if ((x == 5 && y == 5) || (x == 9 && y == 9)) return;
        ASSERT_NEAR(result.corrected.at(x, y, c), clean.corrected.at(x, y, c), 1e-3);
    });
}

TEST(CorrectionLimit, anotherDeviceGivesTheSameBitsAndItsFailuresAreOvercome) {
    const Pictures pictures({0, 0, 40, 30}, 4);
    const Pictures expected = pictures.limited(0.2f);
    const SoftwareContext gpu;
    EXPECT_EQ(firstDifference(expected.corrected, pictures.limited(0.2f, gpu.device()).corrected), "");
    EXPECT_EQ(gpu.device().count(SoftwareDevice::Operation::launch), 2);
    EXPECT_EQ(gpu.device().bytesInUse(), 0u);
    EXPECT_TRUE(gpu.device().gapsIntact());
    // Both pictures, the difference and the mean; after the last two a launch has a block of its own.
    EXPECT_EQ(gpu.device().count(SoftwareDevice::Operation::allocation), 6);
    for (const int number : {0, 1, 2, 4}) {
        gpu.device().failAt(SoftwareDevice::Operation::allocation, number, SoftwareDevice::Failing::fromThenOn);
        testing::internal::CaptureStdout();
        const Pictures result = pictures.limited(0.2f, gpu.device());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: not enough memory on GPU, switching to CPU.\n");
        EXPECT_EQ(firstDifference(expected.corrected, result.corrected), "") << number;
        EXPECT_EQ(firstDifference(expected.source, result.source), "") << number;
    }
}

TEST(CorrectionLimit, picturesThatDontFitTogetherAreNamed) {
    const auto limit = [](const Box& a, int countA, const Box& b, int countB) {
        Pictures pictures(a, countA);
        pictures.corrected = Pixels(b, countB);
        pictures.limited(1);
    };
    const Box box{0, 0, 9, 8};
    EXPECT_THROW(limit(box, 3, {0, 0, 8, 8}, 3), Vellum::Compute::Exception);
    EXPECT_THROW(limit(box, 2, box, 2), Vellum::Compute::Exception);
    EXPECT_NO_THROW(limit(box, 3, box, 4));
    EXPECT_NO_THROW(limit({4, 4, 4, 4}, 3, {4, 4, 4, 4}, 3));
}

}  // namespace ViewTint::Tests
