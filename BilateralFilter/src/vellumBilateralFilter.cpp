#include "BilateralFilter/BilateralFilter.h"

#include <algorithm>
#include <optional>
#include <span>
#include <vector>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "compute/HostDevice.h"
#include "compute/RunKernel.h"
#include "vellumDistanceField.h"
#include "vellumDonorLists.h"

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
const ProgramSource fillExtentSource(Kernels::bilateral, "fillExtentKernel");
const ProgramSource donorFillSource(Kernels::bilateral, "donorFillKernel");

constexpr int packedCode = 19;
/// Pixels of a mask up to this give to others.
constexpr float giving = 1e-4f;
constexpr float weightFloor = 1e-5f;
/// A launch over a whole picture could hold a graphics device for too long.
constexpr int blockSide = 256;
/// Blocks with a pixel farther from those that give take the form with lists of these.
constexpr float farthestByWindow = 64;
/// Donors that a launch of that form visits at most, if several rows make it up: a fraction of a second on one core.
constexpr double visitsAtOnce = 2e9;

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

/// What fillExtentKernel tells.
struct Extent {
    float donors, farthest;
};
Extent extentOf(const Image& distance, const Image& mask, const Box& box) {
    Extent extent{};
    Compute::runKernelThen(
        fillExtentSource, {&distance, &mask}, packedCode, JIT::IterationController::over(box), [&](auto& context) {
            extent = {context.template get<float>({"donors"}), context.template get<float>({"farthest"})};
        });
    return extent;
}

/// A fill kernel with its images and scalars, run piece by piece.
class FillLaunch {
public:
    FillLaunch(const ProgramSource& source, std::span<const Image* const> images, const std::array<float, 3>& sigma,
               int radiusBoost)
        : device_(Compute::deviceOf(*images.back())),
          context_(JIT::Kernel::Make(device_.context(), source, images, {}, static_cast<CodeGen::Flags>(packedCode))) {
        context_.setImageParamBindings(images);
        context_.set({"colourSigma"}, sigma);
        context_.set({"radiusBoost"}, radiusBoost);
        context_.set({"weightFloor"}, weightFloor);
    }
    void run(const Box& box) { context_.iterate(device_, JIT::IterationController::over(box)); }

private:
    Compute::Device& device_;
    JIT::KernelExecutionContext context_;
};

/// The lists of donors on the manager's current device.
struct ManagedLists {
    ManagedLists(Utils::BufferManagement::BufferManager& manager, const Image& distance, const Image& guide,
                 const Image& values)
        : ManagedLists(manager, listDonors(onHost(distance), onHost(guide), onHost(values))) {}
    BufferManagedImage firstCells, cells, donors;

private:
    ManagedLists(Utils::BufferManagement::BufferManager& manager, const DonorLists& lists)
        : firstCells(manager, lists.firstCells), cells(manager, lists.cells), donors(manager, lists.donors) {}
    static Image onHost(const Image& image) { return image.distributeTo(Compute::Host::hostDevice()); }
};

std::vector<Box> blocksOf(const Box& box) {
    std::vector<Box> blocks;
    for (int x = box.x0; x < box.x1; x += blockSide)
        for (int y = box.y0; y < box.y1; y += blockSide)
            blocks.push_back(intersect({x, y, x + blockSide, y + blockSide}, box));
    return blocks;
}

/// How many rows of a block a launch takes, where windows reach `radius` pixels.
int rowsAtOnce(const Image& distance, const Image& mask, const Box& block, float radius) {
    const int reach = static_cast<int>(radius) + 1;
    const Box reached{block.x0 - reach, block.y0 - reach, block.x1 + reach, block.y1 + reach};
    const double visits = extentOf(distance, mask, intersect(reached, distance.box())).donors;
    return static_cast<int>(std::clamp(visitsAtOnce / (visits * block.width() + 1), 1.0, double{blockSide}));
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
    Common::threshold(covered.image(), seeds.image(), giving, true);
    Common::invert(seeds.image(), seeds.image());
    growDistance(seeds.image(), distance.image());

    const Extent whole = extentOf(distance.image(), covered.image(), output.box());
    if (whole.donors == 0) {
        output.copyFrom(values);
        return;
    }
    std::optional<ManagedLists> lists;
    if (whole.farthest > farthestByWindow)
        lists.emplace(bufferManager_, distance.image(), colours.image(), source.image());
    std::optional<BufferManagedImage> moved;  // the manager may have gone over to another device
    if (output.device() != bufferManager_.currentDevice()) moved.emplace(bufferManager_, output.info());
    Image& filled = moved ? moved->image() : output;

    FillLaunch byWindow(
        bilateralFillSource,
        std::array<const Image*, 5>{&distance.image(), &covered.image(), &colours.image(), &source.image(), &filled},
        colourSigma_, radiusBoost_);
    std::optional<FillLaunch> byLists;
    if (lists)
        byLists.emplace(donorFillSource,
                        std::array<const Image*, 8>{&distance.image(), &covered.image(), &colours.image(),
                                                    &source.image(), &lists->firstCells.image(), &lists->cells.image(),
                                                    &lists->donors.image(), &filled},
                        colourSigma_, radiusBoost_);
    const std::vector<Box> blocks = blocksOf(filled.box());
    double done = 0;
    for (const Box& block : blocks) {
        const float farthest = lists ? extentOf(distance.image(), covered.image(), block).farthest : whole.farthest;
        if (farthest <= farthestByWindow) {
            report(done / static_cast<double>(filled.box().pixels()));
            byWindow.run(block);
        } else {
            const int rows =
                rowsAtOnce(distance.image(), covered.image(), block, farthest + static_cast<float>(radiusBoost_));
            for (int y = block.y0; y < block.y1; y += rows) {
                report((done + static_cast<double>(block.width()) * (y - block.y0)) /
                       static_cast<double>(filled.box().pixels()));
                byLists->run(intersect({block.x0, y, block.x1, y + rows}, block));
            }
        }
        done += static_cast<double>(block.pixels());
    }
    if (moved) output.copyFrom(filled);
}

void BilateralFilter::report(double done) const {
    if (progress_) progress_(static_cast<float>(done));
}

}  // namespace Vellum::BilateralFilter
