#include <algorithm>
#include <optional>
#include <tuple>
#include <vector>

#include <fmt/format.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include "base/NearestNames.h"
#include "bindings.h"
#include "compute/Kernel.h"
#include "scalars.h"

namespace ViewTint::Python {

namespace {

using Vellum::Image::Image;
using Vellum::JIT::IterationController;
using Vellum::JIT::Kernel;
using Vellum::JIT::KernelExecutionContext;
using Vellum::Kernels::CatalogueEntry;

using Iteration = std::tuple<int, int, int, int, int, int>;

const CatalogueEntry& kernelNamed(const std::string& name) {
    if (const auto* entry = Vellum::Kernels::findKernel(name)) return *entry;
    std::vector<std::string> known;
    for (const auto* family : Vellum::Kernels::families())
        for (const auto& entry : family->kernels())
            known.emplace_back(entry.declaration().name);
    raise("UnknownNameError", fmt::format("There is no kernel \"{}\"; the nearest are {}, and kernels() has them all.",
                                          name, fmt::join(Cobalt::Base::nearestNames(known, name), ", ")));
}

IterationController rangeOf(const std::optional<Iteration>& iteration) {
    if (!iteration) return {};
    const auto& [x0, y0, x1, y1, c0, c1] = *iteration;
    return IterationController::over({x0, y0, x1, y1}, c0, c1);
}

nb::dict accumulators(const CatalogueEntry& entry, const KernelExecutionContext& context) {
    nb::dict results;
    for (const auto& [name, param] : Vellum::JIT::accumulatorParams(entry)) {
        std::vector<float> values(param.count * param.arrayLength);
        context.getElements<float>({name}, values);
        results[name.c_str()] = scalarValue(param, values.data());
    }
    return results;
}

nb::dict run(const std::string& name, const std::vector<Image>& images, int flags,
             const std::optional<Iteration>& iteration, const nb::kwargs& scalars) {
    const CatalogueEntry& entry = kernelNamed(name);
    std::vector<const Image*> bound(images.size());
    std::ranges::transform(images, bound.begin(), [](const Image& image) { return &image; });
    KernelExecutionContext context(Kernel::Make(entry, bound, static_cast<Vellum::CodeGen::Flags>(flags)));
    context.setImageParamBindings(bound);
    for (const auto [scalar, value] : scalars)
        setScalar(context, nb::cast<std::string>(scalar), value);
    unlocked([&] { context.iterate(Vellum::Compute::deviceOf(images.back()), rangeOf(iteration)); });
    return accumulators(entry, context);
}

/// nanobind gives keyword arguments no type.
constexpr const char* signature =
    "def run(name: str, images: collections.abc.Sequence[viewtint._viewtint.Image], flags: int = 19, "
    "iteration: tuple[int, int, int, int, int, int] | None = None, **scalars: typing.Any) "
    "-> dict[str, float | list[float]]";

}  // namespace

void bindRun(nb::module_& module) {
    module.def("run", run, nb::arg("name"), nb::arg("images"), nb::arg("flags") = packedCode,
               nb::arg("iteration") = nb::none(), nb::arg("scalars"), nb::sig(signature),
               R"(Runs a kernel of kernels() and returns its accumulators by name, {} if it has none.

images: in the order of the kernel's record; those that it writes are changed in place. Images may have different boxes
    as long as they hold every pixel that the kernel touches. While it runs, no other thread may use one that it writes.
flags: 19 for packed code, 1 for code that takes one pixel at a time. Both give the same.
iteration: (x0, y0, x1, y1, c0, c1), the pixels and components that the kernel runs over, x1, y1 and c1 excluded.
    c0 and c1 of 0: all components. Left out: the whole last written image, or the last one if none is written.
scalars: by name; those left out keep their defaults. Values are those of the kernel's record: int does for float, but
    neither bool nor text; a vector takes a sequence or an array of its length.

UnknownNameError: no such kernel or scalar. WrongTypeError: a scalar of another type. Error: images that the kernel has
no variant for or that are too small, other flags, numbers out of range.)");
}

}  // namespace ViewTint::Python
