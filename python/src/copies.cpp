#include <nanobind/stl/array.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/variant.h>

#include "operations.h"

namespace ViewTint::Python {

namespace {

namespace Common = Vellum::Common;

}  // namespace

void bindCopies(nb::module_& module) {
    module.def("copy", copied, "image"_a, "A copy.");
    module.def(
        "copy",
        [](const Image& image, const Corners& box, Image& output, int targetX, int targetY) {
            unlocked([&] { Common::copy(image, boxOf(box), output, targetX, targetY); });
        },
        "image"_a, "box"_a, "output"_a, "targetX"_a, "targetY"_a,
        R"(Puts the pixels of `box` into `output`, their lower left corner at (targetX, targetY), as far as
both have them. Changes output.)");
    module.def(
        "copyChannel",
        [](const Image& image, Image& output, int sourceChannel, int destChannel) {
            unlocked([&] { Common::copyChannel(image, output, sourceChannel, destChannel); });
        },
        "image"_a, "output"_a, "sourceChannel"_a, "destChannel"_a,
        "Component destChannel of output becomes component sourceChannel of the image. Changes output.");
    module.def(
        "copyChannelRange",
        [](const Image& image, Image& output, int firstChannel, int lastChannel) {
            unlocked([&] { Common::copyChannelRange(image, output, firstChannel, lastChannel); });
        },
        "image"_a, "output"_a, "firstChannel"_a, "lastChannel"_a,
        "Copies components firstChannel to lastChannel, both included, each to its own place. Changes output.");
    module.def(
        "copyClamped",
        [](const Image& image, const Corners& box) {
            return unlocked([&] {
                Image output = newOver(boxOf(box), image);
                Common::copyClamped(image, output);
                return output;
            });
        },
        "image"_a, "box"_a,
        "The image over another box (x0, y0, x1, y1): pixels that it doesn't have are its nearest ones.");
    module.def(
        "clear", [](Image& image) { unlocked([&] { Common::clear(image); }); }, "image"_a, "Sets the image to 0.");
    module.def(
        "fillConstant",
        [](Image& image, const OneOrFour& value) { unlocked([&] { Common::fillConstant(image, fourOf(value)); }); },
        "image"_a, "value"_a, "Sets the image to one number, or to one of four for each component.");
    module.def(
        "fillWhereMask",
        [](Image& image, const Image& mask, const OneOrFour& value, bool invert) {
            unlocked([&] { Common::fillWhereMask(image, mask, fourOf(value), invert); });
        },
        "image"_a, "mask"_a, "value"_a, "invert"_a = false,
        R"(Puts the value (a number or four) where the mask of one component is above 0, with `invert` where it
is exactly 0. Changes the image.)");
}

}  // namespace ViewTint::Python
