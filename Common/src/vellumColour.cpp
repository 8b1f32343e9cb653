#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family colour;
extern const Family transferCurves;
}  // namespace Vellum::Kernels

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Kernels::colour;
using Vellum::Kernels::transferCurves;

const ProgramSource colourMatrixSource(colour, "colourMatrixKernel");
const ProgramSource xyzToLabSource(colour, "xyzToLabKernel");
const ProgramSource labToXyzSource(colour, "labToXyzKernel");
const ProgramSource rgbToLabSource(colour, "rgbToLabKernel");
const ProgramSource labToRgbSource(colour, "labToRgbKernel");
const ProgramSource srgbToLinearSource(transferCurves, "srgbToLinearKernel");
const ProgramSource linearToSrgbSource(transferCurves, "linearToSrgbKernel");

constexpr int onePixel = 1;

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

void rgbToXyz(const Image& source, Image& output, int flags) {
    colourMatrix(source, output, rgbToXyzMatrix, flags);
}

void xyzToRgb(const Image& source, Image& output, int flags) {
    colourMatrix(source, output, xyzToRgbMatrix, flags);
}

void rgbToLab(const Image& source, Image& output, int flags) {
    runKernel(rgbToLabSource, {&source, &output}, flags, {}, Compute::Scalar{"matrix", rgbToXyzMatrix});
}

void labToRgb(const Image& source, Image& output, int flags) {
    runKernel(labToRgbSource, {&source, &output}, flags, {}, Compute::Scalar{"matrix", xyzToRgbMatrix});
}

void srgbToLinear(const Image& source, Image& output) {
    runKernel(srgbToLinearSource, {&source, &output}, onePixel, {});
}

void linearToSrgb(const Image& source, Image& output) {
    runKernel(linearToSrgbSource, {&source, &output}, onePixel, {});
}

}  // namespace Vellum::Common
