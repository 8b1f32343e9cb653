// "Local Matching" at 1080p with 5 per cent occluded and default controls: its block match, its stages together, and
// the whole render beside "Basic", in planes copied through memory. How the cost grows with the picture: 4096 x 2160.
#include "PictureBuilder/PictureBuilder.h"
#include "ToneAligner/ToneAligner.h"
#include "benchmarks/StereoScene.h"
#include "compute/StageStatistics.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Box;
using Vellum::Tone::ToneAligner;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;

struct Scene {
    explicit Scene(const Box& frame) : frame(frame) {
        fill(left, Colours(1));
        fill(right, Colours(0));
        fill(vectors, [](int x, int y, int c) { return c < 2 ? 0.0f : disparity(x, y, c - 2); });
        fill(hidden, [](int x, int y, int) { return occlusion(x, y); });
        fill(mask, [](int, int, int) { return 1.0f; });
        fill(edges, [](int, int, int) { return 0.0f; });
    }
    Box frame;
    Image left = makeImage(4, frame), right = makeImage(4, frame), vectors = makeImage(4, frame),
          hidden = makeImage(1, frame), mask = makeImage(1, frame), edges = makeImage(1, frame),
          rebuilt = makeImage(4, frame), output = makeImage(4, frame);

    void rebuild(BufferManager& manager) {
        const Vellum::Compute::Stage stage("rebuild");
        Vellum::PictureBuilder::PictureBuilder builder(manager, false, 3, 1, true, packed);
        builder.setDirection(1);
        builder.setWrapSize({frame.width(), frame.height()});
        builder.build(left, right, vectors, hidden, rebuilt);
    }
    void match(BufferManager& manager, int mode, int samples = 5) {
        ToneAligner aligner(manager, packed);
        ToneAligner::Settings settings;
        settings.mode = mode;
        settings.samples = samples;
        settings.noiseLevel = 0.25f;
        settings.wrapSize = {frame.width(), frame.height()};
        settings.smoothingRadius = 2 + static_cast<int>(10 * 0.00048828125f * static_cast<float>(frame.width()));
        aligner.setSettings(settings);
        aligner.process(left, rebuilt, mask, hidden, edges, output);
    }
};

/// `planes_copied`: the time in that of copying one plane of the picture's size among 20, through memory. Then the
/// milliseconds of each stage, as means of all runs.
void measureInPlanes(benchmark::State& state, const Box& frame, auto&& work) {
    const double planes = static_cast<double>(frame.pixels()) / pixels;
    const auto statistics = std::make_shared<Vellum::Compute::StageStatistics>();
    Vellum::Compute::countStages(statistics);
    measure(state, static_cast<int>(state.range(0)), 40 * planes, work);
    Vellum::Compute::countStages(nullptr);
    state.counters["planes_copied"] = state.counters["times_memcpy"] * 20;
    state.counters["ns_per_pixel"] = state.counters["ns_per_pixel"] / planes;
    for (const auto& stage : statistics->totals())
        state.counters[stage.name] = stage.seconds * 1e3 / static_cast<double>(state.iterations() + 1);
}

void matchBlocks(benchmark::State& state) {
    Scene scene({0, 0, width, height});
    const Image source = makeImage(3), target = makeImage(3);
    Image lab = source;
    fill(lab, Colours(1));
    lab = target;
    fill(lab, Colours(0));
    Image result = makeImage(3);
    measure(state, static_cast<int>(state.range(0)), 13, [&] {
        BufferManager manager(hostDevice(), hostDevice());
        ToneAligner aligner(manager, packed);
        aligner.setWrapSize({width, height});
        aligner.matchBlocks(source, target, scene.mask, result, static_cast<int>(state.range(1)));
    });
}

void modeOf(benchmark::State& state, const Box& frame, int mode, int samples) {
    Scene scene(frame);
    {
        BufferManager manager(hostDevice(), hostDevice());
        scene.rebuild(manager);
    }
    measureInPlanes(state, frame, [&] {
        BufferManager manager(hostDevice(), hostDevice());
        scene.match(manager, mode, samples);
    });
}

void render(benchmark::State& state, const Box& frame, int mode, int samples) {
    Scene scene(frame);
    measureInPlanes(state, frame, [&] {
        BufferManager manager(hostDevice(), hostDevice());
        scene.rebuild(manager);
        scene.match(manager, mode, samples);
    });
}

constexpr Box hd{0, 0, width, height}, cinema{0, 0, 4096, 2160};

void localStages(benchmark::State& state) {
    modeOf(state, hd, ToneAligner::severalBlockSizes, 5);
}
void renderBasic(benchmark::State& state) {
    render(state, hd, ToneAligner::basic, 5);
}
void renderLocalOneSize(benchmark::State& state) {
    render(state, hd, ToneAligner::oneBlockSize, 1);
}
void renderLocal(benchmark::State& state) {
    render(state, hd, ToneAligner::severalBlockSizes, 5);
}
void renderLocalOf4096By2160(benchmark::State& state) {
    render(state, cinema, ToneAligner::severalBlockSizes, 5);
}

}  // namespace

BENCHMARK(matchBlocks)
    ->ArgsProduct({{1, 2}, {5, 29, 101}})
    ->ArgNames({"threads", "size"})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(localStages)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(renderBasic)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(renderLocalOneSize)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(renderLocal)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(renderLocalOf4096By2160)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
