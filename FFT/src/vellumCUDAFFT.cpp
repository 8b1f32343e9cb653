#include <array>
#include <string>
#include <utility>

#include "FFT/CUDAFourierTransform.h"
#include "FFT/Exceptions.h"
#include "FFT/PaddedSizes.h"
#include "compute/Exception.h"
#include "vellumCufftCalls.h"

namespace Vellum::FFT::CUDA {

namespace {

using Compute::CUDA::Device;

constexpr auto floats = Vellum::Pixel::DataEnum::float32;

std::string nameOf(int status) {
    constexpr std::array names{"CUFFT_INVALID_PLAN",  "CUFFT_ALLOC_FAILED",   "CUFFT_INVALID_TYPE",
                               "CUFFT_INVALID_VALUE", "CUFFT_INTERNAL_ERROR", "CUFFT_EXEC_FAILED",
                               "CUFFT_SETUP_FAILED",  "CUFFT_INVALID_SIZE",   "CUFFT_UNALIGNED_DATA"};
    const bool known = status >= 1 && status <= static_cast<int>(names.size());
    return known ? names[static_cast<std::size_t>(status) - 1] : "status " + std::to_string(status);
}

void check(int status, int line, const char* function) {
    if (status == CufftCalls::success) return;
    Cobalt::Base::raise(FFTException(status), Cobalt::Base::ThrowPlace{"vellumCUDAFFT", line, function});
}

void* addressOf(const Image& image) {
    return image.data();
}

}  // namespace

FFTException::FFTException(int status)
    : Compute::CUDA::Exception(status, nameOf(status), "CUDA FFT error: %%(Error)%%.") {}

/// The two plans of one size.
class FFTPlan {
public:
    FFTPlan(Device& device, const Box& box) : device_(device), box_(box) {
        constexpr const char* function = "Vellum::FFT::CUDA::FFTPlan::FFTPlan";
        const CufftCalls& library = cufftCalls();
        device_.pool().trim();  // plans take memory that the pool may hold
        const Device::Bound bound(device_);
        try {
            check(library.cufftPlan2d(&forwardPlan_, box.height(), box.width(), CufftCalls::realToComplex), __LINE__,
                  function);
            // Where this one fails the first stays: the library is in no state to be trusted with it.
            check(library.cufftPlan2d(&reversePlan_, box.height(), box.width(), CufftCalls::complexToReal), __LINE__,
                  function);
        } catch (const FFTException& failure) {
            if (failure.errorCode() != CufftCalls::allocationFailed) throw;
            FFTMemoryException noRoom;
            noRoom.set("UserMessage", "Insufficient memory available for FFT on %%(Device)%%.");
            noRoom.set("Device", device_.name());
            Cobalt::Base::raise(std::move(noRoom), Cobalt::Base::ThrowPlace{"vellumCUDAFFT", __LINE__, function});
        }
    }
    FFTPlan(const FFTPlan&) = delete;
    FFTPlan& operator=(const FFTPlan&) = delete;
    /// Whoever wants to know of failures calls release().
    ~FFTPlan() {
        for (int plan = 0; plan < 2; ++plan) {
            try {
                release();
            } catch (...) {
                // The next round destroys the other one. At the program's end the driver may be gone.
            }
        }
    }

    /// Destroys both plans; throws FFTException.
    void release() {
        const Device::Bound bound(device_);
        for (CufftCalls::Plan* plan : {&forwardPlan_, &reversePlan_}) {
            const CufftCalls::Plan destroyed = std::exchange(*plan, none);
            if (destroyed != none)
                check(cufftCalls().cufftDestroy(destroyed), __LINE__, "Vellum::FFT::CUDA::FFTPlan::~FFTPlan");
        }
    }

    Device& device() const { return device_; }
    const Box& box() const { return box_; }
    CufftCalls::Plan forward() const { return forwardPlan_; }
    CufftCalls::Plan reverse() const { return reversePlan_; }

private:
    static constexpr CufftCalls::Plan none = -1;

    Device& device_;
    Box box_;
    CufftCalls::Plan forwardPlan_ = none;
    CufftCalls::Plan reversePlan_ = none;
};

Box FourierTransformHelper::paddedSize(const Box& box) const {
    return {0, 0, cudaPaddedLength(box.width()), cudaPaddedLength(box.height())};
}

FourierTransform::FourierTransform(Device& device) : FFT::FourierTransform(device) {}
FourierTransform::~FourierTransform() = default;

void FourierTransform::forward(Image& output, const Image& input) {
    if (!plan_ || plan_->box() != input.box()) {
        if (plan_) {
            const std::unique_ptr<FFTPlan> former = std::move(plan_);
            former->release();
        }
        plan_ = std::make_unique<FFTPlan>(static_cast<Device&>(device()), input.box());
    }
    const Image real = input;  // the output may be the same image
    output.reset({spectrumSize(real.box()), 2, floats}, device(), packedLayout);
    const Device::Bound bound(plan_->device());
    check(cufftCalls().cufftExecR2C(plan_->forward(), addressOf(real), addressOf(output)), __LINE__,
          "Vellum::FFT::CUDA::FourierTransform::forward");
}

void FourierTransform::forward(Image& output, const Image& input, bool, const RowBand&) {
    forward(output, input);
}

void FourierTransform::reverse(Image& output, Image& spectrum) {
    if (!plan_) Compute::fail("A reverse Fourier transform needs a forward one of the same size before it.");
    const Image complex = spectrum;
    output.reset({plan_->box(), 1, floats}, device(), packedLayout);
    const Device::Bound bound(plan_->device());
    check(cufftCalls().cufftExecC2R(plan_->reverse(), addressOf(complex), addressOf(output)), __LINE__,
          "Vellum::FFT::CUDA::FourierTransform::reverse");
}

}  // namespace Vellum::FFT::CUDA
