// The limit of a correction at 1080p with its window of 300 x 300 pixels, whole and in parts, and convolution with a
// small kernel, against memory.
#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "ToneAligner/ToneAligner.h"
#include "ToneAligner/src/vellumCorrectionLimit.h"
#include "benchmarks/StereoScene.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Convolution::ConvolutionHelper;
using Vellum::Tone::makeGaussianWindow;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;

/// As in a render: the aligner is new, and with it the window and its transform. The fewest planes: six read for the
/// difference, which is written; its transform, the product and the way back, each read and written; seven read and
/// six written for the limit.
void limitCorrection(benchmark::State& state) {
    Image source = randomImage(4, 1);
    Image corrected = randomImage(4, 2);
    measure(state, static_cast<int>(state.range(0)), 6 + 1 + 3 * 2 + 7 + 6, [&] {
        BufferManager manager(hostDevice(), hostDevice());
        Vellum::Tone::ToneAligner aligner(manager, packed);
        aligner.setCorrectionLimit(0.1f);
        aligner.limitCorrection(source, corrected);
    });
}

/// What every render pays for, whatever its mode.
void gaussianWindow(benchmark::State& state) {
    measure(state, static_cast<int>(state.range(0)), 1, [] { makeGaussianWindow(100, hostDevice()); });
}

/// The window's mean of one plane: with the window's transform made before, and with a new helper each time.
void wideMean(benchmark::State& state, bool kept) {
    const Image window = makeGaussianWindow(100, hostDevice());
    const Image input = randomImage(1, 1);
    Image output = randomImage(1, 2);
    ConvolutionHelper helper(hostDevice());
    helper.setKernel(window);
    measure(state, static_cast<int>(state.range(0)), 3 * 2, [&] {
        if (kept) return helper.convolve(input, output);
        ConvolutionHelper fresh(hostDevice());
        fresh.setKernel(window);
        fresh.convolve(input, output);
    });
}

void wideMeanWithKeptTransform(benchmark::State& state) {
    wideMean(state, true);
}

void wideMeanFromTheWindow(benchmark::State& state) {
    wideMean(state, false);
}

/// One kernel for three components.
void fiveByFive(benchmark::State& state) {
    ConvolutionHelper helper(hostDevice());
    helper.setKernel(randomImage(1, 3, {0, 0, 5, 5}));
    const Image input = randomImage(3, 1);
    Image output = randomImage(3, 2);
    measure(state, static_cast<int>(state.range(0)), 6, [&] { helper.convolve(input, output); });
}

}  // namespace

BENCHMARK(limitCorrection)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(gaussianWindow)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wideMeanWithKeptTransform)
    ->Arg(1)
    ->Arg(2)
    ->ArgName("threads")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(wideMeanFromTheWindow)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(fiveByFive)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
