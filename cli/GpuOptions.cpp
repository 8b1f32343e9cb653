#include "cli/GpuOptions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>
#include <vector>

#include "cli/CallError.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "compute/CUDA/Device.h"
#include "compute/Catalogue.h"
#include "compute/HostDevice.h"

namespace ViewTint::Cli {

namespace {

constexpr auto cuda = Cobalt::Device::APIEnum::CUDA;

Vellum::Compute::CUDA::Device& gpuOf(const Vellum::Compute::ContextPointer& context) {
    return static_cast<Vellum::Compute::CUDA::Device&>(context->device());
}

std::string cpuText() {
    return fmt::format("{} threads, {}", Vellum::Compute::Host::hostDevice().threader()->threads(),
                       Vellum::CodeGen::toString(Vellum::CodeGen::instructionSet()));
}

constexpr std::size_t mib = std::size_t{1} << 20;

}  // namespace

void GpuOptions::addTo(CLI::App& command) {
    auto* gpu = command.add_flag("--gpu", use, "Renders on the GPU; without one, or should it fail, on the CPU");
    command.add_option("--gpu-device", number, "Which GPU, by its number in 'viewtint info --devices'")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N")
        ->default_str("0")
        ->needs(gpu);
}

void GpuOptions::select() const {
    if (!use) return;
    const auto gpus = VellumLibrary::FindGPUContexts(cuda);
    if (gpus.empty()) {
        complain(fmt::format("There is no GPU to render on ({}); the CPU renders.",
                             fmt::join(VellumLibrary::GetGPUProblems(cuda), "; ")));
        return;
    }
    if (static_cast<std::size_t>(number) >= gpus.size())
        throw CallError(fmt::format("--gpu-device: there is no GPU {}; the last is {} ('viewtint info --devices').",
                                    number, gpus.size() - 1));
    VellumLibrary::SelectGPUContext(cuda, number);
}

void printDevices(bool json) {
    const auto gpus = VellumLibrary::FindGPUContexts(cuda);
    const auto problems = VellumLibrary::GetGPUProblems(cuda);
    if (json) {
        std::vector<Json> list;
        for (std::size_t i = 0; i < gpus.size(); ++i)
            list.push_back(Json::object(
                {{"number", Json::integer(static_cast<long long>(i))},
                 {"name", Json::text(gpuOf(gpus[i]).name())},
                 {"compute_capability", Json::text(gpuOf(gpus[i]).computeCapability())},
                 {"memory_mib", Json::integer(static_cast<long long>(gpuOf(gpus[i]).totalBytes() / mib))}}));
        print("{}\n",
              Json::object(
                  {{"cpu", Json::text(cpuText())}, {"gpus", Json::array(list)}, {"problems", Json::array(problems)}})
                  .str());
        return;
    }
    print("CPU: {}\n", cpuText());
    for (std::size_t i = 0; i < gpus.size(); ++i)
        print("GPU {}: {}, compute capability {}, {} MiB\n", i, gpuOf(gpus[i]).name(),
              gpuOf(gpus[i]).computeCapability(), gpuOf(gpus[i]).totalBytes() / mib);
    for (const std::string& problem : problems)
        print("no {}GPU: {}\n", gpus.empty() ? "" : "further ", problem);
}

void printMostGpuMemory() {
    if (const auto gpu = VellumLibrary::GetCurrentGPUContext(cuda))
        put(stdout,
            fmt::format("{}: at most {} MiB in use\n", gpuOf(gpu).name(), gpuOf(gpu).pool().mostBytesInUse() / mib));
}

}  // namespace ViewTint::Cli
