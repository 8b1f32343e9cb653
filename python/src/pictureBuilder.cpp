#include "PictureBuilder/PictureBuilder.h"

#include <fmt/format.h>
#include <nanobind/stl/array.h>

#include "operations.h"
#include "requirements.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Utils::BufferManagement::BufferManager;
using Builder = Vellum::PictureBuilder::PictureBuilder;
using Size = std::array<int, 2>;

/// A new image over the model's box.
Image over(const Image& model, std::uint32_t components) {
    return Image({model.box(), components}, hostDevice());
}

/// The builder's settings; its buffers belong to one call, so that threads can share the object.
class PictureBuilder {
public:
    PictureBuilder(int direction, const Size& wrapSize) : direction_(direction), wrapSize_(wrapSize) {
        if (direction != 0 && direction != 1)
            raiseValue(
                "direction must be 0 (sample view A through the first two components of the disparity) or 1 "
                "(view B through the other two).");
    }

    Image build(const Image& viewA, const Image& viewB, const Image& disparity, const Image& occlusion) const {
        requireComponents("viewA", viewA, 4);
        requireComponents("viewB", viewB, 4);
        requireComponents("disparity", disparity, 4);
        requireComponents("occlusion", occlusion, 1);
        requireSameBox("occlusion", occlusion, "disparity", disparity);
        return run(disparity, 4,
                   [&](Builder& builder, Image& result) { builder.build(viewA, viewB, disparity, occlusion, result); });
    }

    Image warp(const Image& image, const Image& displacement) const {
        requireComponents("displacement", displacement, 2);
        return run(displacement, image.components(),
                   [&](Builder& builder, Image& result) { builder.warp(image, displacement, result); });
    }

    Image markOcclusion(const Image& displacement) const {
        requireComponents("displacement", displacement, 2);
        return run(displacement, 1,
                   [&](Builder& builder, Image& result) { builder.markOcclusion(displacement, result); });
    }

    Image fillHoles(const Image& picture, const Image& warped, const Image& displacement, const Image& marks) const {
        requireComponents("picture", picture, 4);
        requireComponents("warped", warped, 4);
        requireComponents("displacement", displacement, 2);
        requireComponents("marks", marks, 1);
        requireSameBox("warped", warped, "displacement", displacement);
        requireSameBox("marks", marks, "displacement", displacement);
        return run(displacement, 4, [&](Builder& builder, Image& result) {
            builder.fillHoles(picture, warped, displacement, marks, result);
        });
    }

private:
    template <class Step>
    Image run(const Image& model, std::uint32_t components, Step&& step) const {
        return unlocked([&] {
            BufferManager buffers(hostDevice(), hostDevice());
            Builder builder(buffers, false, 3, 1, true, packedCode);
            builder.setDirection(direction_);
            builder.setWrapSize(wrapSize_);
            Image result = over(model, components);
            step(builder, result);
            return result;
        });
    }

    int direction_;
    Size wrapSize_;
};

}  // namespace

void bindPictureBuilder(nb::module_& module) {
    nb::class_<PictureBuilder>(
        module, "PictureBuilder",
        R"(Brings the other view onto the geometry of the view to correct: each pixel is sampled where the disparity
points to, and what the other view doesn't show through the disparity of the background beside it.

Disparities are in pixels, x to the right, y up, from a pixel to its counterpart.)")
        .def(nb::init<int, const Size&>(), "direction"_a, "wrapSize"_a = Size{-1, -1},
             R"(direction: 0 samples view A through components 0 and 1 of the disparity, 1 view B through components
2 and 3. wrapSize: width and height of the format; both at least 1 make columns close round the width, as in a
panorama; otherwise columns are clamped. Rows always are.)")
        .def("build", &PictureBuilder::build, "viewA"_a, "viewB"_a, "disparity"_a, "occlusion"_a,
             R"(The rebuilt view, 4 components over the disparity's box; its alpha is 0 where occlusion is above 0, its
colours are NaN where the filter reaches a pixel that is NaN, infinite or beyond 1e12.

viewA, viewB: 4 components, linear light. disparity: 4. occlusion: 1, in the disparity's box. Else ValueError.)")
        .def(
            "warp", &PictureBuilder::warp, "image"_a, "displacement"_a,
            R"(The image at (x, y) + displacement (2 components) by a Lanczos window of half-width 3, mixed as sRGB codes.
0 where the displacement is NaN or infinite.)")
        .def("markOcclusion", &PictureBuilder::markOcclusion, "displacement"_a,
             R"(1 where the displacement (2 components) jumps by more than a pixel or points out of its box, else 0.)")
        .def("fillHoles", &PictureBuilder::fillHoles, "picture"_a, "warped"_a, "displacement"_a, "marks"_a,
             R"(`warped` (4 components), with what `marks` (1) shows, grown by 3 pixels, sampled anew from `picture` (4)
through the displacement (2) of the background at the holes' rims, and a soft seam.)");
}

}  // namespace ViewTint::Python
