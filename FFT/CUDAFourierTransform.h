#pragma once

#include <memory>

#include "FFT/FourierTransform.h"
#include "compute/CUDA/Device.h"

namespace Vellum::FFT::CUDA {

/// Rows without gaps, since the library's plans know no strides; the components of a pixel side by side.
inline constexpr LayoutSpec packedLayout{2, 1, 0};

class FourierTransformHelper : public FFT::FourierTransformHelper {
public:
    explicit FourierTransformHelper(Compute::Device& device) : FFT::FourierTransformHelper(device) {}

    LayoutSpec realLayout() const override { return packedLayout; }
    LayoutSpec complexLayout() const override { return packedLayout; }
    /// Powers of two up to 1024, else multiples of 512 (cudaPaddedLength).
    Box paddedSize(const Box& box) const override;
};

class FFTPlan;

/// Both dimensions at once, by cuFFT, which is looked for at run time. Throws CUDA::FFTException, and
/// CUDA::FFTMemoryException where the device has no room for a plan.
class FourierTransform : public FFT::FourierTransform {
public:
    explicit FourierTransform(Compute::CUDA::Device& device);
    ~FourierTransform() override;

    void forward(Image& output, const Image& input) override;
    /// `skipRows` and the band are ignored.
    void forward(Image& output, const Image& input, bool skipRows, const RowBand& band) override;
    void reverse(Image& output, Image& spectrum) override;

private:
    std::unique_ptr<FFTPlan> plan_;
};

}  // namespace Vellum::FFT::CUDA
