#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family colour;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Kernels::colour;

const ProgramSource colourMatrixSource(colour, "colourMatrixKernel");
const ProgramSource xyzToLabSource(colour, "xyzToLabKernel");
const ProgramSource labToXyzSource(colour, "labToXyzKernel");

}  // namespace

void colourMatrix(const Image& source, Image& output, const std::array<float, 9>& matrix, int flags) {
    runKernel(colourMatrixSource, {&source, &output}, flags, {}, Compute::Scalar{"matrix", matrix});
}

void xyzToLab(const Image& source, Image& output, int flags) {
    runKernel(xyzToLabSource, {&source, &output}, flags, {});
}

void labToXyz(const Image& source, Image& output, int flags) {
    runKernel(labToXyzSource, {&source, &output}, flags, {});
}

}  // namespace Vellum::Common
