#include "ToneAligner/src/vellumGlobalMatch.h"

#include <gtest/gtest.h>

#include <bit>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "tests/harness/KernelHarness.h"
#include "tests/harness/LabReference.h"
#include "tests/harness/SoftwareDevice.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Tone::GlobalMap;
using Vellum::Tone::ToneAligner;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;
const Box frame{-3, 2, 57, 43};

/// The published matrices, once more, as decimal numbers.
constexpr double toXyz[3][3] = {
    {0.4339115, 0.37622687, 0.1898616}, {0.21264936, 0.7151691, 0.07218152}, {0.01775321, 0.10946182, 0.8727849}};
constexpr double toRgb[3][3] = {
    {3.0802281, -1.5373085, -0.5429192}, {-0.9212165, 1.8759666, 0.04525001}, {0.05288144, -0.20400739, 1.1511259}};

Triple times(const double (&m)[3][3], const Triple& v) {
    Triple result{};
    for (int row = 0; row < 3; ++row)
        for (int c = 0; c < 3; ++c)
            result[row] += m[row][c] * v[c];
    return result;
}

Pixels constant(const Box& box, int components, float value) {
    Pixels pixels(box, components);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = value; });
    return pixels;
}

/// A picture with colours of 0.05 to 0.85, and its alpha.
Pixels picture(std::uint32_t seed, float scale = 1) {
    Pixels pixels = randomPixels(frame, 4, seed, false);
    pixels.forEach([&](int x, int y, int c) {
        pixels.at(x, y, c) = c == 3 ? 0.75f : scale * (0.05f + 0.4f * (pixels.at(x, y, c) + 0.5f));
    });
    return pixels;
}

/// Makes one render's call of the aligner on plain pixels.
struct Match {
    Pixels source = picture(1);
    Pixels rebuilt = picture(2, 0.6f);
    Pixels mask = constant(frame, 1, 1);
    Pixels occlusion = constant(frame, 1, 0);
    bool fused = true;

    Pixels run(Vellum::Image::DeviceBase& primary = hostDevice()) const {
        BufferManager manager(primary, hostDevice());
        ToneAligner aligner(manager, packed);
        aligner.setMode(ToneAligner::basic);
        aligner.setFusedPasses(fused);
        const TestImage sourceImage(source, Arrangement::planar);
        const TestImage rebuiltImage(rebuilt, Arrangement::packed);
        const TestImage maskImage(mask, Arrangement::paddedPlanar);
        const TestImage occlusionImage(occlusion, Arrangement::planar);
        const TestImage edges(constant(frame, 1, 0), Arrangement::planar);
        TestImage output(constant(frame, 4, -1), Arrangement::planar);
        aligner.process(sourceImage.image(), rebuiltImage.image(), maskImage.image(), occlusionImage.image(),
                        edges.image(), output.image());
        EXPECT_EQ(firstDifference(source, sourceImage.pixels()), "") << "the pictures handed over stay";
        EXPECT_EQ(firstDifference(rebuilt, rebuiltImage.pixels()), "");
        EXPECT_TRUE(output.guardsIntact());
        return output.pixels();
    }

    /// The same in double precision, from the formulas.
    Pixels expected() const {
        struct Statistics {
            Triple mean{}, variance{};
        };
        const auto counts = [&](int x, int y) {
            return !(1 - mask.at(x, y, 0) > 0.0001f) && !(occlusion.at(x, y, 0) > 0.0001f);
        };
        const auto lab = [](const Pixels& p, int x, int y) {
            return labOfXyz(times(toXyz, {p.at(x, y, 0), p.at(x, y, 1), p.at(x, y, 2)}));
        };
        const auto statistics = [&](const Pixels& p) {
            Statistics s;
            double n = 0;
            const auto eachCounted = [&](auto&& f) {
                for (int y = frame.y0; y < frame.y1; ++y)
                    for (int x = frame.x0; x < frame.x1; ++x)
                        if (counts(x, y)) f(lab(p, x, y));
            };
            eachCounted([&](const Triple& v) {
                ++n;
                for (int c = 0; c < 3; ++c)
                    s.mean[c] += v[c];
            });
            for (double& m : s.mean)
                m = n > 0 ? m / n : 0;
            eachCounted([&](const Triple& v) {
                for (int c = 0; c < 3; ++c)
                    s.variance[c] += (v[c] - s.mean[c]) * (v[c] - s.mean[c]) / n;
            });
            return s;
        };
        const Statistics a = statistics(source);
        const Statistics b = statistics(rebuilt);
        Pixels output(frame, 4);
        for (int y = frame.y0; y < frame.y1; ++y)
            for (int x = frame.x0; x < frame.x1; ++x) {
                Triple v = lab(source, x, y);
                for (int c = 0; c < 3; ++c) {
                    const double gain = std::abs(a.variance[c]) < 1e-5
                                            ? 1
                                            : std::min(2.0, std::sqrt(b.variance[c]) / std::sqrt(a.variance[c]));
                    v[c] = std::abs(v[c]) < 1e-8 ? 0 : gain * v[c] + b.mean[c] - gain * a.mean[c];
                }
                const Triple rgb = times(toRgb, xyzOfLab(v));
                const double m = mask.at(x, y, 0);
                for (int c = 0; c < 4; ++c)
                    output.at(x, y, c) =
                        static_cast<float>((1 - m) * source.at(x, y, c) + m * (c < 3 ? rgb[c] : source.at(x, y, 3)));
            }
        return output;
    }
};

void expectNear(const Pixels& expected, const Pixels& actual, double tolerance) {
    EXPECT_LE(largestDifference(expected, actual), tolerance);
}

}  // namespace

TEST(GlobalMatch, basicDoesWhatTheFormulasSay) {
    Match match;
    expectNear(match.expected(), match.run(), 3e-6);
    // A mask and occlusions with values on both sides of the limits.
    match.mask.forEach([&](int x, int y, int) {
        const float values[] = {1, 0.9999f, 0.9998f, 0.5f, 0};
        match.mask.at(x, y, 0) = values[(x + y + 1000) % 5];
        match.occlusion.at(x, y, 0) = x % 7 == 0 ? 1.0f : x % 5 == 0 ? 0.0001f : 0.0f;
    });
    expectNear(match.expected(), match.run(), 3e-6);
}

TEST(GlobalMatch, fusedPassesGiveTheBitsOfThePlainSequence) {
    for (const std::uint32_t seed : {1u, 5u, 9u}) {
        Match match;
        match.source = picture(seed);
        match.rebuilt = picture(seed + 1, 1.7f);
        match.mask = randomPixels(frame, 1, seed + 2, true);
        match.occlusion = randomPixels(frame, 1, seed + 3, true);
        // Hostile pixels too: they must not count differently.
        const Pixels hostile = randomPixels(frame, 4, seed, true);
        if (seed == 9) match.source = hostile;
        const Pixels fused = match.run();
        match.fused = false;
        EXPECT_EQ(firstDifference(match.run(), fused), "") << seed;
        Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::sse2);
        EXPECT_EQ(firstDifference(match.run(), fused), "") << seed;
        Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
    }
}

TEST(GlobalMatch, theMatchedPictureHasTheOthersStatistics) {
    const Match match;
    const auto statistics = [](const Pixels& pixels) {
        const TestImage rgb(pixels, Arrangement::planar);
        TestImage lab(Pixels(frame, 3), Arrangement::planar);
        Vellum::Common::rgbToLab(rgb.image(), lab.image(), packed);
        const TestImage all(constant(frame, 3, 1), Arrangement::planar);
        return Vellum::Tone::labStatistics(all.image(), lab.image(), packed);
    };
    const auto wanted = statistics(match.rebuilt);
    const auto got = statistics(match.run());
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(got.mean[c], wanted.mean[c], 1e-5);
        EXPECT_NEAR(got.variance[c], wanted.variance[c], 1e-5);
    }
}

TEST(GlobalMatch, gainsStayWithinTheirLimits) {
    const auto gain = [](float a, float b) {
        return Vellum::Tone::globalMap({{0.5f, 0, 0}, {a, 1, 1}}, {{0.25f, 0, 0}, {b, 1, 1}}).gains[0];
    };
    EXPECT_FLOAT_EQ(gain(1.0f, 0.01f), 0.1f) << "a source with ten times the deviation";
    EXPECT_EQ(gain(0.01f, 1.0f), 2.0f) << "not 10";
    EXPECT_EQ(gain(0.000009f, 1.0f), 1.0f) << "flat: only moved";
    EXPECT_EQ(gain(1.0f, 0.0f), 0.0f);
    EXPECT_EQ(gain(std::numeric_limits<float>::quiet_NaN(), 1.0f), -2.0f) << "undefined";
    const GlobalMap map = Vellum::Tone::globalMap({{0.5f, 0, 0}, {0, 0, 0}}, {{0.25f, 0, 0}, {1, 1, 1}});
    EXPECT_EQ(map.offsets[0], -0.25f);
}

TEST(GlobalMatch, blackIsExactlyZeroAndNeutralsStayNeutral) {
    TestImage black(constant({0, 0, 33, 2}, 4, 0), Arrangement::planar);
    TestImage lab(constant({0, 0, 33, 2}, 3, 7), Arrangement::planar);
    Vellum::Common::rgbToLab(black.image(), lab.image(), packed);
    EXPECT_EQ(firstDifference(constant({0, 0, 33, 2}, 3, 0), lab.pixels()), "");

    Match match;
    match.source.forEach([&](int x, int y, int c) {
        if (x % 2 == 0 && c < 3) match.source.at(x, y, c) = 0;
    });
    const Pixels result = match.run();
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(result.at(-2, 5, c), 0.0f) << "black takes no offset, although the picture as a whole is moved";
    EXPECT_NE(result.at(-1, 5, 0), match.source.at(-1, 5, 0));
}

TEST(GlobalMatch, wherePixelsDontCountTheViewComesBack) {
    Match match;
    match.mask = constant(frame, 1, 0);
    EXPECT_EQ(firstDifference(match.source, match.run()), "") << "nothing selected: exactly the source";
    match.mask = constant(frame, 1, 0.5f);
    expectNear(match.source, match.run(), 1e-6);
    match.mask = constant(frame, 1, 1);
    match.occlusion = constant(frame, 1, 1);
    expectNear(match.source, match.run(), 2e-6);
}

TEST(GlobalMatch, flatViews) {
    Match match;
    // Not grey: in a grey picture it hangs on the last bit of a and b whether a pixel counts as neutral.
    const float colour[] = {0.3f, 0.2f, 0.1f, 1.0f};
    match.source.forEach([&](int x, int y, int c) { match.source.at(x, y, c) = colour[c]; });
    expectNear(match.expected(), match.run(), 3e-6);
    match = {};
    match.rebuilt = constant(frame, 4, 0.25f);
    expectNear(match.expected(), match.run(), 3e-6);
}

TEST(GlobalMatch, aMaskOfAnotherSizeIsZeroOutside) {
    Match match;
    match.mask = constant({0, 10, 20, 20}, 1, 1);
    Match fitted;
    fitted.mask = constant(frame, 1, 0);
    fitted.mask.forEach([&](int x, int y, int) {
        if (match.mask.box().contains({x, y, x + 1, y + 1})) fitted.mask.at(x, y, 0) = 1;
    });
    for (const bool fused : {true, false}) {
        match.fused = fused;
        EXPECT_EQ(firstDifference(fitted.run(), match.run()), "");
    }
}

/// As do unselected ones; the plain sequence and a device of its own memory know no other rule.
TEST(GlobalMatch, pixelsThatAreNoColoursComeBackAsTheyWere) {
    Match match;
    const Pixels clean = match.run();
    match.source.at(5, 5, 1) = std::numeric_limits<float>::quiet_NaN();
    match.source.at(6, 5, 3) = std::numeric_limits<float>::infinity();
    match.source.at(7, 5, 2) = -1e13f;
    match.source.at(8, 5, 0) = 3e38f;
    match.rebuilt.at(9, 9, 0) = std::numeric_limits<float>::infinity();
    match.mask.at(8, 5, 0) = 0;
    match.mask.at(10, 9, 0) = std::numeric_limits<float>::infinity();
    match.occlusion.at(11, 9, 0) = std::numeric_limits<float>::quiet_NaN();
    const SoftwareContext gpu;
    for (const int way : {0, 1, 2}) {
        match.fused = way != 1;
        const Pixels result = way == 2 ? match.run(gpu.device()) : match.run();
        for (const auto& [x, y] : {std::pair{5, 5}, {7, 5}, {8, 5}, {10, 9}})
            for (int c = 0; c < 4; ++c)
                EXPECT_EQ(std::bit_cast<int>(result.at(x, y, c)), std::bit_cast<int>(match.source.at(x, y, c))) << x;
        EXPECT_EQ(result.at(6, 5, 3), match.source.at(6, 5, 3));
        EXPECT_NE(result.at(6, 5, 0), match.source.at(6, 5, 0)) << "an alpha is no colour";
        result.forEach([&](int x, int y, int c) {
            if (y == 5 || (x == 10 && y == 9)) return;
            EXPECT_NEAR(result.at(x, y, c), clean.at(x, y, c), 0.01) << way;
        });
    }
}

TEST(GlobalMatch, theIdleModeWritesNothing) {
    BufferManager manager(hostDevice(), hostDevice());
    ToneAligner aligner(manager, packed);
    const TestImage view(picture(1), Arrangement::planar);
    const TestImage one(constant(frame, 1, 1), Arrangement::planar);
    TestImage output(constant(frame, 4, -1), Arrangement::planar);
    aligner.setMode(ToneAligner::idle);
    aligner.process(view.image(), view.image(), one.image(), one.image(), one.image(), output.image());
    EXPECT_EQ(output.pixels().at(0, 10, 0), -1);
}

/// On a device of its own memory the plain sequence runs; its sums are added in another order.
TEST(GlobalMatch, aDeviceOfItsOwnMemoryGivesTheCpusPictureToRounding) {
    const Match match;
    const SoftwareContext gpu;
    const Pixels expected = match.run();
    const Pixels actual = match.run(gpu.device());
    expected.forEach([&](int x, int y, int c) { EXPECT_NEAR(actual.at(x, y, c), expected.at(x, y, c), 2e-6); });
    EXPECT_GT(gpu.device().count(SoftwareDevice::Operation::launch), 20);
    EXPECT_EQ(gpu.device().bytesInUse(), 0u);
    EXPECT_TRUE(gpu.device().gapsIntact());
}

TEST(ToneAlignerKernels, linearMap) {
    Vellum::Tone::registerKernels();
    const std::array<float, 4> offsets{0.25f, -1, 0.5f, 0};
    const std::array<float, 4> gains{2, 0.5f, -1, 0};
    checkKernel({.kernel = "linearMapKernel",
                 .reference =
                     [=](const Scene& scene, int x, int y) {
                         Pixel pixel{};
                         if (scene.count(1) == 4) pixel[3] = scene.at(1, x, y, 3);
                         for (int c = 0; c < 3; ++c) {
                             const double v = scene.at(0, x, y, c);
                             pixel[c] = std::abs(v) < 1e-8f ? 0 : gains[c] * v + offsets[c];
                         }
                         return pixel;
                     },
                 .scalars =
                     [=](KernelExecutionContext& context) {
                         context.set({"offsets"}, offsets);
                         context.set({"gains"}, gains);
                     }});
}

/// The kernels of the fused passes are checked against the plain sequence above; here every form of each against the
/// others.
TEST(ToneAlignerKernels, fusedPassesInEveryForm) {
    Vellum::Tone::registerKernels();
    const auto setMatrix = [](const std::array<float, 9>& matrix) {
        return [=](KernelExecutionContext& context) { context.set({"matrix"}, matrix); };
    };
    checkKernel({.kernel = "countedPixelsKernel"});
    checkKernel({.kernel = "labSumKernel", .scalars = setMatrix(Vellum::Common::rgbToXyzMatrix)});
    checkKernel({.kernel = "labDeviationKernel"});
    checkKernel({.kernel = "applyGlobalMatchKernel", .scalars = setMatrix(Vellum::Common::xyzToRgbMatrix)});
}

}  // namespace ViewTint::Tests
