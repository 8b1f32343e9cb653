// The guided filter on three channels of a 1080p picture, against memory and against OpenCV's filter of one grey
// picture run three times.
#include <random>

#include <opencv2/ximgproc.hpp>

#include "Common/Common.h"
#include "GuidedFilter/GuidedFilter.h"
#include "benchmarks/Peer.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Image;

constexpr int channels = 3;

/// Channel c of it is plane c of the peer's.
struct Picture {
    explicit Picture(unsigned seed) : image({{0, 0, width, height}, channels}, hostDevice()) {
        std::minstd_rand random(seed);
        std::uniform_real_distribution<float> value(0, 1);
        const auto& layout = image.tile().layout;
        for (int c = 0; c < channels; ++c) {
            planes[c].create(height, width, CV_32F);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    planes[c].at<float>(y, x) =
                        image.data()[x + y * layout.y.elements + c * layout.component.elements] = value(random);
        }
    }
    Image image;
    cv::Mat planes[channels];
};

void filter(benchmark::State& state, int radius, float epsilon, const Picture& input, const Picture& guidance,
            bool inPlace) {
    Vellum::Common::registerKernels();
    Vellum::GuidedFilter::registerKernels();
    Image output({{0, 0, width, height}, channels}, hostDevice());
    output.copyFrom(input.image);
    cv::Mat peerOutput;
    Vellum::Utils::BufferManagement::BufferManager manager(hostDevice(), hostDevice());
    const double planes = &input == &guidance ? 2 * channels : 3 * channels;
    measureBesideOpenCV(
        state, static_cast<int>(state.range(0)), planes,
        [&] {
            Vellum::GuidedFilter::GuidedFilter guided(manager, radius, epsilon, 1, 0);
            guided.apply(inPlace ? output : input.image, inPlace && &input == &guidance ? output : guidance.image,
                         output);
        },
        [&] {
            for (int c = 0; c < channels; ++c)
                cv::ximgproc::guidedFilter(guidance.planes[c], input.planes[c], peerOutput, radius, epsilon);
        });
}

void guidedBySelf(benchmark::State& state) {
    const Picture picture(1);
    filter(state, static_cast<int>(state.range(1)), 1e-7f, picture, picture, false);
}

void guidedByAnother(benchmark::State& state) {
    const Picture picture(1), guidance(2);
    filter(state, static_cast<int>(state.range(1)), 1e-7f, picture, guidance, false);
}

/// Results go into the input.
void guidedBySelfInPlace(benchmark::State& state) {
    const Picture picture(1);
    filter(state, static_cast<int>(state.range(1)), 1e-7f, picture, picture, true);
}

void guidedByAnotherInPlace(benchmark::State& state) {
    const Picture picture(1), guidance(2);
    filter(state, static_cast<int>(state.range(1)), 1e-7f, picture, guidance, true);
}

void withRadius(benchmark::internal::Benchmark* b, std::initializer_list<long> radii) {
    b->ArgNames({"threads", "radius"})->UseManualTime()->Unit(benchmark::kMillisecond);
    for (const long threads : {1, 2})
        for (const long radius : radii)
            b->Args({threads, radius});
}

}  // namespace

BENCHMARK(guidedBySelf)->Apply([](auto* b) { withRadius(b, {3}); });
BENCHMARK(guidedByAnother)->Apply([](auto* b) { withRadius(b, {3, 11, 22, 40}); });
BENCHMARK(guidedBySelfInPlace)->Apply([](auto* b) { withRadius(b, {3}); });
BENCHMARK(guidedByAnotherInPlace)->Apply([](auto* b) { withRadius(b, {11, 22}); });

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
