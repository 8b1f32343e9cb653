#pragma once

#include "compute/Image.h"
#include "framework/VellumSettings.h"
#include "host/sdk/Iop.h"

namespace Cobalt::PlinthPlugins {

/// A planar operator that computes on images: the bridge from the host's planes and back.
class VellumPlanarIop : public Fresco::Image::PlanarIop, public VellumSettings {
public:
    explicit VellumPlanarIop(Fresco::Image::Node* node) : PlanarIop(node), VellumSettings(0) {}

    /// Fetches channels of an input inside `bounds` and wraps the pixels as an image on the host device. False, with
    /// no message, without channels or input, where less than 2 by 2 pixels in both directions would be left (a row
    /// or column of pixels is enough), and after an abort.
    static bool fetchInputImage(const Fresco::Image::Op& op, const VellumSettings& contexts, Vellum::Image::Image& out,
                                int inputNumber, const Fresco::Image::Box& bounds,
                                const Fresco::Image::ChannelSet& channels);

    /// Wraps a plane's pixels without a copy; they stay alive as long as the image. The plane has a buffer and at
    /// most 4 channels.
    void planeToImage(const Fresco::Image::ImagePlane& plane, Vellum::Image::Image& out) const;

    /// Component i of the image, from whatever device, becomes the i-th of `channels` where the plane has that channel.
    /// Writes nothing unless there are as many channels as components. Pixels outside the image become 0.
    void writeImageToPlane(Fresco::Image::ImagePlane& plane, const Vellum::Image::Image& image,
                           const Fresco::Image::ChannelSet& channels) const;

    bool isOnHostDevice(const Vellum::Image::Image& image) const { return image.device() == &hostDevice(); }
};

}  // namespace Cobalt::PlinthPlugins
