#include "FFT/FourierTransform.h"

#include <fmt/format.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>

#include <memory>
#include <mutex>
#include <string>
#include <tuple>

#include "FFT/PaddedSizes.h"
#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Transform = Vellum::FFT::FourierTransform;
using Helper = Vellum::FFT::FourierTransformHelper;

/// Keeps the plan of the last size. Threads take turns.
class FourierTransform {
public:
    FourierTransform() : helper_(Helper::make(hostDevice())), transform_(Transform::make(hostDevice())) {}

    Image forward(const Image& image) {
        requireComponents("image", image, 1);
        return unlocked([&] {
            const std::scoped_lock lock(*mutex_);
            Image spectrum;
            transform_->forward(spectrum, inLayout(image, helper_->realLayout()));
            return spectrum;
        });
    }

    Image reverse(const Image& spectrum) {
        requireComponents("spectrum", spectrum, 2);
        return unlocked([&] {
            const std::scoped_lock lock(*mutex_);
            Image spent({spectrum.box(), 2}, hostDevice(), helper_->complexLayout());
            spent.copyFrom(spectrum);
            Image image;
            transform_->reverse(image, spent);
            return image;
        });
    }

private:
    static Image inLayout(const Image& image, const Vellum::Image::LayoutSpec& layout) {
        Image copy(image.info(), hostDevice(), layout);
        copy.copyFrom(image);
        return copy;
    }

    std::unique_ptr<Helper> helper_;
    std::unique_ptr<Transform> transform_;
    std::unique_ptr<std::mutex> mutex_ = std::make_unique<std::mutex>();
};

std::tuple<int, int> paddedSize(int width, int height, const std::string& device) {
    constexpr int most = 1 << 24;
    if (width < 1 || height < 1 || width > most || height > most)
        raiseValue(fmt::format("width and height must lie in 1 .. {}.", most));
    if (device == "host") return {Vellum::FFT::hostPaddedLength(width), Vellum::FFT::hostPaddedLength(height)};
    if (device == "cuda") return {Vellum::FFT::cudaPaddedLength(width), Vellum::FFT::cudaPaddedLength(height)};
    raiseValue(fmt::format("device must be \"host\" or \"cuda\", not \"{}\".", device));
}

}  // namespace

void bindFourierTransform(nb::module_& module) {
    nb::class_<FourierTransform>(
        module, "FourierTransform",
        R"(Two-dimensional transforms of real images, without a factor in either direction. Keeps the plan of the last
size, so that further images of it cost no planning.)")
        .def(nb::init<>())
        .def("forward", &FourierTransform::forward, "image"_a,
             R"(The spectrum of an image of 1 component: real and imaginary part, columns 0 .. width // 2, all rows.)")
        .def(
            "reverse", &FourierTransform::reverse, "spectrum"_a,
            R"(The real image of a spectrum (2 components) over the box of the last forward(), times its number of pixels.
viewtint.Error where there was none of this size.)");
    module.def(
        "paddedSize", &paddedSize, "width"_a, "height"_a, "device"_a = "host",
        R"((width, height) to which images are padded before a transform: on the host each the next product of powers of
2, 3, 5 and 7, up to 19845; with "cuda" a power of two up to 1024, multiples of 512 beyond.)");
}

}  // namespace ViewTint::Python
