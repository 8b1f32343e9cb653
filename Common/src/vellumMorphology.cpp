#include <cmath>

#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family morphology;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Compute::Scalar;
using Vellum::Kernels::morphology;

const ProgramSource dilateSource(morphology, "dilateKernel");
const ProgramSource erodeSource(morphology, "erodeKernel");
const ProgramSource maskEdgeSource(morphology, "maskEdgeKernel");

constexpr int onePixel = 1;

void grow(const ProgramSource& kernel, const Image& source, Image& output, int radius, bool right, bool left, bool up,
          bool down) {
    runKernel(kernel, {&source, &output}, onePixel, {}, Scalar{"radius", radius}, Scalar{"right", right},
              Scalar{"left", left}, Scalar{"up", up}, Scalar{"down", down});
}

}  // namespace

void dilate(const Image& source, Image& output, int radius, bool right, bool left, bool up, bool down) {
    grow(dilateSource, source, output, radius, right, left, up, down);
}

void erode(const Image& source, Image& output, int radius, bool right, bool left, bool up, bool down) {
    grow(erodeSource, source, output, radius, right, left, up, down);
}

void maskEdges(const Image& source, Image& output, Sides sides) {
    if (sides < Sides::left || sides > Sides::upAndDown) return;
    const bool left = sides == Sides::left || sides == Sides::leftAndRight;
    const bool right = sides == Sides::right || sides == Sides::leftAndRight;
    const bool down = sides == Sides::down || sides == Sides::upAndDown;
    const bool up = sides == Sides::up || sides == Sides::upAndDown;
    runKernel(maskEdgeSource, {&source, &output}, onePixel, {}, Scalar{"left", left}, Scalar{"right", right},
              Scalar{"down", down}, Scalar{"up", up});
}

namespace {

/// A blur of nothing is a copy.
void blurOrCopy(const Image& source, Image& temporary, Image& output, float sigma) {
    if (sigma != 0)
        gaussianBlur(source, temporary, output, sigma);
    else if (&source != &output)
        copy(source, output);
}

}  // namespace

void growMask(const Image& mask, Image& work1, Image& work2, Image& output, float amount, float blur) {
    const ProgramSource& kernel = amount >= 0 ? dilateSource : erodeSource;
    const int whole = static_cast<int>(std::abs(amount));
    const float fraction = std::abs(amount) - static_cast<float>(whole);
    grow(kernel, mask, work1, whole, true, true, true, true);
    blurOrCopy(work1, work2, output, blur);
    if (fraction == 0) return;  // the other growth would have no weight
    grow(kernel, mask, work2, whole + 1, true, true, true, true);
    blurOrCopy(work2, work1, work2, blur);
    crossFade(work2, output, output, fraction);
}

}  // namespace Vellum::Common
