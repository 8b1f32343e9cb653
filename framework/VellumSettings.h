#pragma once

#include <string>
#include <vector>

#include "compute/Device.h"
#include "host/sdk/Knobs.h"

namespace Cobalt::PlinthPlugins {

/// The compute contexts that an operator may use, found when it is made, and the artist's choice between them: the GPU
/// where "Use GPU if available" is set and one is there, else the CPU. Read only during renders.
class VellumSettings {
public:
    /// `mode` says how several GPUs are used; 0 uses one.
    explicit VellumSettings(int mode);
    virtual ~VellumSettings() = default;

    /// False keeps an operator off the GPU's name display.
    virtual bool isGpuUsable() const { return true; }

    /// Declares the GPU controls; `flags` goes to each that is shown.
    void addKnobs(Fresco::Image::Knob_Callback closure, bool addDivider, Fresco::Image::KnobFlags flags);
    /// The name of the GPU, with the count before it where there are several, or "Not available".
    std::string gpuDisplayName() const;

    /// The compiled form of kernels that algorithms ask for: the packed one.
    int kernelFlags() const { return 19; }

    Vellum::Compute::Device& hostDevice() const { return hostContext->device(); }
    /// The context of the device that a render starts on.
    const Vellum::Compute::ContextPointer& renderContext() const {
        return useGPUIfAvailable && gpuContext ? gpuContext : hostContext;
    }

protected:
    Vellum::Compute::ContextPointer gpuContext;  ///< null without a GPU
    std::vector<Vellum::Compute::ContextPointer> gpuContexts;
    Vellum::Compute::ContextPointer hostContext;
    Vellum::Compute::ContextPointer cpuFallbackContext;
    bool useGPUIfAvailable = true;  ///< control
    int multiGpuMode = 0;

private:
    void init(bool allowOpenCl, int mode);
};

}  // namespace Cobalt::PlinthPlugins
