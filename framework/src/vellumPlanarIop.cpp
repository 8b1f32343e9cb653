#include "framework/VellumPlanarIop.h"

#include "Common/Common.h"
#include "base/Ensure.h"

namespace Cobalt::PlinthPlugins {

namespace {

using Fresco::Image::Box;
using Fresco::Image::ChannelSet;
using Fresco::Image::ImagePlane;
using Vellum::Image::Image;

constexpr std::uint32_t mostComponents = 4;

Image wrap(const ImagePlane& plane, Vellum::Compute::Device& hostDevice) {
    const Fresco::Image::RefCountedFloatBuffer buffer = plane.buffer();
    ENSURE(buffer, "a plane without pixels can't be wrapped");
    ENSURE_COMPARE(plane.components(), <=, mostComponents);
    constexpr std::int64_t size = sizeof(float);
    const Vellum::Image::Info info{plane.box(), plane.components(), Vellum::Pixel::DataEnum::float32};
    const auto layout = Vellum::Image::Layout::withStrides(info, plane.pixelStride() * size, plane.rowStride() * size,
                                                           plane.channelStride() * size);
    return Vellum::Image::wrapMemory(layout, buffer.getBuffer(), hostDevice);
}

void clearChannel(Image& image, int channel) {
    Image zero({image.box(), 1, image.info().type}, *image.device());
    Vellum::Common::clear(zero);
    Vellum::Common::copyChannel(zero, image, 0, channel);
}

}  // namespace

bool VellumPlanarIop::fetchInputImage(const Fresco::Image::Op& op, const VellumSettings& contexts, Image& out,
                                      int inputNumber, const Box& bounds, const ChannelSet& channels) {
    auto* input = dynamic_cast<Fresco::Image::Iop*>(op.input(inputNumber));
    if (channels.empty() || !input) return false;
    const Box box = intersect(bounds, input->info().box);
    if (box.empty() || (box.width() < 2 && box.height() < 2)) return false;

    ImagePlane plane(box, false, channels);
    input->fetchPlane(plane);
    if (op.aborted() || !plane.buffer()) return false;
    out = wrap(plane, contexts.hostDevice());
    return true;
}

void VellumPlanarIop::planeToImage(const ImagePlane& plane, Image& out) const {
    out = wrap(plane, hostDevice());
}

void VellumPlanarIop::writeImageToPlane(ImagePlane& plane, const Image& image, const ChannelSet& channels) const {
    if (channels.size() != image.components()) return;
    plane.writableBuffer();
    Image target;
    planeToImage(plane, target);
    const Image source = image.distributeTo(hostDevice());
    const bool covered = source.box().contains(target.box());
    int component = 0;
    for (const Fresco::Image::Channel channel : channels) {
        if (const int place = plane.channels().indexOf(channel); place >= 0) {
            if (!covered) clearChannel(target, place);
            const Box common = intersect(source.box(), target.box());
            if (!common.empty())
                Vellum::Common::copyChannel(source, common, target, common.x0, common.y0, component, place);
        }
        ++component;
    }
}

}  // namespace Cobalt::PlinthPlugins
