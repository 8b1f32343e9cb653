// The pull-push fill of a sparse 1080p picture of two components, against memory.
#include <random>

#include "PullPush/PullPush.h"
#include "PullPush/src/vellumLevels.h"
#include "benchmarks/MemoryReference.h"
#include "compute/Catalogue.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;
constexpr std::uint32_t components = 2;
constexpr Box fine{0, 0, width, height};
constexpr Box coarse{0, 0, width / 2, height / 2};

/// Values of 0 to 1; of the weights three quarters are 0.
Image randomImage(const Box& box, std::uint32_t count, bool weights) {
    Image image({box, count, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice());
    std::minstd_rand random(count);
    std::uniform_real_distribution<float> value(weights ? -3.0f : 0.0f, 1.0f);
    const auto& layout = image.tile().layout;
    for (std::uint32_t c = 0; c < count; ++c)
        for (int y = 0; y < box.height(); ++y)
            for (int x = 0; x < box.width(); ++x)
                image.data()[x + y * layout.y.elements + c * layout.component.elements] = std::max(value(random), 0.0f);
    return image;
}

/// Reports `planes_copied` too: the time against copying one plane of many, that is through memory; a single plane
/// stays in the cache. `planes` are the fewest that the work can read and write.
template <class Work>
void measurePlanes(benchmark::State& state, double planes, Work&& work) {
    constexpr double many = 20;
    const int threads = static_cast<int>(state.range(0));
    measure(state, threads, planes, work);
    const double seconds = state.counters["ns_per_pixel"] * pixels * 1e-9;
    state.counters["planes_copied"] = seconds * many / secondsToMove(2 * many * planeBytes, threads);
}

/// In planes of the picture: the first pull 3 + 3/4, the last push 3 + 3/4 + 2; in between a quarter of pull and push
/// of such levels, 3 + 3/4 and 6 + 3/4, and a third more for those above.
void pullPush(benchmark::State& state) {
    auto& device = Vellum::Compute::Host::hostDevice();
    const Image picture = randomImage(fine, components, false);
    const Image weights = randomImage(fine, 1, true);
    Image result = randomImage(fine, components, false);
    measurePlanes(state, 3.75 + 5.75 + (3.75 + 6.75) / 3, [&] {
        BufferManager manager(device, device);
        Vellum::PullPush::PullPush(manager, packed).apply(picture, weights, result);
    });
}

void pullPicture(benchmark::State& state) {
    const Image picture = randomImage(fine, components, false);
    const Image weights = randomImage(fine, 1, true);
    Image coarseValues = randomImage(coarse, components, false);
    Image coarseWeights = randomImage(coarse, 1, true);
    measurePlanes(state, 3.75,
                  [&] { Vellum::PullPush::pullPicture(picture, weights, coarseValues, coarseWeights, packed); });
}

void pushPicture(benchmark::State& state) {
    const Image coarseValues = randomImage(coarse, components, false);
    const Image coarseWeights = randomImage(coarse, 1, true);
    const Image picture = randomImage(fine, components, false);
    const Image weights = randomImage(fine, 1, true);
    Image result = randomImage(fine, components, false);
    measurePlanes(state, 5.75, [&] {
        Vellum::PullPush::pushPicture(coarseValues, coarseWeights, picture, weights, result, packed);
    });
}

void pullLevel(benchmark::State& state) {
    const Image fineValues = randomImage(fine, components, false);
    const Image fineWeights = randomImage(fine, 1, true);
    Image coarseValues = randomImage(coarse, components, false);
    Image coarseWeights = randomImage(coarse, 1, true);
    measurePlanes(state, 3.75,
                  [&] { Vellum::PullPush::pull(fineValues, fineWeights, coarseValues, coarseWeights, packed); });
}

void pushLevel(benchmark::State& state) {
    const Image coarseValues = randomImage(coarse, components, false);
    const Image coarseWeights = randomImage(coarse, 1, true);
    Image fineValues = randomImage(fine, components, false);
    Image fineWeights = randomImage(fine, 1, true);
    measurePlanes(state, 6.75,
                  [&] { Vellum::PullPush::push(coarseValues, coarseWeights, fineValues, fineWeights, packed); });
}

/// As on a machine without AVX-512.
void pullPushOnAvx2(benchmark::State& state) {
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx2);
    pullPush(state);
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
}

}  // namespace

BENCHMARK(pullPush)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pullPushOnAvx2)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pullPicture)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pushPicture)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pullLevel)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pushLevel)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
