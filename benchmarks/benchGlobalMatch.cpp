// The stages of "Basic" on 1080p pictures, against memory.
#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "benchmarks/StereoScene.h"
#include "compute/Catalogue.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;

void maxOfTwoPlanes(benchmark::State& state) {
    const Image a = randomImage(1, 1);
    const Image b = randomImage(1, 2);
    Image o = makeImage(1, a.box());
    measure(state, static_cast<int>(state.range(0)), 3, [&] { Vellum::Common::max(a, b, o, packed); });
}

void xyzToLab(benchmark::State& state) {
    const Image a = randomImage(3, 1);
    Image o = makeImage(3, a.box());
    measure(state, static_cast<int>(state.range(0)), 6, [&] { Vellum::Common::xyzToLab(a, o, packed); });
}

/// As on a machine without AVX-512.
void xyzToLabOnAvx2(benchmark::State& state) {
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx2);
    xyzToLab(state);
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
}

void labToXyz(benchmark::State& state) {
    const Image a = randomImage(3, 1);
    Image o = makeImage(3, a.box());
    measure(state, static_cast<int>(state.range(0)), 6, [&] { Vellum::Common::labToXyz(a, o, packed); });
}

void maskedSum(benchmark::State& state) {
    const Image mask = randomImage(1, 1);
    const Image a = randomImage(1, 2);
    measure(state, static_cast<int>(state.range(0)), 2,
            [&] { benchmark::DoNotOptimize(Vellum::Common::maskedSum(mask, a, packed)); });
}

/// Statistics of both pictures, the map, back to RGB and the mix. `times_memcpy` counts the fewest planes that such
/// passes can move: 37.
void globalMatch(benchmark::State& state, bool fused) {
    auto& device = Vellum::Compute::Host::hostDevice();
    const Image source = randomImage(4, 1);
    const Image rebuilt = randomImage(4, 2);
    Image mask = makeImage(1, source.box());
    Vellum::Common::fillConstant(mask, 1);
    Image occlusion = makeImage(1, source.box());
    occlusion.clear();
    Image output = makeImage(4, source.box());
    measure(state, static_cast<int>(state.range(0)), 37, [&] {
        BufferManager manager(device, device);
        Vellum::Tone::ToneAligner aligner(manager, packed);
        aligner.setMode(Vellum::Tone::ToneAligner::basic);
        aligner.setFusedPasses(fused);
        aligner.process(source, rebuilt, mask, occlusion, occlusion, output);
    });
    state.counters["planes_copied"] = state.counters["times_memcpy"] * 37 / 2;
}

void globalMatchFused(benchmark::State& state) {
    globalMatch(state, true);
}

void globalMatchPlainSequence(benchmark::State& state) {
    globalMatch(state, false);
}

/// What a kernel call costs beside the pixels: variant, blocks, checks, launch.
void wholeCallOnEightByEight(benchmark::State& state) {
    const Image a = randomImage(1, 1, {0, 0, 8, 8});
    const Image b = randomImage(1, 2, {0, 0, 8, 8});
    Image o = makeImage(1, a.box());
    for (auto _ : state)
        Vellum::Common::max(a, b, o, packed);
}

}  // namespace

BENCHMARK(maxOfTwoPlanes)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(xyzToLab)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(xyzToLabOnAvx2)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(labToXyz)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(maskedSum)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(globalMatchFused)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(globalMatchPlainSequence)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wholeCallOnEightByEight);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
