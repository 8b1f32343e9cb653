#include "vellumDirectConvolution.h"

#include <algorithm>

#include "Common/Common.h"
#include "Convolution/ConvolutionHelper.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family directConvolution;
}

namespace Vellum::Convolution {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;

const ProgramSource directConvolveSource(Kernels::directConvolution, "directConvolveKernel");
const ProgramSource sharedConvolveSource(Kernels::directConvolution, "sharedConvolveKernel");

constexpr int packed = 19;

/// The kernel's components spread over as many as an image has.
Image spread(const Image& kernel, std::uint32_t components) {
    Image each({kernel.box(), components}, *kernel.device());
    for (std::uint32_t c = 0; c < components; ++c)
        Common::copyChannel(kernel, each, static_cast<int>(std::min(c, kernel.components() - 1)), static_cast<int>(c));
    return each;
}

}  // namespace

void registerKernels() {
    Kernels::registerFamilies({&Kernels::directConvolution});
}

void convolveDirectly(const Image& input, const Image& kernel, Image& output) {
    if (kernel.box().empty()) {
        Common::clear(output);
    } else if (kernel.components() == 1) {
        runKernel(sharedConvolveSource, {&input, &kernel, &output}, packed, {});
    } else {
        const bool alike = kernel.components() == input.components();
        const Image cells = alike ? kernel : spread(kernel, input.components());
        runKernel(directConvolveSource, {&input, &cells, &output}, packed, {});
    }
}

}  // namespace Vellum::Convolution
