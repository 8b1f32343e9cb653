#include <algorithm>

#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family pointwise;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::JIT::IterationController;
using Vellum::Kernels::pointwise;

const ProgramSource copySource(pointwise, "copyKernel");
const ProgramSource copyChannelSource(pointwise, "copyChannelKernel");
const ProgramSource copyChannelRangeSource(pointwise, "copyChannelRangeKernel");
const ProgramSource clearSource(pointwise, "clearKernel");
const ProgramSource fillConstantSource(pointwise, "fillConstantKernel");
const ProgramSource invertSource(pointwise, "invertKernel");
const ProgramSource maxSource(pointwise, "maxKernel");
const ProgramSource thresholdSource(pointwise, "thresholdKernel");
const ProgramSource maskMixSource(pointwise, "maskMixKernel");
const ProgramSource weightedComponentSumSource(pointwise, "weightedComponentSumKernel");

constexpr int onePixel = 1;

/// The output moved so that the corner of `box` in the source falls on the target, and the pixels that both have.
struct PastedRegion {
    Image output;
    Box box;
};

PastedRegion pastedRegion(const Image& source, const Box& box, const Image& output, int targetX, int targetY) {
    PastedRegion region;
    region.output = output.translate({box.x0 - targetX, box.y0 - targetY});
    region.box = intersect(intersect(box, source.box()), region.output.box());
    return region;
}

/// The leading components of an image, as an image that shares its memory.
Image withComponents(const Image& image, std::uint32_t components) {
    auto tile = image.tile();
    tile.layout.components = components;
    return Image(tile);
}

}  // namespace

void copy(const Image& source, Image& output) {
    Compute::deviceOf(source);  // refuses empty images
    Compute::deviceOf(output);
    const auto both = std::min(source.components(), output.components());
    const Image from = withComponents(source, both);
    const Image to = withComponents(output, both);
    runKernel(copySource, {&from, &to}, onePixel, {});
}

void copy(const Image& source, const Box& box, Image& output, int targetX, int targetY) {
    const auto region = pastedRegion(source, box, output, targetX, targetY);
    if (region.box.empty()) return;
    runKernel(copySource, {&source, &region.output}, onePixel, IterationController::over(region.box));
}

void copyChannel(const Image& source, Image& output, int sourceChannel, int destChannel) {
    runKernel(copyChannelSource, {&source, &output}, onePixel, {}, Compute::Scalar{"sourceChannel", sourceChannel},
              Compute::Scalar{"destChannel", destChannel});
}

void copyChannel(const Image& source, const Box& box, Image& output, int targetX, int targetY, int sourceChannel,
                 int destChannel) {
    const auto region = pastedRegion(source, box, output, targetX, targetY);
    if (region.box.empty()) return;
    runKernel(copyChannelSource, {&source, &region.output}, onePixel, IterationController::over(region.box),
              Compute::Scalar{"sourceChannel", sourceChannel}, Compute::Scalar{"destChannel", destChannel});
}

void copyChannelRange(const Image& source, Image& output, int firstChannel, int lastChannel) {
    runKernel(copyChannelRangeSource, {&source, &output}, onePixel, {}, Compute::Scalar{"firstChannel", firstChannel},
              Compute::Scalar{"lastChannel", lastChannel});
}

void clear(Image& image) {
    runKernel(clearSource, {&image}, onePixel, {});
}

void fillConstant(Image& image, float value) {
    fillConstant(image, Float4{value, value, value, value});
}

void fillConstant(Image& image, const Float4& value) {
    runKernel(fillConstantSource, {&image}, onePixel, {}, Compute::Scalar{"value", value});
}

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

void maskMix(const Image& a, const Image& b, const Image& mask, Image& output, int flags) {
    runKernel(maskMixSource, {&a, &b, &mask, &output}, flags, {});
}

Image weightedComponentSum(const Image& source, const Float4& weights, bool normalise) {
    Image sum({source.box(), 1, source.info().type}, Compute::deviceOf(source));
    runKernel(weightedComponentSumSource, {&source, &sum}, onePixel, {}, Compute::Scalar{"weights", weights},
              Compute::Scalar{"normalise", normalise});
    return sum;
}

}  // namespace Vellum::Common
