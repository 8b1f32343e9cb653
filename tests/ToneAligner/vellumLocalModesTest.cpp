#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Tone::ToneAligner;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;
const Box frame{-5, 3, 85, 64};

template <class Value>
Pixels made(const Box& box, int components, Value&& value) {
    Pixels pixels(box, components);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = value(x, y, c); });
    return pixels;
}

Pixels constant(float value) {
    return made(frame, 1, [=](int, int, int) { return value; });
}

/// Waves of several lengths and some grain, as a picture has them; `cast` 1 tints it differently from left to right.
Pixels view(float cast) {
    const Pixels grain = randomPixels(frame, 4, 3, false);
    return made(frame, 4, [&](int x, int y, int c) {
        if (c == 3) return 0.75f;
        const float u = static_cast<float>(x), v = static_cast<float>(y), k = static_cast<float>(c);
        const float shape = 0.35f + 0.15f * std::sin(0.2f * u + k) * std::cos(0.13f * v) + 0.05f * std::sin(1.7f * u) +
                            0.01f * grain.at(x, y, c);
        return shape * (1 + cast * (k - 1) * (0.3f - 0.006f * u));
    });
}

using Stages = std::map<std::string, Pixels>;

/// One call of the aligner in a local mode on plain pixels.
struct Local {
    Pixels source = view(1);
    Pixels rebuilt = view(0);
    Pixels mask = constant(1);
    Pixels occlusion = made(frame, 1, [](int x, int y, int) { return x >= 30 && x < 36 && y > 10 ? 1.0f : 0.0f; });
    Pixels edges = constant(0);
    ToneAligner::Settings settings;
    bool fused = true;
    std::function<void(float)> checkpoint = nullptr;

    Local() {
        settings.maxBlockSize = 30;
        settings.samples = 3;
        settings.noiseLevel = 0.25f;
        settings.wrapSize = {frame.width(), frame.height()};
    }
    Pixels run(Stages* stages = nullptr, Vellum::Image::DeviceBase& primary = hostDevice()) const {
        BufferManager manager(primary, hostDevice());
        ToneAligner aligner(manager, packed);
        aligner.setSettings(settings);
        aligner.setFusedPasses(fused);
        if (checkpoint) aligner.setCheckpoint(checkpoint);
        if (stages)
            aligner.setStageObserver([&](const char* name, const Image& picture) {
                EXPECT_TRUE(stages->emplace(name, pixelsOf(picture)).second) << name << " is shown twice";
            });
        const TestImage sourceImage(source, Arrangement::planar), rebuiltImage(rebuilt, Arrangement::packed);
        const TestImage maskImage(mask, Arrangement::paddedPlanar), occlusionImage(occlusion, Arrangement::planar);
        const TestImage edgesImage(edges, Arrangement::planar);
        TestImage output(Pixels(frame, 4), Arrangement::planar);
        aligner.process(sourceImage.image(), rebuiltImage.image(), maskImage.image(), occlusionImage.image(),
                        edgesImage.image(), output.image());
        EXPECT_EQ(firstDifference(source, sourceImage.pixels()), "") << "the pictures handed over stay";
        EXPECT_EQ(firstDifference(rebuilt, rebuiltImage.pixels()), "");
        EXPECT_EQ(firstDifference(occlusion, occlusionImage.pixels()), "");
        EXPECT_TRUE(output.guardsIntact());
        return output.pixels();
    }
};

double meanDistance(const Pixels& a, const Pixels& b) {
    double sum = 0;
    a.forEach([&](int x, int y, int c) {
        if (c < 3) sum += std::abs(double{a.at(x, y, c)} - b.at(x, y, c));
    });
    return sum / static_cast<double>(3 * a.box().pixels());
}

class LocalModes : public testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() {
        Vellum::Common::registerKernels();
        Vellum::Tone::registerKernels();
    }
    /// A call in the mode of the parameter.
    Local local() const {
        Local result;
        result.settings.mode = GetParam();
        return result;
    }
};

}  // namespace

TEST_P(LocalModes, aCastThatVariesGoes) {
    for (const bool fills : {true, false}) {
        Local match = local();
        match.settings.fillOcclusions = fills;
        if (fills && GetParam() == ToneAligner::oneBlockSize) continue;  // takes the Lab picture for RGB
        const Pixels result = match.run();
        EXPECT_LT(meanDistance(result, match.rebuilt), 0.25 * meanDistance(match.source, match.rebuilt)) << fills;
        for (int y = frame.y0; y < frame.y1; ++y)
            EXPECT_EQ(result.at(frame.x0, y, 3), 0.75f);
    }
}

TEST_P(LocalModes, passesStepsObserversThreadsAndDevicesAgree) {
    Local match = local();
    match.settings.fillOcclusions = GetParam() == ToneAligner::severalBlockSizes;
    for (const int type : {0, 1, 2, 7}) {
        match.settings.correctionType = type;
        match.fused = true;
        const Pixels expected = match.run();
        Stages stages;
        EXPECT_LT(largestDifference(expected, match.run(&stages)), 2e-5) << type;
        for (const int threads : {1, 3}) {
            const ThreadScope scope(Vellum::Parallel::MakeThreader(threads));
            EXPECT_EQ(firstDifference(expected, match.run()), "");
        }
        match.fused = false;
        EXPECT_LT(largestDifference(expected, match.run()), 2e-5) << type;
    }
    const SoftwareContext gpu;
    EXPECT_LT(largestDifference(match.run(), match.run(nullptr, gpu.device())), 2e-5);
    EXPECT_GT(gpu.device().count(SoftwareDevice::Operation::launch), 50);
    EXPECT_EQ(gpu.device().bytesInUse(), 0u);
    EXPECT_TRUE(gpu.device().gapsIntact());
}

TEST_P(LocalModes, outsideTheMaskTheViewStays) {
    Local match = local();
    match.mask = made(frame, 1, [](int x, int, int) { return x < 20 ? 1.0f : x < 40 ? 0.5f : 0.0f; });
    const Pixels half = match.run();
    for (int y = frame.y0; y < frame.y1; ++y)
        for (int c = 0; c < 4; ++c)
            for (int x = 40; x < frame.x1; ++x)
                ASSERT_NEAR(half.at(x, y, c), match.source.at(x, y, c), 3e-6f);
    EXPECT_GT(meanDistance(half, match.source), 0.001);
    // A mask of another box selects nothing outside it.
    Local smaller = local();
    smaller.mask = made({0, 10, 30, 40}, 1, [](int, int, int) { return 1.0f; });
    Local fitted = local();
    fitted.mask = made(frame, 1, [](int x, int y, int) { return x >= 0 && x < 30 && y >= 10 && y < 40 ? 1.0f : 0.0f; });
    EXPECT_EQ(firstDifference(fitted.run(), smaller.run()), "");
}

TEST_P(LocalModes, thePreviewIsTheDifference) {
    Local match = local();
    const Pixels result = match.run();
    match.settings.previewCorrection = true;
    match.settings.outputOcclusionsToAlpha = true;  // the preview goes before it
    const Pixels preview = match.run();
    preview.forEach([&](int x, int y, int c) {
        const float expected = c == 3 ? 0 : result.at(x, y, c) - match.source.at(x, y, c);
        EXPECT_NEAR(preview.at(x, y, c), expected, 5e-6f);
    });
}

TEST_P(LocalModes, theMaskOfTheRefillGoesToAlphaWhenAsked) {
    Local match = local();
    match.settings.outputOcclusionsToAlpha = true;
    match.edges = made(frame, 1, [](int x, int, int) { return x == 60 ? 1.0f : 0.0f; });
    Stages stages;
    const Pixels result = match.run(&stages);
    const Pixels& fillMask = stages.at("O");
    for (int y = frame.y0; y < frame.y1; ++y)
        for (int x = frame.x0; x < frame.x1; ++x)
            ASSERT_EQ(result.at(x, y, 3), fillMask.at(x, y, 0));
    EXPECT_NEAR(fillMask.at(33, 40, 0), 1, 0.05);
    EXPECT_GT(fillMask.at(60, 40, 0), 0.1);
    EXPECT_EQ(fillMask.at(10, 40, 0), 0);
    EXPECT_EQ(stages.at("V").at(60, 40, 0), 0) << "edges don't count";
    EXPECT_EQ(stages.at("V").at(50, 40, 0), 1);
    match.settings.fillOcclusions = false;
    const Pixels none = match.run();
    EXPECT_EQ(none.at(33, 40, 3), 0) << "nothing is refilled";
}

TEST_P(LocalModes, showItsStages) {
    Local match = local();
    Stages stages;
    match.run(&stages);
    std::vector<std::string> names;
    for (const auto& [name, picture] : stages)
        names.push_back(name);
    const bool oneSize = GetParam() == ToneAligner::oneBlockSize;
    std::vector<std::string> wanted =
        oneSize ? std::vector<std::string>{"C"} : std::vector<std::string>{"E0", "E1", "E2", "merged"};
    wanted.insert(wanted.end(), {"N", "O", "T", "V", "average", "delta", "limited", "noise", "refilled", "smoothed"});
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(names, wanted);
    stages.at("noise").forEach([&](int x, int y, int c) {
        EXPECT_EQ(stages.at("noise").at(x, y, c), match.source.at(x, y, c) - stages.at("N").at(x, y, c));
    });
}

TEST_P(LocalModes, anInterruptionLeavesNothing) {
    Local match = local();
    auto& pool = hostDevice().pool();
    match.run();
    int calls = 0;
    float lately = 0;
    match.checkpoint = [&](float done) {
        EXPECT_GE(done, lately);
        EXPECT_LE(done, 1);
        lately = done;
        ++calls;
    };
    match.run();
    EXPECT_GE(calls, 6);
    const std::size_t before = pool.bytesInUse();
    struct Stop {};
    for (int stop = 1; stop <= calls; ++stop) {
        int call = 0;
        match.checkpoint = [&](float) {
            if (++call == stop) throw Stop{};
        };
        EXPECT_THROW(match.run(), Stop);
        EXPECT_EQ(pool.bytesInUse(), before);
    }
}

TEST_P(LocalModes, withoutAnythingThatCounts) {
    Local match = local();
    match.settings.fillOcclusions = false;
    match.occlusion = constant(1);
    const Pixels result = match.run();
    result.forEach([&](int x, int y, int c) { ASSERT_TRUE(std::isfinite(result.at(x, y, c))) << x << ' ' << y; });
    for (const Box& box : {Box{0, 10, 1, 11}, Box{4, 4, 9, 6}}) {
        Local tiny = local();
        const auto cut = [&](const Pixels& pixels) {
            return made(box, pixels.components(), [&](int x, int y, int c) { return pixels.at(x, y, c); });
        };
        BufferManager manager(hostDevice(), hostDevice());
        ToneAligner aligner(manager, packed);
        aligner.setSettings(tiny.settings);
        const TestImage source(cut(tiny.source), Arrangement::planar), rebuilt(cut(tiny.rebuilt), Arrangement::planar);
        const TestImage ones(cut(tiny.mask), Arrangement::planar), zeros(cut(tiny.edges), Arrangement::planar);
        TestImage output(Pixels(box, 4), Arrangement::planar);
        aligner.process(source.image(), rebuilt.image(), ones.image(), zeros.image(), zeros.image(), output.image());
        EXPECT_TRUE(std::isfinite(output.pixels().at(box.x0, box.y0, 0)));
    }
}

INSTANTIATE_TEST_SUITE_P(Each, LocalModes, testing::Values(ToneAligner::oneBlockSize, ToneAligner::severalBlockSizes),
                         [](const auto& info) { return info.param == 2 ? "OneSize" : "SeveralSizes"; });

}  // namespace ViewTint::Tests
