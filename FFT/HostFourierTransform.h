#pragma once

#include <memory>

#include "FFT/FourierTransform.h"
#include "compute/HostDevice.h"

namespace Vellum::FFT::Host {

/// Rows of whole cache lines, the components of a pixel side by side.
inline constexpr LayoutSpec rowLayout{2, 16, 0};

class FourierTransformHelper : public FFT::FourierTransformHelper {
public:
    explicit FourierTransformHelper(Compute::Device& device) : FFT::FourierTransformHelper(device) {}

    LayoutSpec realLayout() const override { return rowLayout; }
    LayoutSpec complexLayout() const override { return rowLayout; }
    /// Each length is the next product of powers of 2, 3, 5 and 7, up to 19845; longer ones stay.
    Box paddedSize(const Box& box) const override;
};

class FFTPlan;

/// Rows, then columns, each by the library's one-dimensional transform on the device's threads. Throws FFTException.
class FourierTransform : public FFT::FourierTransform {
public:
    explicit FourierTransform(Compute::Host::Device& device);
    ~FourierTransform() override;

    using FFT::FourierTransform::forward;
    void forward(Image& output, const Image& input, bool skipRows, const RowBand& band) override;
    void reverse(Image& output, Image& spectrum) override;
    virtual LayoutSpec realLayout() const { return rowLayout; }
    virtual LayoutSpec complexLayout() const { return rowLayout; }

private:
    void planFor(const Box& box);

    std::unique_ptr<FFTPlan> plan_;
};

}  // namespace Vellum::FFT::Host
