// What the parts of the module share. Each bind...() enters one part.
#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include <nanobind/nanobind.h>

#include "compute/Box.h"
#include "compute/Catalogue.h"

namespace ViewTint::Python {

namespace nb = nanobind;

/// The default of `flags`.
inline constexpr int packedCode = static_cast<int>(Vellum::CodeGen::Flags::packed);

void bindImage(nb::module_& module);
void bindCatalogue(nb::module_& module);
void bindRun(nb::module_& module);
void bindCopies(nb::module_& module);
void bindArithmetic(nb::module_& module);
void bindColour(nb::module_& module);
void bindBilateralFilter(nb::module_& module);
void bindConvolution(nb::module_& module);
void bindFourierTransform(nb::module_& module);
void bindGuidedFilter(nb::module_& module);
void bindNeighbourhoods(nb::module_& module);
void bindNode(nb::module_& module);  ///< where the host is built too
void bindPictureBuilder(nb::module_& module);
void bindRenderFile(nb::module_& module);  ///< likewise
void bindStatistics(nb::module_& module);
void bindToneAligner(nb::module_& module);
void bindSettings(nb::module_& module);

/// A class of the package's own .py files.
inline nb::object packageClass(const char* module, const char* name) {
    return nb::module_::import_(module).attr(name);
}

/// str(object).
inline std::string textOf(const nb::object& object) {
    return nb::str(object).c_str();
}

/// Raises an exception of viewtint.errors.
[[noreturn]] inline void raise(const char* errorClass, const std::string& message) {
    PyErr_SetString(packageClass("viewtint.errors", errorClass).ptr(), message.c_str());
    throw nb::python_error();
}

/// Raises a ValueError. Needs no lock.
[[noreturn]] inline void raiseValue(const std::string& message) {
    throw nb::value_error(message.c_str());
}

/// Raises a ValueError for a box that an image can't have. Kernels may double coordinates and add a reach to them.
void requirePlace(const Vellum::Image::Box& box);

/// Does `work` with the interpreter's lock released. A Ctrl-C that comes meanwhile is raised when it has finished.
template <class Work>
auto unlocked(Work&& work) {
    const auto finish = [] {
        if (PyErr_CheckSignals() != 0) throw nb::python_error();
    };
    const auto released = [&] {
        const nb::gil_scoped_release release;
        return work();
    };
    if constexpr (std::is_void_v<decltype(work())>) {
        released();
        finish();
    } else {
        auto result = released();
        finish();
        return result;
    }
}

}  // namespace ViewTint::Python
