// Colour conversions of a 1080p picture of three components, against memory and against OpenCV's. Each library works on
// pictures as it keeps them: planes here, pixels side by side there.
#include <random>

#include "Common/Common.h"
#include "benchmarks/Peer.h"
#include "compute/Catalogue.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Image::Image;

constexpr double planesMoved = 6;

Image makeImage() {
    return Image({{0, 0, width, height}, 3, Vellum::Pixel::DataEnum::float32}, Vellum::Compute::Host::hostDevice());
}

/// The same picture of linear RGB for both libraries, or the Lab picture that each makes of it, and room for results.
struct Pictures {
    Image source = makeImage(), output = makeImage();
    cv::Mat peerSource = cv::Mat(height, width, CV_32FC3), peerOutput = cv::Mat(height, width, CV_32FC3);

    static Pictures ofRgb() {
        Pictures pictures;
        std::minstd_rand random(1);
        std::uniform_real_distribution<float> value(0, 1);
        const auto& layout = pictures.source.tile().layout;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const float v = value(random);
                    pictures.source.data()[x + y * layout.y.elements + c * layout.component.elements] = v;
                    pictures.peerSource.at<cv::Vec3f>(y, x)[c] = v;
                }
        pictures.output.clear();
        return pictures;
    }

    static Pictures ofLab() {
        Pictures pictures = ofRgb();
        Vellum::Common::rgbToLab(pictures.source, pictures.source);
        cv::cvtColor(pictures.peerSource, pictures.peerSource, cv::COLOR_LRGB2Lab);
        return pictures;
    }
};

void beside(benchmark::State& state, Pictures pictures, cv::ColorConversionCodes conversion,
            void (*convert)(const Image& source, Image& output)) {
    measureBesideOpenCV(
        state, static_cast<int>(state.range(0)), planesMoved, [&] { convert(pictures.source, pictures.output); },
        [&] { cv::cvtColor(pictures.peerSource, pictures.peerOutput, conversion); });
}

void linearRgbToLab(benchmark::State& state) {
    beside(state, Pictures::ofRgb(), cv::COLOR_LRGB2Lab,
           [](const Image& source, Image& output) { Vellum::Common::rgbToLab(source, output); });
}

void labToLinearRgb(benchmark::State& state) {
    beside(state, Pictures::ofLab(), cv::COLOR_Lab2LRGB,
           [](const Image& source, Image& output) { Vellum::Common::labToRgb(source, output); });
}

void srgbToLab(benchmark::State& state) {
    beside(state, Pictures::ofRgb(), cv::COLOR_RGB2Lab, [](const Image& source, Image& output) {
        Vellum::Common::srgbToLinear(source, output);
        Vellum::Common::rgbToLab(output, output);
    });
}

void labToSrgb(benchmark::State& state) {
    beside(state, Pictures::ofLab(), cv::COLOR_Lab2RGB, [](const Image& source, Image& output) {
        Vellum::Common::labToRgb(source, output);
        Vellum::Common::linearToSrgb(output, output);
    });
}

/// OpenCV has no transfer curve by itself.
void srgbToLinear(benchmark::State& state) {
    Pictures p = Pictures::ofRgb();
    measure(state, static_cast<int>(state.range(0)), planesMoved,
            [&] { Vellum::Common::srgbToLinear(p.source, p.output); });
}

void linearToSrgb(benchmark::State& state) {
    Pictures p = Pictures::ofRgb();
    measure(state, static_cast<int>(state.range(0)), planesMoved,
            [&] { Vellum::Common::linearToSrgb(p.source, p.output); });
}

/// As on a machine without AVX-512.
template <void (*conversion)(benchmark::State&)>
void onAvx2(benchmark::State& state) {
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx2);
    conversion(state);
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
}

void onOneAndTwoThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(linearRgbToLab)->Apply(onOneAndTwoThreads);
BENCHMARK(labToLinearRgb)->Apply(onOneAndTwoThreads);
BENCHMARK(srgbToLab)->Apply(onOneAndTwoThreads);
BENCHMARK(labToSrgb)->Apply(onOneAndTwoThreads);
BENCHMARK(srgbToLinear)->Apply(onOneAndTwoThreads);
BENCHMARK(linearToSrgb)->Apply(onOneAndTwoThreads);
BENCHMARK_TEMPLATE(onAvx2, linearRgbToLab)->Apply(onOneAndTwoThreads);
BENCHMARK_TEMPLATE(onAvx2, labToLinearRgb)->Apply(onOneAndTwoThreads);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
