#include "PictureBuilder/PictureBuilder.h"

#include "Common/Common.h"
#include "PullPush/PullPush.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"

namespace Vellum::Kernels {
extern const Family marks;
}

namespace Vellum::PictureBuilder {

namespace {

using Compute::ProgramSource;
using Compute::runKernel;
using Compute::Scalar;
using Utils::BufferManagement::BufferManagedImage;
using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::Info;

const ProgramSource occlusionFromDisparitySource(Kernels::marks, "occlusionFromDisparityKernel");
const ProgramSource outOfFrameSource(Kernels::marks, "outOfFrameKernel");
const ProgramSource pickDisparitySource(Kernels::marks, "pickDisparityKernel");

constexpr int rimsExtended = 3;
constexpr int marksBlended = 1;
/// A jump of disparity between the neighbours of a pixel that opens a hole, in pixels.
constexpr float jump = 1;
/// By how much holes are widened: as far as the filter reaches.
constexpr float filterReach = 3;
constexpr int pullPushFlags = 19;

Info floatInfo(const Box& box, std::uint32_t components) {
    return {box, components, Vellum::Pixel::DataEnum::float32};
}

bool nothingMarked(const Image& marks) {
    return Common::sum(marks)[0] == 0;
}

}  // namespace

PictureBuilder::PictureBuilder(BufferManager& bufferManager, bool, int fillMethod, int blendMethod, bool,
                               int kernelFlags)
    : bufferManager_(bufferManager), fillMethod_(fillMethod), blendMethod_(blendMethod), kernelFlags_(kernelFlags) {}

WarpFilter PictureBuilder::filter() const {
    return {.kernelFlags = kernelFlags_, .wrapSize = wrapSize_};
}

void PictureBuilder::build(const Image& viewA, const Image& viewB, const Image& disparity, const Image& occlusion,
                           Image& result, const Image*) {
    if (fillMethod_ != rimsExtended || blendMethod_ != marksBlended || growOcclusion_ || useInputMask_)
        Compute::fail(
            "The picture builder fills holes by method 3 with blend method 1, without grown occlusion and "
            "without an input mask.");
    const Box& box = disparity.box();
    const BufferManagedImage pairs(bufferManager_, disparity);
    const BufferManagedImage occluded(bufferManager_, occlusion);
    const BufferManagedImage sampled(bufferManager_, direction_ == 0 ? viewA : viewB);
    const BufferManagedImage coded(bufferManager_, sampled.image().info(), WarpFilter::codedLayout);
    const BufferManagedImage displacement(bufferManager_, floatInfo(box, 2));
    const BufferManagedImage warped(bufferManager_, floatInfo(box, 4));
    const BufferManagedImage filled(bufferManager_, floatInfo(box, 4));
    const BufferManagedImage marks(bufferManager_, floatInfo(box, 1));
    const BufferManagedImage alpha(bufferManager_, floatInfo(box, 1));

    const int first = direction_ == 0 ? 0 : 2;
    Common::copyChannel(pairs.image(), displacement.image(), first, 0);
    Common::copyChannel(pairs.image(), displacement.image(), first + 1, 1);

    filter().code(sampled.image(), coded.image());
    filter().warp(coded.image(), displacement.image(), warped.image());
    markOcclusion(displacement.image(), marks.image());

    Common::copyChannel(warped.image(), alpha.image(), 3, 0);
    Common::fillWhereMask(alpha.image(), occluded.image(), {}, false);

    fillFromCoded(coded.image(), warped.image(), displacement.image(), marks.image(), filled.image());
    Common::copyChannel(alpha.image(), filled.image(), 0, 3);
    result.copyFrom(filled.image());
}

void PictureBuilder::warp(const Image& picture, const Image& displacement, Image& output) {
    const BufferManagedImage coded(bufferManager_, picture.info(), WarpFilter::codedLayout);
    filter().code(picture, coded.image());
    filter().warp(coded.image(), displacement, output);
}

void PictureBuilder::markOcclusion(const Image& displacement, Image& marks) {
    Common::clear(marks);
    const bool forward = direction_ == 1;
    const bool still = true;
    runKernel(occlusionFromDisparitySource, {&displacement, &marks}, kernelFlags_, {}, Scalar{"threshold", jump},
              Scalar{"forward", forward}, Scalar{"still", still});
    runKernel(outOfFrameSource, {&displacement, &marks}, kernelFlags_, {});
}

void PictureBuilder::fillHoles(const Image& picture, const Image& warped, const Image& displacement, const Image& marks,
                               Image& filled) {
    const BufferManagedImage coded(bufferManager_, picture.info(), WarpFilter::codedLayout);
    filter().code(picture, coded.image());
    fillFromCoded(coded.image(), warped, displacement, marks, filled);
}

void PictureBuilder::fillFromCoded(const Image& coded, const Image& warped, const Image& displacement,
                                   const Image& marks, Image& filled) {
    if (nothingMarked(marks)) {
        Common::copy(warped, filled);
        return;
    }
    const Info one = floatInfo(displacement.box(), 1);
    const BufferManagedImage seam(bufferManager_, one);
    const BufferManagedImage extended(bufferManager_, floatInfo(displacement.box(), 2));
    // What a step needs alone lives no longer: the extension is where most memory is in use.
    const BufferManagedImage hole(bufferManager_, one);
    {
        const BufferManagedImage work1(bufferManager_, one);
        const BufferManagedImage work2(bufferManager_, one);
        Common::growMask(marks, work1.image(), work2.image(), seam.image(), growAmount_, feather_);
    }
    Common::dilate(marks, hole.image(), static_cast<int>(filterReach + growAmount_));
    extendFromRims(displacement, hole.image(), extended.image());

    const BufferManagedImage again(bufferManager_, warped.info());
    Common::copy(warped, again.image());
    filter().warpWhere(coded, extended.image(), hole.image(), again.image());
    Common::maskMix(again.image(), warped, seam.image(), filled, kernelFlags_);
}

/// From each side of a hole the disparity at its rim is spread over the picture; at each pixel the background's wins.
void PictureBuilder::extendFromRims(const Image& displacement, const Image& hole, Image& extended) {
    const BufferManagedImage rim(bufferManager_, hole.info());
    const BufferManagedImage fromSide(bufferManager_, extended.info());
    const BufferManagedImage finite(bufferManager_, displacement.info());
    // Not even a weight of 0 keeps NaN out of a mean.
    Common::replaceBroken(displacement, finite.image(), 0);
    PullPush::PullPush pullPush(bufferManager_, pullPushFlags);
    const bool background = direction_ == 1;
    bool isFirst = true;
    for (const auto side : {Common::Sides::left, Common::Sides::up, Common::Sides::right, Common::Sides::down}) {
        Common::maskEdges(hole, rim.image(), side);
        pullPush.apply(finite.image(), rim.image(), isFirst ? extended : fromSide.image());
        if (!isFirst)
            runKernel(pickDisparitySource, {&extended, &fromSide.image(), &extended}, kernelFlags_, {},
                      Scalar{"background", background});
        isFirst = false;
    }
}

}  // namespace Vellum::PictureBuilder
