// Whole renders on a GPU beside the CPU's, and the speed of each kernel against the card's copying. A program for
// people with a card: gpu_check [WIDTH HEIGHT]. Ends with 1 where pictures differ.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>

#include "compute/CUDA/Device.h"
#include "compute/Catalogue.h"
#include "compute/Exception.h"
#include "host/graph/RenderJob.h"
#include "node/KernelLibraries.h"
#include "tests/CUDA/StereoPictures.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

using Clock = std::chrono::steady_clock;
using Vellum::Compute::CUDA::Device;
using Vellum::Kernels::CatalogueEntry;

constexpr auto cuda = Cobalt::Device::APIEnum::CUDA;

double secondsOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// What a picture may differ by: sums come out otherwise in their last bits, and all that follows from them.
constexpr double allowed = 1e-4;

bool compareRenders(Device& gpu, const Box& frame) {
    const Host::FramePictures pictures = stereoPictures(frame);
    bool alike = true;
    fmt::print("\nrenders of {} x {}        CPU ms    GPU ms   largest difference   memory MiB\n", frame.width(),
               frame.height());
    for (const char* mode : {"Basic", "Local Matching"}) {
        Host::ControlValues controls(Host::viewTintClass);
        controls.set("matchingMode", mode);
        std::optional<Image> results[2];
        double seconds[2] = {};
        for (const bool onGpu : {false, true}) {
            VellumLibrary::SelectGPUContext(cuda, onGpu ? 0 : -1);
            gpu.pool().forgetMostBytesInUse();
            for (int turn = 0; turn < 2; ++turn)  // the first loads code and takes memory
                seconds[onGpu] = secondsOf([&] {
                    auto result = Host::NodeRender::render(controls, pictures);
                    for (const std::string& message : result.messages)
                        fmt::print("{}: {}\n", onGpu ? "GPU" : "CPU", message);
                    results[onGpu] = std::move(result.picture);
                });
        }
        double most = 1e30;
        if (results[0] && results[1]) {
            const Pixels a = pixelsOf(*results[0]), b = pixelsOf(*results[1]);
            most = 0;
            a.forEach(
                [&](int x, int y, int c) { most = std::max(most, std::abs(double{a.at(x, y, c)} - b.at(x, y, c))); });
        }
        alike = alike && most <= allowed;
        fmt::print("{:<24}{:>10.1f}{:>10.1f}{:>21.2g}{:>13}{}\n", mode, seconds[0] * 1e3, seconds[1] * 1e3, most,
                   gpu.pool().mostBytesInUse() >> 20, most <= allowed ? "" : "  TOO MUCH");
    }
    VellumLibrary::SelectGPUContext(cuda, -1);
    return alike;
}

/// GB/s of a variant over whole pictures, with its scalars as they are; 0 where it wants pictures of other kinds.
double rateOf(Device& gpu, const CatalogueEntry& entry, int variant, const Box& frame) try {
    std::vector<Image> images;
    std::uint64_t bytes = 0;
    for (const int components : countsOf(entry.tuples()[static_cast<std::size_t>(variant)])) {
        images.emplace_back(Vellum::Image::Info{frame, static_cast<std::uint32_t>(components)}, gpu);
        bytes += static_cast<std::uint64_t>(frame.pixels()) * static_cast<std::uint64_t>(components) * sizeof(float);
        const Pixels noise = randomPixels(frame, components, 1, false);
        images.back().copyFrom(TestImage(noise, Arrangement::planar).image());
    }
    std::vector<const Image*> list;
    for (const Image& image : images)
        list.push_back(&image);
    Vellum::JIT::KernelExecutionContext context(
        Vellum::JIT::Kernel::Make(entry, list, Vellum::CodeGen::Flags::packed, cuda));
    context.setImageParamBindings(list);
    const auto run = [&] { context.iterate(gpu, {}); };
    run();
    double best = 1e30;
    for (int turn = 0; turn < 5; ++turn)
        best = std::min(best, secondsOf(run));
    return static_cast<double>(bytes) * 1e-9 / best;
} catch (const Cobalt::Base::Exception&) {
    return 0;
}

void timeKernels(Device& gpu, const Box& frame) {
    const CatalogueEntry& copy = *Vellum::Kernels::findKernel("copyKernel");
    const double copying = rateOf(gpu, copy, 3, frame);
    fmt::print("\nkernels over {} x {}, scalars as they are             GB/s   of copying\n", frame.width(),
               frame.height());
    fmt::print("{:<44}{:<8}{:>10.1f}\n", "copying 4 components", "4f_4f", copying);
    for (const auto* family : Vellum::Kernels::families())
        for (const CatalogueEntry& entry : family->kernels()) {
            const int last = static_cast<int>(entry.tuples().size()) - 1;
            const auto& types = entry.tuples()[static_cast<std::size_t>(last)];
            if (types.text().find("ui") != std::string::npos || entry.declaration().inRasterOrder) continue;
            const double rate = rateOf(gpu, entry, last, frame);
            if (rate > 0)
                fmt::print("{:<44}{:<16}{:>6.1f}{:>12.2f}\n", entry.declaration().name, types.text(), rate,
                           rate / copying);
        }
}

}  // namespace

}  // namespace ViewTint::Tests

int main(int argc, char** argv) {
    using namespace ViewTint::Tests;
    const int width = argc == 3 ? std::atoi(argv[1]) : 1920, height = argc == 3 ? std::atoi(argv[2]) : 1080;
    const auto gpus = VellumLibrary::FindGPUContexts(cuda);
    if (gpus.empty() || width < 16 || height < 16) {
        fmt::print(stderr, "gpu_check: there is no GPU, or not gpu_check [WIDTH HEIGHT]\n");
        return 2;
    }
    Vellum::registerKernelLibraries();
    auto& gpu = static_cast<Vellum::Compute::CUDA::Device&>(gpus.front()->device());
    fmt::print("{}, compute capability {}, {} MiB\n", gpu.name(), gpu.computeCapability(), gpu.totalBytes() >> 20);
    const bool alike = compareRenders(gpu, {0, 0, width, height});
    timeKernels(gpu, {0, 0, width, height});
    return alike ? 0 : 1;
}
