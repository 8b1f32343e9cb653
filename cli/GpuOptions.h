#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <optional>
#include <string>

namespace ViewTint::Cli {

/// Which GPU a render uses, if any.
struct GpuOptions {
    bool use = false;
    int number = 0;

    void addTo(CLI::App& command);
    /// Makes the choice known to the nodes of this process. Without a GPU says why, and that the CPU renders.
    void select() const;
};

/// The CPU and the GPUs, with what is wrong with those that can't be used.
void printDevices(bool json);

/// How much memory of the selected GPU was in use at most.
struct GpuMemory {
    std::string name;
    std::size_t mebibytes;
};
/// Nothing where there is none.
std::optional<GpuMemory> mostGpuMemory();

}  // namespace ViewTint::Cli
