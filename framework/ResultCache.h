#pragma once

#include "compute/Image.h"
#include "host/sdk/ImageCache.h"
#include "host/sdk/ImagePlane.h"

/// Finished results in the host's image cache, one file for each channel: the bytes "!VLM", the version 1 as a 32-bit
/// integer, then the pixels as 32-bit floats, rows without gaps in the plane's order, all little-endian. The hash of a
/// render fixes the box. The cache adds its own protection against damage behind these bytes, where neither side of its
/// streams meets it. Without an artist at the host nothing touches the disk; failures are silent.
namespace Cobalt::Research::ResultCache {

using Fresco::Image::ChannelSet;
using Fresco::Image::Hash;
using Fresco::Image::ImagePlane;

/// Whether there is a file for each channel.
bool hasChannels(const ChannelSet& channels, const Hash& hash);

/// Reads what there is into a planar plane and returns the channels read. A file that is damaged or of another version
/// is passed over, and taken away so that the result can be stored again.
ChannelSet load(ImagePlane& plane, const Hash& hash);

/// Stores component i of an image on the host as the i-th of `imageChannels`, where there is no file yet. Returns the
/// channels written.
ChannelSet storeImage(const Vellum::Image::Image& image, const ChannelSet& imageChannels, const Hash& hash);

/// The same for the pixels of a plane.
ChannelSet storePlane(const ImagePlane& plane, const Hash& hash);

}  // namespace Cobalt::Research::ResultCache
