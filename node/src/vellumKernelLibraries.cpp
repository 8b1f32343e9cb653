#include "node/KernelLibraries.h"

#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "PictureBuilder/PictureBuilder.h"
#include "PullPush/PullPush.h"
#include "ToneAligner/ToneAligner.h"

namespace Vellum {

void registerKernelLibraries() {
    Common::registerKernels();
    Convolution::registerKernels();
    PictureBuilder::registerKernels();
    PullPush::registerKernels();
    Tone::registerKernels();
}

}  // namespace Vellum
