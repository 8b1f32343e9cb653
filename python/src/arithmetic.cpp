#include <algorithm>
#include <optional>

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/variant.h>

#include "operations.h"

namespace ViewTint::Python {

namespace {

namespace Common = Vellum::Common;

Box boxAround(const Box& a, const Box& b) {
    return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

}  // namespace

void bindArithmetic(nb::module_& module) {
    module.def(
        "invert",
        [](const Image& image) { return written(image, [&](Image& output) { Common::invert(image, output); }); },
        "image"_a, "1 - image.");
    module.def(
        "max",
        [](const Image& a, const Image& b) { return written(a, [&](Image& output) { Common::max(a, b, output); }); },
        "a"_a, "b"_a, "b where b > a, else a; so a where either is NaN.");
    module.def("add", ofTwo<Common::add>, "a"_a, "b"_a, "a + b.");
    module.def("subtract", ofTwo<Common::subtract>, "a"_a, "b"_a, "a - b.");
    module.def("multiply", ofTwo<Common::multiply>, "a"_a, "b"_a, "a * b.");
    module.def("divide", ofTwo<Common::divide>, "a"_a, "b"_a, "a / b, 0 where b is 0.");
    module.def("complexMultiply", ofTwo<Common::complexMultiply>, "a"_a, "b"_a,
               "The product of complex numbers: component 0 is the real part, component 1 the imaginary one.");
    module.def(
        "multiplyConstant",
        [](const Image& image, const OneOrFour& value) {
            return written(image, [&](Image& output) { Common::multiplyConstant(image, output, fourOf(value)); });
        },
        "image"_a, "value"_a, "image * value; the value is a number, or one of four for each component.");
    module.def(
        "addConstant",
        [](const Image& image, const OneOrFour& value) {
            return written(image, [&](Image& output) { Common::addConstant(image, output, fourOf(value)); });
        },
        "image"_a, "value"_a, "image + value; the value is a number, or one of four for each component.");
    module.def(
        "clamp",
        [](const Image& image, float lower, float upper) {
            return written(image, [&](Image& output) { Common::clamp(image, output, lower, upper); });
        },
        "image"_a, "lower"_a, "upper"_a, "Limits values to lower .. upper; upper, if lower is above it. NaN stays.");
    module.def(
        "softLimit",
        [](const Image& image, float limit, float softness) {
            return written(image, [&](Image& output) { Common::softLimit(image, output, limit, softness); });
        },
        "image"_a, "limit"_a, "softness"_a,
        R"(Values within limit - softness stay and bend, over 2 * softness, into `limit`, which is reached at
limit + softness. Values of -limit - softness and below, and NaN, give +limit.)");
    module.def(
        "threshold",
        [](const Image& image, float threshold, bool binarise) {
            return written(image, [&](Image& output) { Common::threshold(image, output, threshold, binarise); });
        },
        "image"_a, "threshold"_a, "binarise"_a,
        "The image, or 1 with `binarise`, where it is above threshold, else 0.");
    module.def(
        "maskMix",
        [](const Image& a, const Image& b, const Image& mask) {
            return written(a, [&](Image& output) { Common::maskMix(a, b, mask, output); });
        },
        "a"_a, "b"_a, "mask"_a, "mask * a + (1 - mask) * b, the mask having one component.");
    module.def(
        "multiplyByMask",
        [](const Image& image, const Image& mask, bool invert) {
            return written(image, [&](Image& output) { Common::multiplyByMask(image, mask, output, invert); });
        },
        "image"_a, "mask"_a, "invert"_a = false, "image * mask, with `invert` image * (1 - mask).");
    module.def(
        "crossFade",
        [](const Image& a, const Image& b, float mix, bool clampMix, const Float4& outsideA, const Float4& outsideB,
           const std::optional<Corners>& box) {
            return unlocked([&] {
                Image output = newOver(box ? boxOf(*box) : boxAround(a.box(), b.box()), a);
                Common::crossFade(a, b, output, mix, clampMix, outsideA, outsideB);
                return output;
            });
        },
        "a"_a, "b"_a, "mix"_a, "clampMix"_a = true, "outsideA"_a = Float4{}, "outsideB"_a = Float4{},
        "box"_a = nb::none(),
        R"(mix * a + (1 - mix) * b over `box`, or over the smallest box that holds both. Outside its own box an
image has the colour outsideA, outsideB. clampMix limits mix to 0 .. 1.)");
    module.def(
        "weightedComponentSum",
        [](const Image& image, const Float4& weights, bool normalise) {
            return unlocked([&] { return Common::weightedComponentSum(image, weights, normalise); });
        },
        "image"_a, "weights"_a, "normalise"_a,
        R"(The weighted sum of the components, as an image of one. `normalise` divides the four weights by
their sum.)");
}

}  // namespace ViewTint::Python
