#include <string>

#include <fmt/format.h>

#include "PullPush/PullPush.h"
#include "operations.h"

namespace ViewTint::Python {

namespace {

namespace Common = Vellum::Common;

using Vellum::Compute::Host::hostDevice;

constexpr float most = 65536;

/// Limits a size in pixels to what a picture can have, so that nothing that is worked out from it overflows.
void requireSize(const char* name, float value, float least) {
    if (value >= least && value <= most) return;  // not so for NaN
    raiseValue(fmt::format("{} must lie in {} .. {} pixels.", name, least, most));
}

template <auto operation>
Image grown(const Image& image, int radius, bool right, bool left, bool up, bool down) {
    requireSize("radius", static_cast<float>(radius), 0);
    return written(image, [&](Image& output) { operation(image, output, radius, right, left, up, down); });
}

/// The pyramid's buffers belong to one call, so that threads can share the object.
class PullPush {
public:
    explicit PullPush(int flags) : flags_(flags) {}

    Image apply(const Image& image, const Image& weights) const {
        return written(image, [&](Image& result) {
            Vellum::Utils::BufferManagement::BufferManager buffers(hostDevice(), hostDevice());
            Vellum::PullPush::PullPush(buffers, flags_).apply(image, weights, result);
        });
    }

private:
    int flags_;
};

}  // namespace

void bindNeighbourhoods(nb::module_& module) {
    module.def(
        "boxFilter",
        [](const Image& image, int radius) {
            requireSize("radius", static_cast<float>(radius), 0);
            return written(image, [&](Image& output) {
                Image temporary = newLike(image);
                Common::boxFilter(image, temporary, output, radius);
            });
        },
        "image"_a, "radius"_a,
        "The mean over 2 * radius + 1 pixels along each axis; outside, the nearest pixel counts.");
    module.def(
        "gaussianBlur",
        [](const Image& image, float sigma) {
            requireSize("sigma", sigma, -most);
            if (sigma == 0) return copied(image);
            return written(image, [&](Image& output) {
                Image temporary = newLike(image);
                Common::gaussianBlur(image, temporary, output, sigma);
            });
        },
        "image"_a, "sigma"_a,
        R"(Blurs with the bell exp(-x^2 / sigma^2), sigma in pixels: narrower than the usual one by the root of
2. It reaches floor(3 |sigma| + 0.5) pixels, 63 at most. A sigma of 0 gives a copy.)");
    module.def("dilate", grown<Common::dilate>, "image"_a, "radius"_a, "right"_a = true, "left"_a = true, "up"_a = true,
               "down"_a = true, R"(1 where the sum of the pixels within a square of `radius` pixels is above 0, else 0.

Sides that are False aren't looked at. Outside the image its nearest pixel counts. radius: 0 to 65536, else ValueError.)");
    module.def("erode", grown<Common::erode>, "image"_a, "radius"_a, "right"_a = true, "left"_a = true, "up"_a = true,
               "down"_a = true, R"(0 where a pixel within a square of `radius` pixels is 0, else 1.

Sides, outside and radius: as of dilate.)");
    module.def(
        "maskEdges",
        [](const Image& image, int sides) {
            constexpr int lastSides = static_cast<int>(Common::Sides::upAndDown);
            if (sides < 0 || sides > lastSides) raiseValue("sides must be 0 .. " + std::to_string(lastSides) + ".");
            return written(image,
                           [&](Image& output) { Common::maskEdges(image, output, static_cast<Common::Sides>(sides)); });
        },
        "image"_a, "sides"_a,
        R"(1 where the mask isn't 0 and a neighbour is, else 0. Sides of the neighbour: 0 left, 1 right, 2 left
and right, 3 down, 4 up, 5 up and down.)");
    module.def(
        "growMask",
        [](const Image& mask, float amount, float blur) {
            requireSize("amount", amount, -most);
            requireSize("blur", blur, -most);
            return written(mask, [&](Image& output) {
                Image work1 = newLike(mask);
                Image work2 = newLike(mask);
                Common::growMask(mask, work1, work2, output, amount, blur);
            });
        },
        "mask"_a, "amount"_a, "blur"_a,
        R"(Widens a mask by `amount` pixels, fractions included, or narrows it by -amount, and blurs it as
gaussianBlur does with sigma `blur`.)");

    nb::class_<PullPush>(module, "PullPush",
                         "Fills the holes of a sparse picture from whatever surrounds them, at any distance.")
        .def(nb::init<int>(), "flags"_a = packedCode, "flags: as of `run`.")
        .def("apply", &PullPush::apply, "image"_a, "weights"_a,
             R"(The filled image. weights: one component, 0 in the holes, up to 1 where a pixel is sure. Boxes of
one size. Weights of 0 everywhere give 0.)");
}

}  // namespace ViewTint::Python
