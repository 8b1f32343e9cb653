#pragma once

#include <memory>

#include "compute/Image.h"

namespace Vellum::FFT {

using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::LayoutSpec;

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Component count and pixel type.
struct Format {
    std::uint32_t components = 1;
    Vellum::Pixel::DataEnum type = Vellum::Pixel::DataEnum::float32;
};

/// What a device's transform wants of its images, and the three steps round a transform: padding an image, padding a
/// convolution kernel, cropping the result.
class FourierTransformHelper {
public:
    /// Throws NotImplemented for a device without a transform.
    static std::unique_ptr<FourierTransformHelper> make(Compute::Device& device);

    FourierTransformHelper(const FourierTransformHelper&) = delete;
    FourierTransformHelper& operator=(const FourierTransformHelper&) = delete;
    virtual ~FourierTransformHelper() = default;

    /// How images that the transform reads and writes as real are laid out.
    virtual LayoutSpec realLayout() const = 0;
    /// How spectra are laid out.
    virtual LayoutSpec complexLayout() const = 0;
    /// One float.
    virtual Format realFormat() const { return {}; }
    /// The size to which an image is padded, with its corner at (0, 0).
    virtual Box paddedSize(const Box& box) const = 0;

    /// One channel of `image` in a real image over `padded`: the image's lower left corner lies at (0, 0), what it
    /// doesn't cover is 0.
    Image paddedImage(const Image& image, int channel, const Box& padded) const;
    /// One channel of a convolution kernel in a real image over `padded`: its centre cell (width / 2, height / 2) lies
    /// at (0, 0), what is left of it or below wraps round to the far edges. Where two cells fall on one place, the
    /// later one in raster order stays.
    Image paddedKernel(const Image& kernel, int channel, const Box& padded) const;
    /// Channel `channel` of output = what lies at the same place from the corner in `reversed`, divided by its number
    /// of pixels; 0 beyond it. The other channels stay.
    void crop(const Image& reversed, Image& output, int channel) const;

protected:
    explicit FourierTransformHelper(Compute::Device& device) : device_(device) {}
    Compute::Device& device() const { return device_; }

private:
    Compute::Device& device_;
};

/// Rows first .. last - 1.
struct RowBand {
    int first = 0;
    int last = 0;
};

/// Two-dimensional transforms of real images, without a factor in either direction. Keeps the plan of the last size.
/// One object must be used from one thread at a time.
class FourierTransform {
public:
    /// Throws NotImplemented for a device without a transform.
    static std::unique_ptr<FourierTransform> make(Compute::Device& device);

    FourierTransform(const FourierTransform&) = delete;
    FourierTransform& operator=(const FourierTransform&) = delete;
    virtual ~FourierTransform() = default;

    /// `output` becomes the spectrum of `input` (one float, in the helper's real layout): components are real and
    /// imaginary part, columns 0 .. width / 2, all rows.
    virtual void forward(Image& output, const Image& input) { forward(output, input, false, {}); }
    /// The same; with `skipRows` the rows of the band are known to be 0 and aren't transformed.
    virtual void forward(Image& output, const Image& input, bool skipRows, const RowBand& band) = 0;
    /// `output` becomes the real image of a spectrum, over the box of the last forward transform, which must have come
    /// before. The spectrum is spent.
    virtual void reverse(Image& output, Image& spectrum) = 0;

    /// The box of the spectrum of a real image over `box`.
    Box spectrumSize(const Box& box) const { return {0, 0, box.width() / 2 + 1, box.height()}; }

protected:
    explicit FourierTransform(Compute::Device& device) : device_(device) {}
    Compute::Device& device() const { return device_; }

private:
    Compute::Device& device_;
};

}  // namespace Vellum::FFT
