#include "PictureBuilder/WarpFilter.h"

#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family warp;
}

namespace Vellum::PictureBuilder {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;

const ProgramSource codedPictureSource(Kernels::warp, "codedPictureKernel");
const ProgramSource warpSource(Kernels::warp, "warpKernel");
const ProgramSource warpWrapSource(Kernels::warp, "warpWrapKernel");
const ProgramSource warpWhereSource(Kernels::warp, "warpWhereKernel");
const ProgramSource warpWhereWrapSource(Kernels::warp, "warpWhereWrapKernel");

bool wraps(const std::array<int, 2>& size) {
    return size[0] >= 1 && size[1] >= 1;
}

}  // namespace

void WarpFilter::code(const Image& picture, Image& coded) const {
    runKernel(codedPictureSource, {&picture, &coded}, kernelFlags, {}, Scalar{"encode", sRGBDomain});
}

void WarpFilter::warp(const Image& coded, const Image& displacement, Image& output) const {
    if (wraps(wrapSize))
        runKernel(warpWrapSource, {&coded, &displacement, &output}, kernelFlags, {}, Scalar{"lanczos", lanczos},
                  Scalar{"wrapSize", wrapSize});
    else
        runKernel(warpSource, {&coded, &displacement, &output}, kernelFlags, {}, Scalar{"lanczos", lanczos});
    if (sRGBDomain) Common::srgbToLinear(output, output);
}

void WarpFilter::warpWhere(const Image& coded, const Image& displacement, const Image& where, Image& output) const {
    if (wraps(wrapSize))
        runKernel(warpWhereWrapSource, {&coded, &displacement, &where, &output}, kernelFlags, {},
                  Scalar{"lanczos", lanczos}, Scalar{"decode", sRGBDomain}, Scalar{"wrapSize", wrapSize});
    else
        runKernel(warpWhereSource, {&coded, &displacement, &where, &output}, kernelFlags, {},
                  Scalar{"lanczos", lanczos}, Scalar{"decode", sRGBDomain});
}

}  // namespace Vellum::PictureBuilder
