#include "Convolution/ConvolutionHelper.h"

#include <mutex>

#include "ToneAligner/ToneAligner.h"
#include "operations.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;

/// Threads that share the object take turns, because the kernel's transform belongs to it.
class ConvolutionHelper {
public:
    ConvolutionHelper(const Image& kernel, int directLimit) : helper_(hostDevice()) {
        helper_.setKernel(copied(kernel));
        helper_.setDirectLimit(directLimit);
    }

    Image convolve(const Image& image) {
        return written(image, [&](Image& output) {
            const std::scoped_lock lock(mutex_);
            helper_.convolve(image, output);
        });
    }

private:
    std::mutex mutex_;
    Vellum::Convolution::ConvolutionHelper helper_;
};

Image limitCorrection(const Image& source, const Image& corrected, float correctionLimit) {
    Image from = copied(source);
    Image to = copied(corrected);
    unlocked([&] {
        Vellum::Utils::BufferManagement::BufferManager buffers(hostDevice(), hostDevice());
        Vellum::Tone::ToneAligner aligner(buffers, packedCode);
        aligner.setCorrectionLimit(correctionLimit);
        aligner.limitCorrection(from, to);
    });
    return to;
}

}  // namespace

void bindConvolution(nb::module_& module) {
    nb::class_<ConvolutionHelper>(
        module, "ConvolutionHelper",
        R"(Convolves images with a small image, the kernel, whose centre is cell (width // 2, height // 2).

Kernels of less than 2 * directLimit pixels on both sides are summed cell by cell, the image's border repeated outward.
Larger ones go through a Fourier transform, which is kept from call to call. There the image is 0 outside, up to sides
without prime factors above 7, over which everything closes on itself.)")
        .def(nb::init<const Image&, int>(), "kernel"_a, "directLimit"_a = 3,
             "Component c of an image meets component min(c, kernel.components - 1) of the kernel.")
        .def("convolve", &ConvolutionHelper::convolve, "image"_a, "The convolved image.");
    module.def("limitCorrection", limitCorrection, "source"_a, "corrected"_a, "correctionLimit"_a,
               R"(`corrected` with its change of lightness from `source` kept near the change's mean round it.

Linear RGB of 3 or 4 components over one box; a fourth one stays. The mean is taken over a Gaussian window of 300
pixels; what lies further than correctionLimit from it, in the L of scaled Lab, is bent to it.)");
}

}  // namespace ViewTint::Python
