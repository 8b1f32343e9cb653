// A real 1080p picture's transform and back, against memory and against FFTW's plan in two dimensions (ESTIMATE).
#include <fftw3.h>

#include <random>

#include "FFT/FourierTransform.h"
#include "FFT/HostFourierTransform.h"
#include "benchmarks/MemoryReference.h"
#include "compute/HostDevice.h"

namespace ViewTint::Benchmarks {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Image;

void forwardAndBack(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    const Threads scope(threads);
    Image picture({{0, 0, width, height}, 1}, hostDevice(), Vellum::FFT::Host::rowLayout);
    picture.clear();
    std::minstd_rand random(1);
    std::uniform_real_distribution<float> value(0, 1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture.data()[x + y * picture.tile().layout.y.elements] = value(random);
    const auto transform = Vellum::FFT::FourierTransform::make(hostDevice());
    Image spectrum, back;

    fftwf_init_threads();
    fftwf_plan_with_nthreads(threads);
    auto* real = fftwf_alloc_real(std::size_t{width} * height);
    auto* complex = fftwf_alloc_complex(std::size_t{width / 2 + 1} * height);
    const auto forward = fftwf_plan_dft_r2c_2d(height, width, real, complex, FFTW_ESTIMATE);
    const auto reverse = fftwf_plan_dft_c2r_2d(height, width, complex, real, FFTW_ESTIMATE);
    for (std::size_t i = 0; i < std::size_t{width} * height; ++i)
        real[i] = value(random);

    double best = 1e9;
    measure(
        state, threads, 8,
        [&] {
            transform->forward(spectrum, picture);
            transform->reverse(back, spectrum);
        },
        [&] {
            best = std::min(best, secondsFor([&] {
                                fftwf_execute(forward);
                                fftwf_execute(reverse);
                            }));
        });
    state.counters["times_faster_than_fftw"] = best / (state.counters["ns_per_pixel"] * pixels * 1e-9);
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(reverse);
    fftwf_free(real);
    fftwf_free(complex);
}

}  // namespace

BENCHMARK(forwardAndBack)->Arg(1)->Arg(2)->ArgName("threads")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace ViewTint::Benchmarks

BENCHMARK_MAIN();
