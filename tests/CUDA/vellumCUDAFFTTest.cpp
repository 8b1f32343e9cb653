#include <gtest/gtest.h>

#include <cmath>

#include "Convolution/ConvolutionHelper.h"
#include "FFT/CUDAFourierTransform.h"
#include "FFT/Exceptions.h"
#include "compute/HostDevice.h"
#include "tests/CUDA/StandIns.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::FFT::FourierTransform;
using Vellum::FFT::FourierTransformHelper;
using Vellum::FFT::CUDA::FFTException;
using Vellum::FFT::CUDA::FFTMemoryException;

/// Lets a call of the stand-in of cuFFT fail until the scope's end.
class FailingCufft {
public:
    FailingCufft(const char* call, int number, int status) { order(call, number, status); }
    ~FailingCufft() { order(nullptr, 0, 0); }

private:
    static void order(const char* call, int number, int status) {
        standIn<void(const char*, int, int)>("VIEWTINT_CUFFT", "standInCufftFail")(call, number, status);
    }
};

int cufftCount(const char* call) {
    return standIn<int(const char*)>("VIEWTINT_CUFFT", "standInCufftCount")(call);
}

class CudaFourierTransform : public testing::Test {
protected:
    Image realOnGpu(const Pixels& pixels) const {
        Image image({pixels.box(), 1}, gpu(), helper->realLayout());
        image.copyFrom(TestImage(pixels, Arrangement::planar).image());
        return image;
    }
    void forward(const Pixels& pixels) { transform->forward(spectrum, realOnGpu(pixels)); }

    std::unique_ptr<FourierTransformHelper> helper = FourierTransformHelper::make(gpu());
    std::unique_ptr<FourierTransform> transform = FourierTransform::make(gpu());
    Image spectrum;
};

}  // namespace

TEST_F(CudaFourierTransform, givesTheHostsSpectrumAndComesBack) {
    forward(randomPixels({0, 0, 8, 8}, 1, 1, false));  // another size before
    for (const Box& box : {Box{0, 0, 16, 32}, Box{0, 0, 9, 7}, Box{0, 0, 1, 4}}) {
        const Pixels pixels = randomPixels(box, 1, 5, false);
        forward(pixels);
        const auto& layout = spectrum.tile().layout;
        EXPECT_EQ(layout.y.elements, 2 * (box.width() / 2 + 1)) << "no gaps";
        auto& host = Vellum::Compute::Host::hostDevice();
        Image hostReal({box, 1}, host, FourierTransformHelper::make(host)->realLayout()), expected;
        hostReal.copyFrom(TestImage(pixels, Arrangement::planar).image());
        FourierTransform::make(host)->forward(expected, hostReal);
        EXPECT_EQ(firstDifference(pixelsOf(expected), pixelsOf(spectrum)), "");
        Image back;
        transform->reverse(back, spectrum);
        const Pixels returned = pixelsOf(back);
        pixels.forEach([&](int x, int y, int) {
            EXPECT_NEAR(returned.at(x, y, 0) / static_cast<float>(box.pixels()), pixels.at(x, y, 0), 1e-5f);
        });
    }
    EXPECT_EQ(helper->paddedSize({0, 0, 1500, 1000}), (Box{0, 0, 1536, 1024}));
}

TEST_F(CudaFourierTransform, keepsItsPlanAsLongAsTheBoxStays) {
    const Pixels pixels = randomPixels({0, 0, 16, 16}, 1, 1, false);
    forward(pixels);
    const int planned = cufftCount("cufftPlan2d"), destroyed = cufftCount("cufftDestroy");
    forward(pixels);
    transform->forward(spectrum, realOnGpu(pixels), true, {0, 8});  // the band is ignored
    EXPECT_NE(pixelsOf(spectrum).at(0, 0, 0), 0);
    EXPECT_EQ(cufftCount("cufftPlan2d"), planned);
    forward(randomPixels({0, 0, 16, 32}, 1, 1, false));
    EXPECT_EQ(cufftCount("cufftPlan2d"), planned + 2);
    EXPECT_EQ(cufftCount("cufftDestroy"), destroyed + 2);
    transform.reset();
    EXPECT_EQ(cufftCount("cufftDestroy"), destroyed + 4);
}

TEST_F(CudaFourierTransform, everyStatusHasItsName) {
    const char* const names[] = {"CUFFT_INVALID_PLAN",  "CUFFT_ALLOC_FAILED",   "CUFFT_INVALID_TYPE",
                                 "CUFFT_INVALID_VALUE", "CUFFT_INTERNAL_ERROR", "CUFFT_EXEC_FAILED",
                                 "CUFFT_SETUP_FAILED",  "CUFFT_INVALID_SIZE",   "CUFFT_UNALIGNED_DATA"};
    const Pixels pixels = randomPixels({0, 0, 16, 16}, 1, 1, false);
    forward(pixels);
    Image back;
    for (int status = 1; status <= 9; ++status) {
        const auto expectFailure = [&](const char* call, const std::string& function, auto&& work) {
            const FailingCufft failing(call, 0, status);
            try {
                work();
                ADD_FAILURE() << call << " " << status;
            } catch (const FFTException& failure) {
                EXPECT_EQ(userMessage(failure), std::string("CUDA FFT error: ") + names[status - 1] + ".");
                EXPECT_EQ(failure.toString(), names[status - 1]);
                EXPECT_EQ(failure.errorCode(), status);
                EXPECT_EQ(failure.attributeText("ThrowFile"), "vellumCUDAFFT");
                EXPECT_EQ(failure.attributeText("ThrowFunction"), "Vellum::FFT::CUDA::" + function);
                EXPECT_EQ(failure.attributeText("ExceptionClass"), "Vellum::FFT::CUDA::FFTException");
            }
        };
        expectFailure("cufftExecR2C", "FourierTransform::forward", [&] { forward(pixels); });
        expectFailure("cufftExecC2R", "FourierTransform::reverse", [&] { transform->reverse(back, spectrum); });
        if (status != 2) {
            expectFailure("cufftPlan2d", "FFTPlan::FFTPlan", [&] { forward(randomPixels({0, 0, 8, 8}, 1, 1, false)); });
            forward(pixels);
        }
        expectFailure("cufftDestroy", "FFTPlan::~FFTPlan", [&] { forward(randomPixels({0, 0, 8, 8}, 1, 1, false)); });
        forward(pixels);
    }
}

TEST_F(CudaFourierTransform, noRoomForAPlanIsAFailureOfItsOwn) {
    const Pixels pixels = randomPixels({0, 0, 16, 16}, 1, 1, false);
    for (const int plan : {0, 1}) {
        const int destroyed = cufftCount("cufftDestroy");
        try {
            const FailingCufft failing("cufftPlan2d", plan, 2);
            forward(pixels);
            ADD_FAILURE() << plan;
        } catch (const FFTMemoryException& failure) {
            EXPECT_EQ(failure.attributeText("UserMessage"), "Insufficient memory available for FFT on Stand-in GPU 0.");
        }
        EXPECT_EQ(cufftCount("cufftDestroy"), destroyed) << "the first plan stays where the second fails";
        Image back;
        EXPECT_THROW(transform->reverse(back, spectrum), Vellum::Compute::Exception) << "no plan was kept";
    }
    forward(pixels);
}

/// The client of transforms: means over a large window, on the GPU and on the CPU.
TEST_F(CudaFourierTransform, largeConvolutionsGiveTheCpusPicture) {
    const Box box{3, -2, 120, 75};
    const Pixels picture = randomPixels(box, 2, 1, false), window = randomPixels({0, 0, 41, 37}, 1, 2, false);
    const auto convolved = [&](Vellum::Compute::Device& device) {
        Vellum::Convolution::ConvolutionHelper helper(device);
        const auto on = [&](const Pixels& pixels) {
            Image image({pixels.box(), static_cast<std::uint32_t>(pixels.components())}, device);
            image.copyFrom(TestImage(pixels, Arrangement::planar).image());
            return image;
        };
        helper.setKernel(on(window));
        Image output = on(picture);
        helper.convolve(on(picture), output);
        return pixelsOf(output);
    };
    const int transforms = cufftCount("cufftExecR2C");
    const Pixels onGpu = convolved(gpu()), onCpu = convolved(Vellum::Compute::Host::hostDevice());
    EXPECT_EQ(cufftCount("cufftExecR2C"), transforms + 3) << "the window and two components";
    // Within a window's half of the border the padding shows, which differs in size.
    const Box inside{box.x0 + 21, box.y0 + 19, box.x1 - 21, box.y1 - 19};
    double most = 0;
    onCpu.forEach([&](int x, int y, int c) {
        if (!inside.contains({x, y, x + 1, y + 1})) return;
        most = std::max(most, std::abs(double{onCpu.at(x, y, c)} - onGpu.at(x, y, c)));
    });
    EXPECT_LT(most, 1e-3) << "of sums of 1517 products";
    EXPECT_GT(std::abs(onCpu.at(60, 30, 0)), 1) << "far above that";
    const FailingCufft failing("cufftExecC2R", 0, 6);
    EXPECT_THROW(convolved(gpu()), FFTException);
}

/// Without a card the toolkit's own library can't plan, and says so.
TEST(RealCufft, withoutACardPlanningFailsCleanly) {
    if (std::string(std::getenv("VIEWTINT_CUFFT")) == VIEWTINT_STAND_IN_CUFFT)
        GTEST_SKIP() << "VIEWTINT_CUFFT names the stand-in";
    if (!dlopen(std::getenv("VIEWTINT_CUFFT"), RTLD_NOW | RTLD_LOCAL))
        GTEST_SKIP() << "there is no " << std::getenv("VIEWTINT_CUFFT");
    const auto transform = FourierTransform::make(gpu());
    Image spectrum;
    const Image real({{0, 0, 16, 16}, 1}, gpu(), Vellum::FFT::CUDA::packedLayout);
    try {
        transform->forward(spectrum, real);
        ADD_FAILURE() << "planned";
    } catch (const FFTException& failure) {
        EXPECT_NE(failure.errorCode(), 0);
        EXPECT_NE(userMessage(failure).find("CUFFT_"), std::string::npos) << userMessage(failure);
    } catch (const FFTMemoryException&) {
        // As good.
    }
}

}  // namespace ViewTint::Tests
