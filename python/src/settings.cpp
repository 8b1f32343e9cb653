#include <optional>

#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>

#include "base/NearestNames.h"
#include "bindings.h"
#include "compute/Catalogue.h"
#include "compute/HostDevice.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;

int threads(std::optional<int> n) {
    if (n && *n < 0) raiseValue("threads takes 0 (all of the machine's) or more, not " + std::to_string(*n) + ".");
    if (n) Vellum::Compute::Host::setThreads(*n);
    return hostDevice().threader()->threads();
}

void limitInstructionSet(const std::string& name) {
    std::string known;
    for (const auto set : Vellum::CodeGen::allInstructionSets) {
        if (Cobalt::Base::lowered(name) == Cobalt::Base::lowered(toString(set))) {
            Vellum::CodeGen::limitInstructionSet(set);
            return;
        }
        known += (known.empty() ? "" : ", ") + std::string(toString(set));
    }
    raiseValue("There is no instruction set \"" + name + "\"; there are " + known + ".");
}

}  // namespace

void bindSettings(nb::module_& module) {
    module.def("threads", threads, nb::arg("n") = nb::none(),
               R"(Sets how many threads kernels use from the next call on, and returns how many they are.

n: 0 for as many as the machine has; left out, nothing changes. Results don't depend on it. Negative: ValueError.)");
    module.def(
        "instruction_set", [] { return toString(Vellum::CodeGen::instructionSet()); },
        "The instruction set that kernels use: the widest that the machine has and the limit allows.");
    module.def("limit_instruction_set", limitInstructionSet, nb::arg("name"),
               R"(Keeps kernels from using wider instruction sets than this one.

name: as instruction_set() gives it, in upper or lower case; the widest lifts the limit. Results don't depend on it.
An unknown name: ValueError.)");
}

}  // namespace ViewTint::Python
