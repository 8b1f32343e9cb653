#include "BilateralFilter/BilateralFilter.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"
#include "vellumDistanceField.h"

namespace Vellum::Kernels {
extern const Family bilateral;
}

namespace Vellum::BilateralFilter {

namespace {

using Compute::ProgramSource;
using Compute::Scalar;
using Utils::BufferManagement::BufferManagedImage;
using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::Info;

const ProgramSource distanceGrowthSource(Kernels::bilateral, "distanceGrowthKernel");
const ProgramSource bilateralFillSource(Kernels::bilateral, "bilateralFillKernel");

constexpr int packedCode = 19;
/// Pixels of a mask up to this give to others.
constexpr float giving = 1e-4f;
constexpr float weightFloor = 1e-5f;
/// A launch over a whole picture could hold a graphics device for too long.
constexpr int blockSide = 256;

struct Growth {
    float count = 0;
    Box region;
};

/// One pass over `region`. Returns the next pass's region.
Growth growOnce(JIT::KernelExecutionContext& context, Compute::Device& device, const Box& region, const Box& bounds) {
    context.iterate(device, JIT::IterationController::over(region));
    const auto at = [&](const char* name) { return static_cast<int>(context.get<float>({name})); };
    Growth growth{context.get<float>({"count"}), {}};
    if (growth.count > 0)
        growth.region = intersect({at("minX") - 1, at("minY") - 1, at("maxX") + 2, at("maxY") + 2}, bounds);
    return growth;
}

}  // namespace

BilateralFilter::BilateralFilter(BufferManager& bufferManager, const std::array<float, 3>& colourSigma, int radiusBoost,
                                 int callerField)
    : bufferManager_(bufferManager), colourSigma_(colourSigma), radiusBoost_(radiusBoost), callerField_(callerField) {}

void BilateralFilter::growDistance(Image& seeds, Image& distance) {
    if (seeds.box() != distance.box() || seeds.components() != 1 || distance.components() != 1)
        Compute::fail("Distances grow from seeds of one component into an image of one component and the same box.");
    if (seeds.box().empty()) return;
    if (fusedPasses_ && seeds.device()->hostAccessible() && distance.device()->hostAccessible())
        growDistanceOnHost(seeds, distance);
    else
        growDistanceByPasses(seeds, distance);
}

void BilateralFilter::growDistanceByPasses(Image& seeds, Image& distance) {
    const Box bounds = distance.box();
    const BufferManagedImage otherMask(bufferManager_, distance.info());
    const BufferManagedImage otherDistance(bufferManager_, distance.info());
    Image* const images[2][2] = {{&distance, &seeds}, {&otherDistance.image(), &otherMask.image()}};
    Common::clear(distance);
    Common::clear(otherMask.image());
    Common::fillConstant(otherDistance.image(), unreachedDistance);
    Common::maskMix(distance, otherDistance.image(), seeds, otherDistance.image());

    Compute::Device& device = Compute::deviceOf(distance);
    const Image* const forth[] = {images[0][0], images[0][1], images[1][0], images[1][1]};
    const Image* const back[] = {images[1][0], images[1][1], images[0][0], images[0][1]};
    JIT::KernelExecutionContext context(
        JIT::Kernel::Make(device.context(), distanceGrowthSource, forth, {}, static_cast<CodeGen::Flags>(packedCode)));
    int passes = 0;
    Growth growth{1, bounds};
    while (growth.count > 0) {
        context.setImageParamBindings(passes % 2 == 0 ? forth : back);
        growth = growOnce(context, device, growth.region, bounds);
        ++passes;
    }
    if (passes % 2 == 1) Common::copy(otherDistance.image(), distance);
}

void BilateralFilter::apply(const Image& values, const Image& guide, const Image& mask, Image& output) {
    const bool fits = values.components() == 3 && guide.components() == 3 && output.components() == 3 &&
                      mask.components() == 1 && values.box() == output.box() && guide.box() == output.box() &&
                      mask.box() == output.box();
    if (!fits)
        Compute::fail(
            "The bilateral fill needs values, guide and output of 3 components and a mask of one, all over one box.");
    if (output.box().empty()) return;
    const BufferManagedImage source(bufferManager_, values);
    const BufferManagedImage colours(bufferManager_, guide);
    const BufferManagedImage covered(bufferManager_, mask);
    const BufferManagedImage seeds(bufferManager_, mask.info());
    const BufferManagedImage distance(bufferManager_, mask.info());
    std::optional<BufferManagedImage> moved;  // the manager may have gone over to another device
    if (output.device() != bufferManager_.currentDevice()) moved.emplace(bufferManager_, output.info());
    Image& filled = moved ? moved->image() : output;

    Common::threshold(covered.image(), seeds.image(), giving, true);
    Common::invert(seeds.image(), seeds.image());
    growDistance(seeds.image(), distance.image());

    Compute::Device& device = Compute::deviceOf(filled);
    const Image* const images[] = {&distance.image(), &covered.image(), &colours.image(), &source.image(), &filled};
    JIT::KernelExecutionContext context(
        JIT::Kernel::Make(device.context(), bilateralFillSource, images, {}, static_cast<CodeGen::Flags>(packedCode)));
    context.setImageParamBindings(images);
    context.set({"colourSigma"}, colourSigma_);
    context.set({"radiusBoost"}, radiusBoost_);
    context.set({"weightFloor"}, weightFloor);
    const Box& box = filled.box();
    for (int x = box.x0; x < box.x1; x += blockSide)
        for (int y = box.y0; y < box.y1; y += blockSide)
            context.iterate(device,
                            JIT::IterationController::over(intersect({x, y, x + blockSide, y + blockSide}, box)));
    if (moved) output.copyFrom(filled);
}

}  // namespace Vellum::BilateralFilter
