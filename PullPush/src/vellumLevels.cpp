#include "vellumLevels.h"

#include <cmath>

#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family pullPush;
}

namespace Vellum::PullPush {

namespace {

using Vellum::Compute::ProgramSource;
using Vellum::Compute::runKernel;
using Vellum::Image::Box;
using Vellum::Image::Image;

const ProgramSource pullSource(Vellum::Kernels::pullPush, "pullKernel");
const ProgramSource pullPictureSource(Vellum::Kernels::pullPush, "pullPictureKernel");
const ProgramSource pushPictureSource(Vellum::Kernels::pullPush, "pushPictureKernel");
const ProgramSource pushSource(Vellum::Kernels::pullPush, "pushKernel");

Box scaled(const Box& box, float scale) {
    const auto coordinate = [scale](int value) {
        return static_cast<int>(std::floor(static_cast<float>(value) * scale));
    };
    return {coordinate(box.x0), coordinate(box.y0), coordinate(box.x1), coordinate(box.y1)};
}

}  // namespace

std::vector<Box> levelBoxes(const Box& finest, float scale) {
    std::vector<Box> boxes;
    for (Box next = finest; !next.empty() && (boxes.empty() || next != boxes.back()); next = scaled(next, scale))
        boxes.push_back(next);
    return boxes;
}

void pull(const Image& fineValues, const Image& fineWeights, Image& coarseValues, Image& coarseWeights, int flags) {
    runKernel(pullSource, {&fineValues, &fineWeights, &coarseValues, &coarseWeights}, flags, {});
}

void push(const Image& coarseValues, const Image& coarseWeights, Image& values, Image& weights, int flags) {
    runKernel(pushSource, {&coarseValues, &coarseWeights, &values, &weights}, flags, {});
}

void pullPicture(const Image& picture, const Image& weights, Image& coarseValues, Image& coarseWeights, int flags) {
    runKernel(pullPictureSource, {&picture, &weights, &coarseValues, &coarseWeights}, flags, {});
}

void pushPicture(const Image& coarseValues, const Image& coarseWeights, const Image& picture, const Image& weights,
                 Image& result, int flags) {
    runKernel(pushPictureSource, {&coarseValues, &coarseWeights, &picture, &weights, &result}, flags, {});
}

void registerKernels() {
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::pullPush});
}

}  // namespace Vellum::PullPush
