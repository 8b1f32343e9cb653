#include <algorithm>
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

/// The kernel limits the radius to 63; this keeps a wild sigma within the integers.
constexpr float mostRadius = 1000;

void boxSum(const Image& source, Image& output, int radius, bool horizontal, const IterationController& range) {
    runKernel(boxSumSource, {&source, &output}, packed, range, Scalar{"horizontal", horizontal},
              Scalar{"radius", radius});
}

/// A running sum can't take a line shorter than its window.
bool directSum(int length, int radius) {
    return radius < smallestRunningRadius || radius > (length - 1) / 2;
}

bool directSums(const Box& box, int radius) {
    return directSum(box.width(), radius) && directSum(box.height(), radius);
}

/// The mean along one axis.
void boxFilterAxis(const Image& source, Image& output, int radius, bool horizontal) {
    const Box& box = output.box();
    const std::array lineLengths{box.width(), box.height()};
    if (directSum(horizontal ? box.width() : box.height(), radius))
        return boxSum(source, output, radius, horizontal, {});
    const Box lineStarts =
        horizontal ? Box{box.x0, box.y0, box.x0 + 1, box.y1} : Box{box.x0, box.y0, box.x1, box.y0 + 1};
    runKernel(runningBoxSumSource, {&source, &output}, packed, IterationController::over(lineStarts),
              Scalar{"horizontal", horizontal}, Scalar{"radius", radius}, Scalar{"lineLengths", lineLengths});
}

/// Both passes band by band, so that the second finds what the first wrote in the cache.
void boxFilterInBands(const Image& source, Image& temporary, Image& output, int radius) {
    constexpr std::int64_t cached = 1 << 17;  // values of a band: half a megabyte
    const Box& box = output.box();
    const auto values = std::int64_t{box.width()} * output.components();
    const int rows = static_cast<int>(std::max<std::int64_t>(16, cached / std::max<std::int64_t>(values, 1)));
    int summed = box.y0;  // rows below this one have their sums along x
    for (int y = box.y0; y < box.y1; y += rows) {
        const int top = std::min(y + rows, box.y1);
        const int needed = std::min(top + radius, box.y1);
        boxSum(source, temporary, radius, true, IterationController::over({box.x0, summed, box.x1, needed}));
        summed = needed;
        boxSum(temporary, output, radius, false, IterationController::over({box.x0, y, box.x1, top}));
    }
}

}  // namespace

void boxFilter(const Image& source, Image& temporary, Image& output, int radius) {
    if (directSums(output.box(), radius) && output.device()->hostAccessible() && output.data() != source.data()) {
        boxFilterInBands(source, temporary, output, radius);
        return;
    }
    boxFilterAxis(source, temporary, radius, true);
    boxFilterAxis(temporary, output, radius, false);
}

void gaussianBlur(const Image& source, Image& temporary, Image& output, float sigma) {
    const float positive = std::abs(sigma);
    const int radius = static_cast<int>(std::fmin(std::floor(3 * positive + 0.5f), mostRadius));
    if (radius == 0) {  // the one tap is 1; its exponent is 0 / 0 where sigma squared is 0 in single precision
        copy(source, output);
        return;
    }
    const auto blur = [&](const Image& from, Image& to, bool horizontal) {
        runKernel(symmetricConvolutionSource, {&from, &to}, onePixel, {}, Scalar{"sigma", positive},
                  Scalar{"radius", radius}, Scalar{"horizontal", horizontal});
    };
    blur(source, temporary, true);
    blur(temporary, output, false);
}

}  // namespace Vellum::Common
