// The bilateral fill of 5 per cent of a 1080p picture, its distances, and its kernel with windows of one size, against
// memory; and of half of the picture, the left half or a disc in the middle.
#include <random>

#include "BilateralFilter/BilateralFilter.h"
#include "Common/Common.h"
#include "benchmarks/MemoryReference.h"
#include "compute/HostDevice.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family bilateral;
}

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::Scalar;
using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Image;

const ProgramSource fillSource(Vellum::Kernels::bilateral, "bilateralFillKernel");

/// Upright bars 28 pixels wide, as occlusions at the edges of objects are.
constexpr int barWidth = 28;
constexpr int barPitch = 560;

bool inBars(int x, int y) {
    return (x + y / 4) % barPitch < barWidth;
}
bool inLeftHalf(int x, int) {
    return x < width / 2;
}
bool inDisc(int x, int y) {
    const long dx = x - width / 2, dy = y - height / 2;
    return dx * dx + dy * dy < static_cast<long>(0.5 / 3.14159 * pixels);
}

struct Scene {
    explicit Scene(bool (*isHidden)(int, int) = inBars)
        : values(picture(3)),
          guide(picture(3)),
          mask(picture(1)),
          seeds(picture(1)),
          distance(picture(1)),
          output(picture(3)) {
        Vellum::Common::registerKernels();
        Vellum::BilateralFilter::registerKernels();
        std::minstd_rand random(1);
        std::uniform_real_distribution<float> value(0, 0.2f);
        const auto fill = [](Image& image, auto&& of) {
            const auto& layout = image.tile().layout;
            for (std::uint32_t c = 0; c < image.components(); ++c)
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        image.data()[x + y * layout.y.elements + c * layout.component.elements] = of(x, y);
        };
        fill(values, [&](int, int) { return value(random); });
        fill(guide, [&](int, int) { return value(random); });
        fill(mask, [&](int x, int y) {
            const bool hidden = isHidden(x, y);
            filled += hidden;
            return hidden ? 1.0f : 0.0f;
        });
    }
    static Image picture(std::uint32_t components) {
        Image image({{0, 0, width, height}, components}, hostDevice());
        image.clear();
        return image;
    }
    Image values, guide, mask, seeds, distance, output;
    double filled = 0;
};

int threadsOf(const benchmark::State& state) {
    return static_cast<int>(state.range(0));
}

/// The kernel alone, every window of the same radius.
void fillKernel(benchmark::State& state) {
    Scene s;
    constexpr float tolerance = 0.1f;
    const std::array<float, 3> sigma{tolerance, 0.667f * tolerance, 0.667f * tolerance};
    const int boost = static_cast<int>(state.range(1)) - 1;
    Vellum::Common::copy(s.mask, s.distance);  // distance 1 under the mask
    measure(state, threadsOf(state), 11, [&] {
        Vellum::Compute::runKernel(fillSource, {&s.distance, &s.mask, &s.guide, &s.values, &s.output}, 19, {},
                                   Scalar{"colourSigma", sigma}, Scalar{"radiusBoost", boost},
                                   Scalar{"weightFloor", 1e-5f});
    });
    state.counters["filled_percent"] = 100 * s.filled / pixels;
    const double taps = (2.0 * state.range(1) + 1) * (2.0 * state.range(1) + 1) * s.filled;
    state.counters["ns_per_tap"] = state.counters["ns_per_pixel"] * pixels / taps;
}

/// All of it: distances, windows that grow with them.
void fillHoles(benchmark::State& state, bool (*isHidden)(int, int)) {
    Scene s(isHidden);
    constexpr float tolerance = 0.1f;
    Vellum::Utils::BufferManagement::BufferManager manager(hostDevice(), hostDevice());
    measure(state, threadsOf(state), 11, [&] {
        Vellum::BilateralFilter::BilateralFilter filter(manager, {tolerance, 0.667f * tolerance, 0.667f * tolerance},
                                                        static_cast<int>(state.range(1)), 0);
        filter.apply(s.values, s.guide, s.mask, s.output);
    });
}

void growDistance(benchmark::State& state) {
    Scene s;
    Vellum::Utils::BufferManagement::BufferManager manager(hostDevice(), hostDevice());
    Vellum::Common::invert(s.mask, s.seeds);
    Vellum::BilateralFilter::BilateralFilter filter(manager, {1, 1, 1}, 0, 0);
    measure(state, threadsOf(state), 2, [&] { filter.growDistance(s.seeds, s.distance); });
}

void withThreads(benchmark::internal::Benchmark* b, const char* argument, long value) {
    b->ArgNames({"threads", argument})->UseManualTime()->Unit(benchmark::kMillisecond);
    for (const long threads : {1, 2})
        b->Args({threads, value});
}

}  // namespace

BENCHMARK(fillKernel)->Apply([](auto* b) { withThreads(b, "radius", 23); });
BENCHMARK_CAPTURE(fillHoles, bars, inBars)->Apply([](auto* b) { withThreads(b, "support", 20); });
BENCHMARK_CAPTURE(fillHoles, leftHalf, inLeftHalf)->Apply([](auto* b) { withThreads(b, "support", 20); });
BENCHMARK_CAPTURE(fillHoles, disc, inDisc)->Apply([](auto* b) { withThreads(b, "support", 20); });
BENCHMARK(growDistance)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
