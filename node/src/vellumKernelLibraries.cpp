#include "node/KernelLibraries.h"

#include "BilateralFilter/BilateralFilter.h"
#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "FFT/FourierTransform.h"
#include "GuidedFilter/GuidedFilter.h"
#include "PictureBuilder/PictureBuilder.h"
#include "PullPush/PullPush.h"
#include "ToneAligner/ToneAligner.h"

namespace Vellum {

void registerKernelLibraries() {
    BilateralFilter::registerKernels();
    Common::registerKernels();
    Convolution::registerKernels();
    FFT::registerKernels();
    GuidedFilter::registerKernels();
    PictureBuilder::registerKernels();
    PullPush::registerKernels();
    Tone::registerKernels();
}

}  // namespace Vellum
