#include "node/KernelLibraries.h"

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"

namespace Vellum {

void registerKernelLibraries() {
    Common::registerKernels();
    Tone::registerKernels();
}

}  // namespace Vellum
