#pragma once

#include <array>

#include "compute/Image.h"

/// The shared pixel operations. Sources come first, the destination last; all images of a call lie on one device.
/// An operation covers its destination's whole box; sources must cover it too. A destination may be a source.
/// NaN and infinity stay in their pixel unless said otherwise. A mismatch of boxes or pixel types throws.
namespace Vellum::Common {

using Vellum::Image::Box;
using Vellum::Image::Image;

using Float4 = std::array<float, 4>;

/// Enters this library's kernels into the catalogue.
void registerKernels();

// ---- copying and filling

/// output = source. With unlike component counts the first of them, as many as both have.
void copy(const Image& source, Image& output);
/// Puts the pixels of `box` into the output, its lower left corner at (targetX, targetY). What lies outside the source
/// or the output is left out.
void copy(const Image& source, const Box& box, Image& output, int targetX, int targetY);
/// Component `destChannel` of output = component `sourceChannel` of source; the other components stay.
void copyChannel(const Image& source, Image& output, int sourceChannel, int destChannel);
void copyChannel(const Image& source, const Box& box, Image& output, int targetX, int targetY, int sourceChannel,
                 int destChannel);
/// Components first .. last, both included, each to its own place.
void copyChannelRange(const Image& source, Image& output, int firstChannel, int lastChannel);
/// Zero everywhere.
void clear(Image& image);
void fillConstant(Image& image, float value);
void fillConstant(Image& image, const Float4& value);

// ---- arithmetic on single pixels

/// output = 1 - source.
void invert(const Image& source, Image& output, int flags = 1);
/// output = b where b > a, else a; a where either is NaN.
void max(const Image& a, const Image& b, Image& output, int flags = 1);
/// The same inside `region`, which all three cover; pixels outside it stay.
void max(const Image& a, const Image& b, Image& output, const Box& region, int flags = 1);
/// output = source (or 1 with `binarise`) where source > threshold, else 0.
void threshold(const Image& source, Image& output, float threshold, bool binarise, int flags = 1);
/// output = mask * a + (1 - mask) * b, the mask having one component.
void maskMix(const Image& a, const Image& b, const Image& mask, Image& output, int flags = 1);
/// The weighted sum of the components, as a new image of one component. With `normalise` the weights are divided by
/// their sum.
Image weightedComponentSum(const Image& source, const Float4& weights, bool normalise);

// ---- colour

/// Components 0 to 2 of the output = matrix (row by row) times components 0 to 2 of the source.
void colourMatrix(const Image& source, Image& output, const std::array<float, 9>& matrix, int flags = 1);
void xyzToLab(const Image& source, Image& output, int flags = 1);
void labToXyz(const Image& source, Image& output, int flags = 1);

// ---- statistics

/// Sums and counts per component over the pixels where the mask's own component is above 0.
struct MaskedSums {
    Float4 sum{};
    Float4 count{};
};
MaskedSums maskedSum(const Image& mask, const Image& image, int flags = 1);
/// Sums of (value - mean) squared.
MaskedSums maskedSquaredDeviation(const Image& mask, const Image& image, const Float4& mean, int flags = 1);

}  // namespace Vellum::Common
