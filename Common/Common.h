#pragma once

#include <array>

#include "Common/kernels/largestValue.h"
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
/// output = source at the nearest pixel: an output larger than the source repeats the source's border.
void copyClamped(const Image& source, Image& output);
/// Zero everywhere.
void clear(Image& image);
void fillConstant(Image& image, float value);
void fillConstant(Image& image, const Float4& value);
/// Puts `value` where the mask is above 0, or with `invert` where it is exactly 0; other pixels stay.
void fillWhereMask(Image& image, const Image& mask, const Float4& value, bool invert);

// ---- arithmetic on single pixels

/// output = 1 - source.
void invert(const Image& source, Image& output, int flags = 1);
/// output = b where b > a, else a; a where either is NaN.
void max(const Image& a, const Image& b, Image& output, int flags = 1);
/// The same inside `region`, which all three cover; pixels outside it stay.
void max(const Image& a, const Image& b, Image& output, const Box& region, int flags = 1);
/// output = source * value, component by component; with one float it serves for all.
void multiplyConstant(const Image& source, Image& output, const Float4& value);
void multiplyConstant(const Image& source, Image& output, float value);
void addConstant(const Image& source, Image& output, const Float4& value);
void addConstant(const Image& source, Image& output, float value);
void add(const Image& a, const Image& b, Image& output);
/// output = a - b.
void subtract(const Image& a, const Image& b, Image& output);
void multiply(const Image& a, const Image& b, Image& output);
/// output = a / b, 0 where b is 0.
void divide(const Image& a, const Image& b, Image& output);
/// The product of complex numbers, real part in component 0.
void complexMultiply(const Image& a, const Image& b, Image& output);
/// Limits to lower .. upper; with lower above upper the result is upper. NaN stays.
void clamp(const Image& source, Image& output, float lower, float upper);
/// A straight line that bends into a saturation at `limit` over a knee of width 2 * softness.
void softLimit(const Image& source, Image& output, float limit, float softness);
/// output = source (or 1 with `binarise`) where source > threshold, else 0.
void threshold(const Image& source, Image& output, float threshold, bool binarise, int flags = 1);
/// output = mask * a + (1 - mask) * b, the mask having one component.
void maskMix(const Image& a, const Image& b, const Image& mask, Image& output, int flags = 1);
/// output = source * mask, or source * (1 - mask) with `invert`.
void multiplyByMask(const Image& source, const Image& mask, Image& output, bool invert);
/// output = mix * a + (1 - mix) * b; outside a source's box its colour `outsideA`, `outsideB`.
void crossFade(const Image& a, const Image& b, Image& output, float mix, bool clampMix = true,
               const Float4& outsideA = {}, const Float4& outsideB = {});
/// The weighted sum of the components, as a new image of one component. With `normalise` the weights are divided by
/// their sum.
Image weightedComponentSum(const Image& source, const Float4& weights, bool normalise);

// ---- colour

/// Components 0 to 2 of the output = matrix (row by row) times components 0 to 2 of the source.
void colourMatrix(const Image& source, Image& output, const std::array<float, 9>& matrix, int flags = 1);
void xyzToLab(const Image& source, Image& output, int flags = 1);
void labToXyz(const Image& source, Image& output, int flags = 1);

/// Linear RGB with the primaries of Rec. 709 to XYZ with the D65 white point divided out, row by row.
inline constexpr std::array<float, 9> rgbToXyzMatrix{0.4339115f,  0.37622687f, 0.1898616f,   //
                                                     0.21264936f, 0.7151691f,  0.07218152f,  //
                                                     0.01775321f, 0.10946182f, 0.8727849f};
inline constexpr std::array<float, 9> xyzToRgbMatrix{3.0802281f,  -1.5373085f,  -0.5429192f,  //
                                                     -0.9212165f, 1.8759666f,   0.04525001f,  //
                                                     0.05288144f, -0.20400739f, 1.1511259f};

void rgbToXyz(const Image& source, Image& output, int flags = 1);
void xyzToRgb(const Image& source, Image& output, int flags = 1);
/// Linear RGB to scaled Lab (L = 1.16 f(Y) - 0.16, a = 5 (f(X) - f(Y)), b = 2 (f(Y) - f(Z))): rgbToXyz and xyzToLab in
/// one pass, but that a and b are exactly 0 where R = G = B. Images of 3 or 4 components; a fourth one of the output
/// stays.
void rgbToLab(const Image& source, Image& output, int flags = 1);
void labToRgb(const Image& source, Image& output, int flags = 1);
/// The sRGB transfer curve on components 0 to 2; of the others the output takes what the source has, else 0.
void srgbToLinear(const Image& source, Image& output);
void linearToSrgb(const Image& source, Image& output);

// ---- pixels that are broken: with a component that is no value, which is NaN, infinite or beyond largestValue

using Kernels::largestValue;

/// The number of pixels with such a component from `firstComponent` to `lastComponent`, as far as there are: in a
/// picture its alpha doesn't matter. From 2^24 on to the precision of a float.
std::size_t countBroken(const Image& image, int firstComponent = 0, int lastComponent = 2);
/// `output` of one component: 0 at those pixels, else 1.
void wholePixels(const Image& image, Image& output, int firstComponent = 0, int lastComponent = 2);
/// Each component that is no value becomes `replacement`.
void replaceBroken(const Image& source, Image& output, float replacement);
/// Colours of `replacement` in the place of those that are broken in `source`. Alpha is the source's.
void mendPixels(const Image& source, const Image& replacement, Image& output);

// ---- neighbourhoods: reads outside an image give its nearest pixel; a destination may not be a source

/// The mean over 2 radius + 1 pixels along each axis. `temporary` has the source's box and pixel type. The output may
/// be the source.
void boxFilter(const Image& source, Image& temporary, Image& output, int radius);
/// A Gaussian bell exp(-x^2 / sigma^2) of radius floor(3 |sigma| + 0.5), at most 63. sigma must not be 0.
void gaussianBlur(const Image& source, Image& temporary, Image& output, float sigma);
/// 1 where a pixel of the source within `radius`, on the chosen sides, is set: where their sum is above 0.
void dilate(const Image& source, Image& output, int radius, bool right = true, bool left = true, bool up = true,
            bool down = true);
/// 0 where a pixel of the source within `radius`, on the chosen sides, is 0; else 1.
void erode(const Image& source, Image& output, int radius, bool right = true, bool left = true, bool up = true,
           bool down = true);
/// Which neighbours make an edge.
enum class Sides { left = 0, right = 1, leftAndRight = 2, down = 3, up = 4, upAndDown = 5 };
/// 1 where the mask isn't 0 and a chosen neighbour is; else 0. Another value of `sides` does nothing.
void maskEdges(const Image& source, Image& output, Sides sides);
/// Widens a soft mask by `amount` pixels, or narrows it by -amount, fractions included, and blurs it with sigma `blur`;
/// a blur of 0 leaves its edge as it is.
void growMask(const Image& mask, Image& work1, Image& work2, Image& output, float amount, float blur);

// ---- statistics

/// Fills an image of one component with a Gaussian bell of height 1 round its middle, and returns the sum.
float makeGaussian(Image& image, float sigma);
/// The sum per component.
Float4 sum(const Image& image);

/// Sums and counts per component over the pixels where the mask's own component is above 0.
struct MaskedSums {
    Float4 sum{};
    Float4 count{};
};
MaskedSums maskedSum(const Image& mask, const Image& image, int flags = 1);
/// Sums of (value - mean) squared.
MaskedSums maskedSquaredDeviation(const Image& mask, const Image& image, const Float4& mean, int flags = 1);

}  // namespace Vellum::Common
