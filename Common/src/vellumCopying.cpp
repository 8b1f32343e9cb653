#include <algorithm>

#include "Common/Common.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family copying;
}

namespace Vellum::Common {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::JIT::IterationController;
using Vellum::Kernels::copying;

const ProgramSource copySource(copying, "copyKernel");
const ProgramSource copyClampedSource(copying, "copyClampedKernel");
const ProgramSource copyChannelSource(copying, "copyChannelKernel");
const ProgramSource copyChannelRangeSource(copying, "copyChannelRangeKernel");
const ProgramSource clearSource(copying, "clearKernel");
const ProgramSource fillConstantSource(copying, "fillConstantKernel");
const ProgramSource fillWhereMaskSource(copying, "fillWhereMaskKernel");

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

void copyClamped(const Image& source, Image& output) {
    runKernel(copyClampedSource, {&source, &output}, onePixel, {});
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

void fillWhereMask(Image& image, const Image& mask, const Float4& value, bool invert) {
    runKernel(fillWhereMaskSource, {&image, &mask}, onePixel, {}, Compute::Scalar{"value", value},
              Compute::Scalar{"invert", invert});
}

}  // namespace Vellum::Common
