#include "framework/VellumSettings.h"

#include <cstdlib>

#include <fmt/format.h>

namespace Cobalt::PlinthPlugins {

namespace {

using Cobalt::Device::APIEnum;

constexpr const char* allowOpenClVariable = "CB_VELLUM_ALLOW_OPENCL_GPU";

constexpr const char* gpuNameTooltip =
    "This is the GPU that will be used for rendering, when <b>Use GPU if available</b> is selected.\n\n"
    "If you have more than one GPU in your machine, you can select a different <b>GPU Device</b> to use by editing "
    "your <b>Preferences</b>. (Note that selecting a different GPU will require a restart of Plinth to take "
    "effect.)\n\n"
    "<b>Local GPU</b> will be shown as <b>Not available</b> when any of the following is true:\n"
    "\t * <b>Use CPU</b> is selected as the <b>GPU Device</b> in your <b>Preferences</b>.\n"
    "\t * No suitable GPU was found on your system. Please refer to the documentation for details of the "
    "requirements for GPU acceleration.\n"
    "\t * It was not possible to create a context for processing on the selected GPU. For example, this can happen "
    "when there is not enough free memory available on the GPU.\n\n\n"
    "\tTo use the GPU when rendering from the command line, add <b>--gpu</b> to your command.\n";

constexpr const char* useGpuTooltip =
    "Select this to render on the <b>Local GPU</b>, if available.\n\n"
    "You can select this even if no GPU is currently available on your machine. The GPU will then be used whenever "
    "the script is opened on a machine which does have a GPU available. You should also select this if you wish to "
    "render from the command line with the <b>--gpu</b> option.\n\n"
    "If this node requires full frames from its inputs, and is therefore unable to reduce its memory overhead, it "
    "will fall back to the CPU if an attempt to render a frame on the GPU fails due to lack of memory. When this "
    "occurs, a warning message will be printed to the console.";

bool readAllowOpenCl() {
    const char* text = std::getenv(allowOpenClVariable);
    if (!text) return false;
    const int number = std::atoi(text);
    fmt::print(stderr, "{}: {}\n", allowOpenClVariable, number);
    return number != 0;
}

/// Read once in the process.
bool allowOpenCl() {
    static const bool allowed = readAllowOpenCl();
    return allowed;
}

}  // namespace

VellumSettings::VellumSettings(int mode) {
    init(allowOpenCl(), mode);
}

void VellumSettings::init(bool allowOpenCl, int mode) {
    multiGpuMode = mode;
    useGPUIfAvailable = true;
    hostContext = VellumLibrary::GetCurrentCPUContext();
    cpuFallbackContext = hostContext;
    // No device here speaks OpenCL, so the list of such devices is empty.
    if (!allowOpenCl) gpuContexts = VellumLibrary::GetGPUContexts(APIEnum::CUDA);
    if (!gpuContexts.empty()) gpuContext = VellumLibrary::GetCurrentGPUContext(APIEnum::CUDA);
}

std::string VellumSettings::gpuDisplayName() const {
    if (!gpuContext || !isGpuUsable()) return "Not available";
    const std::string& name = gpuContext->device().name();
    return gpuContexts.size() > 1 ? fmt::format("{}x {}", gpuContexts.size(), name) : name;
}

void VellumSettings::addKnobs(Fresco::Image::Knob_Callback closure, bool addDivider, Fresco::Image::KnobFlags flags) {
    using namespace Fresco::Image;
    Text_knob(closure, "", "Local GPU:", "");
    SetFlags(closure, flags);
    Text_knob(closure, "gpuName", "", gpuDisplayName());
    SetFlags(closure, flags);
    Tooltip(closure, gpuNameTooltip);
    Spacer(closure);
    Bool_knob(closure, &useGPUIfAvailable, "useGPUIfAvailable", "Use GPU if available");
    SetFlags(closure, flags);
    Tooltip(closure, useGpuTooltip);
    Hidden_knob(closure, "enableMultiGPU");
    if (addDivider) {
        Divider(closure, "");
        SetFlags(closure, flags);
    }
}

}  // namespace Cobalt::PlinthPlugins
