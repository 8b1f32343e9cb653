// The shared neighbourhood filters on one 1080p plane, against memory and against OpenCV's filters of the same window.
#include <random>

#include <opencv2/imgproc.hpp>

#include "Common/Common.h"
#include "benchmarks/Peer.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Image::Image;

Image makePlane() {
    return Image({{0, 0, width, height}, 1, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice());
}

int threadsOf(const benchmark::State& state) {
    return static_cast<int>(state.range(0));
}

/// The same plane for both libraries: values of 0 to 1, of which the share `zeros` is 0.
struct Planes {
    explicit Planes(double zeros) : source(makePlane()), temporary(makePlane()), output(makePlane()) {
        peerSource.create(height, width, CV_32F);
        peerOutput.create(height, width, CV_32F);
        std::minstd_rand random(1);
        std::uniform_real_distribution<float> value(0, 1);
        std::bernoulli_distribution isZero(zeros);
        const auto rowStride = source.tile().layout.y.elements;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                peerSource.at<float>(y, x) = source.data()[x + y * rowStride] = isZero(random) ? 0 : value(random);
        temporary.clear();
        output.clear();
    }
    Image source, temporary, output;
    cv::Mat peerSource, peerOutput;
};

void boxFilter(benchmark::State& state) {
    const int radius = static_cast<int>(state.range(1));
    Planes p(0);
    measureBesideOpenCV(
        state, threadsOf(state), 4, [&] { Vellum::Common::boxFilter(p.source, p.temporary, p.output, radius); },
        [&] {
            cv::boxFilter(p.peerSource, p.peerOutput, -1, {2 * radius + 1, 2 * radius + 1}, {-1, -1}, true,
                          cv::BORDER_REPLICATE);
        });
}

/// Eleven taps, as OpenCV is asked for too.
void gaussianBlur(benchmark::State& state) {
    Planes p(0);
    measureBesideOpenCV(
        state, threadsOf(state), 4, [&] { Vellum::Common::gaussianBlur(p.source, p.temporary, p.output, 1.5f); },
        [&] {
            cv::GaussianBlur(p.peerSource, p.peerOutput, {11, 11}, 1.06, 1.06, cv::BORDER_REPLICATE);
        });
}

void dilate(benchmark::State& state) {
    const int radius = static_cast<int>(state.range(1));
    Planes p(0.97);
    const cv::Mat square = cv::Mat::ones(2 * radius + 1, 2 * radius + 1, CV_8U);
    measureBesideOpenCV(
        state, threadsOf(state), 2, [&] { Vellum::Common::dilate(p.source, p.output, radius); },
        [&] {
            cv::dilate(p.peerSource, p.peerOutput, square, {-1, -1}, 1, cv::BORDER_REPLICATE);
        });
}

void erode(benchmark::State& state) {
    const int radius = static_cast<int>(state.range(1));
    Planes p(0.03);
    const cv::Mat square = cv::Mat::ones(2 * radius + 1, 2 * radius + 1, CV_8U);
    measureBesideOpenCV(
        state, threadsOf(state), 2, [&] { Vellum::Common::erode(p.source, p.output, radius); },
        [&] {
            cv::erode(p.peerSource, p.peerOutput, square, {-1, -1}, 1, cv::BORDER_REPLICATE);
        });
}

/// Without a peer.
void maskEdges(benchmark::State& state) {
    Planes p(0.5);
    measure(state, threadsOf(state), 2,
            [&] { Vellum::Common::maskEdges(p.source, p.output, Vellum::Common::Sides::leftAndRight); });
}

void withRadius(benchmark::internal::Benchmark* b, std::initializer_list<long> radii) {
    b->ArgNames({"threads", "radius"})->UseManualTime()->Unit(benchmark::kMillisecond);
    for (const long threads : {1, 2})
        for (const long radius : radii)
            b->Args({threads, radius});
}

}  // namespace

BENCHMARK(boxFilter)->Apply([](auto* b) { withRadius(b, {3, 15, 20, 40}); });
BENCHMARK(gaussianBlur)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(dilate)->Apply([](auto* b) { withRadius(b, {3, 20}); });
BENCHMARK(erode)->Apply([](auto* b) { withRadius(b, {3}); });
BENCHMARK(maskEdges)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
