// Colour conversions of 1080p pictures of three components, against memory and OpenCV's conversions.
#include <random>

#include "Common/Common.h"
#include "benchmarks/Peer.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Image::Image;

Image makePicture() {
    return Image({{0, 0, width, height}, 3, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice());
}

/// The same picture for both libraries.
struct Pictures {
    Pictures() : source(makePicture()), output(makePicture()), peerSource(height, width, CV_32FC3) {
        std::minstd_rand random(1);
        std::uniform_real_distribution<float> value(0.01f, 0.9f);
        const auto& layout = source.tile().layout;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c)
                    peerSource.at<cv::Vec3f>(y, x)[c] =
                        source.data()[x + y * layout.y.elements + c * layout.component.elements] = value(random);
        output.clear();
    }
    Image source, output;
    cv::Mat peerSource, peerOutput;
};

void convert(benchmark::State& state, void (*conversion)(const Image&, Image&, int), int peerCode) {
    Pictures p;
    compare(
        state, 6, [&] { conversion(p.source, p.output, 19); },
        [&] { cv::cvtColor(p.peerSource, p.peerOutput, peerCode); });
}

void rgbToLab(benchmark::State& state) {
    convert(state, Vellum::Common::rgbToLab, cv::COLOR_LRGB2Lab);
}

void labToRgb(benchmark::State& state) {
    convert(state, Vellum::Common::labToRgb, cv::COLOR_Lab2LRGB);
}

/// OpenCV has no transfer curve by itself.
void linearToSrgb(benchmark::State& state) {
    Pictures p;
    measure(state, static_cast<int>(state.range(0)), 6, [&] { Vellum::Common::linearToSrgb(p.source, p.output); });
}

}  // namespace

BENCHMARK(rgbToLab)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(labToRgb)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(linearToSrgb)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
