#include "Convolution/ConvolutionHelper.h"

#include <algorithm>
#include <iostream>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "vellumDirectConvolution.h"

namespace Vellum::Convolution {

namespace {

using Vellum::Image::LayoutSpec;
using Vellum::Pixel::DataEnum;

std::string described(const Image& image) {
    return toString(image.box()) + " with " + std::to_string(image.components()) + " component" +
           (image.components() == 1 ? "" : "s");
}

/// Its centre goes to the padded box's corner, and what lies left of it or below to the far ends.
void checkRoom(const Image& kernel, const Box& padded) {
    const auto fits = [](int cells, int pixels) { return cells - cells / 2 <= pixels; };
    if (fits(kernel.box().width(), padded.width()) && fits(kernel.box().height(), padded.height())) return;
    Compute::fail("A convolution kernel of " + described(kernel) + " is too large for an image that fills " +
                  toString(padded) + " when transformed: it may be twice as wide and as high.");
}

}  // namespace

ConvolutionHelper::ConvolutionHelper(Compute::Device& device) : context_(&device.context()), device_(&device) {}

void ConvolutionHelper::setKernel(const Image& kernel) {
    kernel_ = kernel;
    kernelTransformChannel_ = -1;
}

void ConvolutionHelper::convolve(const Image& input, Image& output) {
    if (input.box() != output.box() || input.components() != output.components())
        Compute::fail("A convolution of " + described(input) + " can't be written to " + described(output) + ".");
    if (takesDirectPath())
        convolveDirectly(input, kernel_, output);
    else
        convolveByTransform(input, output);
}

bool ConvolutionHelper::reportEmptyKernel() const {
    const Box& box = kernel_.box();
    const bool empty =
        (box.width() == 0 && box.height() == 0) || kernel_.components() == 0 || kernel_.info().type == DataEnum::none;
    if (empty) std::cout << "ConvolutionHelper: _kernel is empty." << std::endl;
    return empty;
}

bool ConvolutionHelper::takesDirectPath() const {
    if (reportEmptyKernel()) return false;
    return directLimit_ > kernel_.box().width() / 2 && directLimit_ > kernel_.box().height() / 2;
}

void ConvolutionHelper::convolveByTransform(const Image& input, Image& output) {
    reportEmptyKernel();
    if (kernel_.box().empty() || kernel_.components() == 0) {
        Common::clear(output);
        return;
    }
    const Box padded = fourierHelper().paddedSize(input.box());
    checkRoom(kernel_, padded);
    if (!fourierTransform_) fourierTransform_ = FFT::FourierTransform::make(*device_);
    for (std::uint32_t c = 0; c < output.components(); ++c) {
        const int channel = static_cast<int>(c);
        updateKernelTransform(static_cast<int>(std::min(kernel_.components() - 1, c)), padded);
        Image spectrum;
        fourierTransform_->forward(spectrum, realImage(input, channel, padded));
        Common::complexMultiply(spectrum, kernelTransform_, spectrum);
        Image reversed;
        fourierTransform_->reverse(reversed, spectrum);
        fourierHelper_->crop(reversed, output, channel);
    }
}

LayoutSpec ConvolutionHelper::transformLayout() {
    return fourierHelper().realLayout();
}

FFT::FourierTransformHelper& ConvolutionHelper::fourierHelper() {
    if (!fourierHelper_) fourierHelper_ = FFT::FourierTransformHelper::make(*device_);
    return *fourierHelper_;
}

/// One channel as the transform reads it.
Image ConvolutionHelper::realImage(const Image& input, int channel, const Box& padded) {
    const Image atOrigin = input.translate({-input.box().x0, -input.box().y0});
    const bool fits =
        input.components() == 1 && atOrigin.box() == padded && input.tile().layout.spec == transformLayout();
    return fits ? atOrigin : fourierHelper_->paddedImage(input, channel, padded);
}

void ConvolutionHelper::updateKernelTransform(int channel, const Box& padded) {
    const bool there = kernelTransform_.components() != 0 && kernelTransform_.info().type != DataEnum::none;
    if (there && kernelTransformChannel_ == channel && kernelTransformBox_ == padded) return;
    kernelTransformChannel_ = -1;
    const Image paddedKernel = fourierHelper_->paddedKernel(kernel_, channel, padded);
    // Rows below the centre lie at the far end of the box, those from it on at its beginning; between them is nothing.
    const int height = kernel_.box().height();
    const FFT::RowBand empty{height - height / 2, padded.height() - height / 2};
    fourierTransform_->forward(kernelTransform_, paddedKernel, empty.first < empty.last, empty);
    kernelTransformChannel_ = channel;
    kernelTransformBox_ = padded;
    ++kernelTransforms_;
}

}  // namespace Vellum::Convolution
