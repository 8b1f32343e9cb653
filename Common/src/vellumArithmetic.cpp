#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family arithmetic;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::JIT::IterationController;
using Vellum::Kernels::arithmetic;

const ProgramSource invertSource(arithmetic, "invertKernel");
const ProgramSource maxSource(arithmetic, "maxKernel");
const ProgramSource thresholdSource(arithmetic, "thresholdKernel");
const ProgramSource multiplyConstantSource(arithmetic, "multiplyConstantKernel");
const ProgramSource addConstantSource(arithmetic, "addConstantKernel");
const ProgramSource addSource(arithmetic, "addKernel");
const ProgramSource subtractSource(arithmetic, "subtractKernel");
const ProgramSource multiplySource(arithmetic, "multiplyKernel");
const ProgramSource divideSource(arithmetic, "divideKernel");
const ProgramSource complexMultiplySource(arithmetic, "complexMultiplyKernel");
const ProgramSource clampSource(arithmetic, "clampKernel");
const ProgramSource softLimitSource(arithmetic, "softLimitKernel");
const ProgramSource weightedComponentSumSource(arithmetic, "weightedComponentSumKernel");

constexpr int onePixel = 1;

}  // namespace

void invert(const Image& source, Image& output, int flags) {
    runKernel(invertSource, {&source, &output}, flags, {});
}

void max(const Image& a, const Image& b, Image& output, int flags) {
    runKernel(maxSource, {&a, &b, &output}, flags, {});
}

void max(const Image& a, const Image& b, Image& output, const Box& region, int flags) {
    runKernel(maxSource, {&a, &b, &output}, flags, IterationController::over(region));
}

void threshold(const Image& source, Image& output, float threshold, bool binarise, int flags) {
    runKernel(thresholdSource, {&source, &output}, flags, {}, Compute::Scalar{"threshold", threshold},
              Compute::Scalar{"binarise", binarise});
}

void multiplyConstant(const Image& source, Image& output, const Float4& value) {
    runKernel(multiplyConstantSource, {&source, &output}, onePixel, {}, Compute::Scalar{"value", value});
}

void multiplyConstant(const Image& source, Image& output, float value) {
    multiplyConstant(source, output, Float4{value, value, value, value});
}

void addConstant(const Image& source, Image& output, const Float4& value) {
    runKernel(addConstantSource, {&source, &output}, onePixel, {}, Compute::Scalar{"value", value});
}

void addConstant(const Image& source, Image& output, float value) {
    addConstant(source, output, Float4{value, value, value, value});
}

void add(const Image& a, const Image& b, Image& output) {
    runKernel(addSource, {&a, &b, &output}, onePixel, {});
}

void subtract(const Image& a, const Image& b, Image& output) {
    runKernel(subtractSource, {&a, &b, &output}, onePixel, {});
}

void multiply(const Image& a, const Image& b, Image& output) {
    runKernel(multiplySource, {&a, &b, &output}, onePixel, {});
}

void divide(const Image& a, const Image& b, Image& output) {
    runKernel(divideSource, {&a, &b, &output}, onePixel, {});
}

void complexMultiply(const Image& a, const Image& b, Image& output) {
    runKernel(complexMultiplySource, {&a, &b, &output}, onePixel, {});
}

void clamp(const Image& source, Image& output, float lower, float upper) {
    runKernel(clampSource, {&source, &output}, onePixel, {}, Compute::Scalar{"lower", lower},
              Compute::Scalar{"upper", upper});
}

void softLimit(const Image& source, Image& output, float limit, float softness) {
    runKernel(softLimitSource, {&source, &output}, onePixel, {}, Compute::Scalar{"limit", limit},
              Compute::Scalar{"softness", softness});
}

Image weightedComponentSum(const Image& source, const Float4& weights, bool normalise) {
    Image sum({source.box(), 1, source.info().type}, Compute::deviceOf(source));
    runKernel(weightedComponentSumSource, {&source, &sum}, onePixel, {}, Compute::Scalar{"weights", weights},
              Compute::Scalar{"normalise", normalise});
    return sum;
}

}  // namespace Vellum::Common
