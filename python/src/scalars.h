// Scalars of kernels, whose types are known at run time only, to and from Python.
#pragma once

#include <string>

#include <nanobind/nanobind.h>

#include "compute/Kernel.h"

namespace ViewTint::Python {

/// The value at `bytes` as a number, or a list of them for a vector.
nanobind::object scalarValue(const Vellum::CodeGen::MarshalledParam& param, const void* bytes);

/// Sets a scalar of a kernel. Whole numbers will do for floats, but nothing else is converted.
/// Raises viewtint.errors.UnknownNameError and WrongTypeError with what the catalogue says.
void setScalar(Vellum::JIT::KernelExecutionContext& context, const std::string& name, nanobind::handle value);

}  // namespace ViewTint::Python
