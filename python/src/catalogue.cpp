#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "bindings.h"
#include "compute/Kernel.h"
#include "scalars.h"

namespace ViewTint::Python {

namespace {

using Vellum::Kernels::CatalogueEntry;

std::string typeOf(const Vellum::CodeGen::MarshalledParam& param) {
    return Vellum::Kernels::typeText(param.type, param.count * param.arrayLength);
}

nb::list imageRecords(const CatalogueEntry& entry) {
    const nb::object record = packageClass("viewtint.records", "ImageRecord");
    nb::list list;
    for (int i = 0; i < entry.declaration().images.count; ++i) {
        const auto& image = entry.declaration().images.list[i];
        list.append(record(image.name, image.written, toString(image.pattern), toString(image.edge)));
    }
    return list;
}

nb::list scalarRecords(const CatalogueEntry& entry) {
    const nb::object record = packageClass("viewtint.records", "ScalarRecord");
    auto defaults = defaultParameters(entry.declaration());
    defaults.resize(entry.parameterBytes());  // what belongs to images begins as 0
    nb::list list;
    for (const auto& [name, param] : Vellum::JIT::callerParams(entry))
        list.append(record(name, typeOf(param), scalarValue(param, defaults.data() + param.offset)));
    return list;
}

nb::list accumulatorRecords(const CatalogueEntry& entry) {
    const nb::object record = packageClass("viewtint.records", "AccumulatorRecord");
    nb::list list;
    for (const auto& [name, param] : Vellum::JIT::accumulatorParams(entry))
        list.append(record(name, typeOf(param)));
    return list;
}

nb::list tupleTexts(const CatalogueEntry& entry) {
    nb::list list;
    for (const auto& tuple : entry.tuples())
        list.append(tuple.text());
    return list;
}

nb::dict kernels() {
    const nb::object record = packageClass("viewtint.records", "KernelRecord");
    nb::dict kernels;
    for (const auto* family : Vellum::Kernels::families())
        for (const auto& entry : family->kernels())
            kernels[entry.declaration().name] =
                record(imageRecords(entry), entry.declaration().perComponent, entry.declaration().passes,
                       scalarRecords(entry), accumulatorRecords(entry), tupleTexts(entry));
    return kernels;
}

}  // namespace

void bindCatalogue(nb::module_& module) {
    module.def("kernels", kernels, nb::sig("def kernels() -> dict[str, viewtint.records.KernelRecord]"),
               "Every kernel that `run` starts, by name, as its declaration in C++ has it.");
}

}  // namespace ViewTint::Python
