#include <cmath>

#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family smoothing;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Compute::Scalar;
using Vellum::JIT::IterationController;
using Vellum::Kernels::smoothing;

const ProgramSource boxSumSource(smoothing, "boxSumKernel");
const ProgramSource runningBoxSumSource(smoothing, "runningBoxSumKernel");
const ProgramSource symmetricConvolutionSource(smoothing, "symmetricConvolutionKernel");

constexpr int onePixel = 1;
constexpr int packed = 19;
/// From here on a running sum takes less time than the window's own.
constexpr int smallestRunningRadius = 16;

/// The mean along one axis. A running sum can't take a line shorter than its window.
void boxFilterAxis(const Image& source, Image& output, int radius, bool horizontal) {
    const Box& box = output.box();
    const std::array lineLengths{box.width(), box.height()};
    const int length = horizontal ? box.width() : box.height();
    if (radius < smallestRunningRadius || radius > (length - 1) / 2) {
        runKernel(boxSumSource, {&source, &output}, packed, {}, Scalar{"horizontal", horizontal},
                  Scalar{"radius", radius});
        return;
    }
    const Box lineStarts =
        horizontal ? Box{box.x0, box.y0, box.x0 + 1, box.y1} : Box{box.x0, box.y0, box.x1, box.y0 + 1};
    runKernel(runningBoxSumSource, {&source, &output}, packed, IterationController::over(lineStarts),
              Scalar{"horizontal", horizontal}, Scalar{"radius", radius}, Scalar{"lineLengths", lineLengths});
}

}  // namespace

void boxFilter(const Image& source, Image& temporary, Image& output, int radius) {
    boxFilterAxis(source, temporary, radius, true);
    boxFilterAxis(temporary, output, radius, false);
}

void gaussianBlur(const Image& source, Image& temporary, Image& output, float sigma) {
    const float positive = std::abs(sigma);
    const int radius = static_cast<int>(std::floor(3 * positive + 0.5f));
    const auto blur = [&](const Image& from, Image& to, bool horizontal) {
        runKernel(symmetricConvolutionSource, {&from, &to}, onePixel, {}, Scalar{"sigma", positive},
                  Scalar{"radius", radius}, Scalar{"horizontal", horizontal});
    };
    blur(source, temporary, true);
    blur(temporary, output, false);
}

}  // namespace Vellum::Common
