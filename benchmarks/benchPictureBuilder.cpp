// The other view rebuilt at 1080p: the warp beside OpenCV's, and the whole with 5 per cent of hole.
#include "Common/Common.h"
#include "PictureBuilder/PictureBuilder.h"
#include "benchmarks/Peer.h"
#include "benchmarks/StereoScene.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::PictureBuilder::PictureBuilder;
using Vellum::PictureBuilder::WarpFilter;
using Vellum::Utils::BufferManagement::BufferManager;

/// The samples of one warp, coded already.
void warp(benchmark::State& state) {
    Image coded = makeImage(4, {0, 0, width, height}, WarpFilter::codedLayout), displacement = makeImage(2),
          output = makeImage(4);
    fillRandomly(coded);
    fill(displacement, [](int x, int y, int c) { return disparity(x, y, c); });
    const WarpFilter filter{.sRGBDomain = false, .wrapSize = {width, height}};
    cv::Mat source(height, width, CV_32FC4, coded.data()), warped, columns(height, width, CV_32F),
        rows(height, width, CV_32F);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            columns.at<float>(y, x) = static_cast<float>(x) + disparity(x, y, 0);
            rows.at<float>(y, x) = static_cast<float>(y) + disparity(x, y, 1);
        }
    measureBesideOpenCV(
        state, static_cast<int>(state.range(0)), 10, [&] { filter.warp(coded, displacement, output); },
        [&] { cv::remap(source, warped, columns, rows, cv::INTER_LANCZOS4, cv::BORDER_REPLICATE); });
}

void build(benchmark::State& state) {
    Image viewA = makeImage(4), viewB = makeImage(4), vectors = makeImage(4), occlusion = makeImage(1),
          result = makeImage(4);
    fillRandomly(viewA);
    fillRandomly(viewB);
    fill(vectors, [](int x, int y, int c) { return c < 2 ? 0.0f : disparity(x, y, c - 2); });
    occlusion.clear();
    auto& device = Vellum::Compute::Host::hostDevice();
    const auto run = [&] {
        BufferManager manager(device, device);
        PictureBuilder builder(manager, false, 3, 1, true, 19);
        builder.setDirection(1);
        builder.setWrapSize({width, height});
        builder.build(viewA, viewB, vectors, occlusion, result);
    };
    measure(state, static_cast<int>(state.range(0)), 70, run);
    state.counters["planes_copied"] = state.counters["times_memcpy"] * 70 / 2;
}

}  // namespace

BENCHMARK(warp)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(build)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
