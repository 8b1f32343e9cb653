#include "node/KernelLibraries.h"

#include "Common/Common.h"
#include "PullPush/PullPush.h"
#include "ToneAligner/ToneAligner.h"

namespace Vellum {

void registerKernelLibraries() {
    Common::registerKernels();
    PullPush::registerKernels();
    Tone::registerKernels();
}

}  // namespace Vellum
