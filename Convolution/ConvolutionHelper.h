#pragma once

#include <memory>

#include "FFT/FourierTransform.h"

namespace Vellum::Convolution {

using Vellum::Image::Box;
using Vellum::Image::Image;

/// Enters this library's kernels into the catalogue.
void registerKernels();

/// Convolves images with a small image, the kernel, whose centre is cell (width / 2, height / 2). Small kernels are
/// summed cell by cell, others go through a Fourier transform, and the kernel's transform is kept from call to call.
///
/// The two ways differ at the borders. The sum repeats the border outward. The transform sees 0 outside the image, and
/// what reaches beyond the padded box comes back in at the other side; an image whose size needs no padding closes on
/// itself.
///
/// One object must be used from one thread at a time.
class ConvolutionHelper {
public:
    /// Works on images of this device, and keeps its context.
    explicit ConvolutionHelper(Compute::Device& device);

    /// Of 1 to 4 components; shares the pixels, which must stay as they are. Component c of an image meets component
    /// min(c, components - 1) of the kernel. One without cells gives 0, and an empty one says so on the standard
    /// output.
    void setKernel(const Image& kernel);
    /// Kernels go through the transform from twice this size on, on either side.
    void setDirectLimit(int cells) { directLimit_ = cells; }

    /// `output` has the box and the components of `input` and doesn't share its pixels.
    /// Throws Compute::Exception for a kernel that is more than twice as wide or as high as the image with its padding,
    /// NotImplemented where a transform is needed that the device doesn't have; the transform's exceptions and
    /// those of the device pass through.
    void convolve(const Image& input, Image& output);

    /// How an image of one component is best laid out: one in this layout whose size needs no padding goes into the
    /// transform as it is. Throws NotImplemented for a device without a transform.
    Vellum::Image::LayoutSpec transformLayout();

    /// How often a component of the kernel has been transformed so far.
    int kernelTransforms() const { return kernelTransforms_; }

private:
    bool reportEmptyKernel() const;
    bool takesDirectPath() const;
    void convolveByTransform(const Image& input, Image& output);
    FFT::FourierTransformHelper& fourierHelper();
    Image realImage(const Image& input, int channel, const Box& padded);
    void updateKernelTransform(int channel, const Box& padded);

    Compute::ContextPointer context_;
    Compute::Device* device_;
    std::unique_ptr<FFT::FourierTransformHelper> fourierHelper_;
    std::unique_ptr<FFT::FourierTransform> fourierTransform_;
    Image kernel_;
    Image kernelTransform_;
    int kernelTransformChannel_ = -1;
    Box kernelTransformBox_;
    int directLimit_ = 3;
    int kernelTransforms_ = 0;
};

}  // namespace Vellum::Convolution
