#pragma once

namespace Vellum {

/// Enters the kernels of all libraries into the catalogue; at a second call there is nothing left to do.
void registerKernelLibraries();

}  // namespace Vellum
