#include "compute/Image.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <span>

#include <fmt/format.h>
#include <nanobind/ndarray.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>

#include "bindings.h"
#include "compute/HostDevice.h"

namespace ViewTint::Python {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Image::Box;
using Vellum::Image::Image;
using Vellum::Image::Info;
using Vellum::Image::Layout;

using AnyArray = nb::ndarray<nb::ro, nb::device::cpu>;
using FloatArray = nb::ndarray<const float, nb::device::cpu>;
using NewArray = nb::ndarray<float, nb::numpy, nb::ndim<3>, nb::c_contig>;

constexpr Vellum::Image::LayoutSpec planarLayout = Vellum::Image::ordinaryLayout;
constexpr Vellum::Image::LayoutSpec packedLayout{2, 1, 0};

/// The array behind a Python object, which must be one of float32.
AnyArray floatsOf(nb::handle object) {
    AnyArray array;
    if (nb::try_cast(object, array) && array.dtype() == nb::dtype<float>()) return array;
    std::string found = nb::type_name(object.type()).c_str();
    if (nb::hasattr(object, "dtype")) found += " of " + textOf(object.attr("dtype"));
    throw nb::type_error(
        ("Image needs an array of float32, not " + found + "; numpy.asarray(array, numpy.float32) makes one.").c_str());
}

std::string shapeText(const AnyArray& array) {
    const auto sizes = std::span(array.shape_ptr(), array.ndim());
    return fmt::format("({}{})", fmt::join(sizes, ", "), array.ndim() == 1 ? "," : "");
}

Info infoFor(const AnyArray& array, int x0, int y0) {
    const std::size_t components = array.ndim() == 3 ? array.shape(2) : 1;
    if ((array.ndim() != 2 && array.ndim() != 3) || array.size() == 0 || components > 4)
        raiseValue("Image needs an array of shape (height, width) or (height, width, 1 to 4), not " + shapeText(array) +
                   ".");
    const auto end = [](int start, std::size_t length) {
        return static_cast<int>(std::min<std::int64_t>(start + static_cast<std::int64_t>(length), INT_MAX));
    };
    const Box box{x0, y0, end(x0, array.shape(1)), end(y0, array.shape(0))};
    requirePlace(box);
    return {box, static_cast<std::uint32_t>(components)};
}

/// Memory of a NumPy array as an image; strides in bytes, of any sign.
Image wrapped(const Info& info, const float* data, std::int64_t x, std::int64_t y, std::int64_t component) {
    const auto layout = Layout::withStrides(info, x, y, component);
    return wrapMemory(layout, new Cobalt::Device::MemoryBlock(const_cast<float*>(data), 0), hostDevice());
}

Image imageOf(const AnyArray& array, int x0, int y0, bool planar) {
    const Info info = infoFor(array, x0, y0);
    const auto stride = [&](std::size_t axis) { return axis < array.ndim() ? array.stride(axis) * 4 : 0; };
    const auto* data = static_cast<const float*>(array.data());
    return unlocked([&] {
        Image image(info, hostDevice(), planar ? planarLayout : packedLayout);
        image.copyFrom(wrapped(info, data, stride(1), stride(0), stride(2)));
        return image;
    });
}

NewArray arrayOf(const Image& image) {
    const std::size_t height = image.box().height();
    const std::size_t width = image.box().width();
    const std::size_t components = image.components();
    auto values = std::make_unique_for_overwrite<float[]>(height * width * components);
    unlocked([&] {
        constexpr std::int64_t size = sizeof(float);
        const std::int64_t pixel = size * image.components();
        wrapped(image.info(), values.get(), pixel, pixel * image.box().width(), size).copyFrom(image);
    });
    float* const data = values.release();
    const nb::capsule owner(data, [](void* address) noexcept { delete[] static_cast<float*>(address); });
    return NewArray(data, {height, width, components}, owner);
}

std::string represented(const Image& image) {
    const Box& box = image.box();
    return fmt::format("viewtint.Image(box=({}, {}, {}, {}), components={})", box.x0, box.y0, box.x1, box.y1,
                       image.components());
}

}  // namespace

void requirePlace(const Box& box) {
    constexpr int most = 1 << 28;
    if (std::min(box.x0, box.y0) < -most || std::max(box.x1, box.y1) > most)
        raiseValue(fmt::format("An image can't lie at {}: coordinates run from {} to {}.", toString(box), -most, most));
    if (box.empty()) raiseValue(fmt::format("An image over {} would have no pixels.", toString(box)));
}

void bindImage(nb::module_& module) {
    nb::class_<Image>(module, "Image", R"(A raster of 1 to 4 float32 components on a box of the plane.

Only `run` with a kernel that writes it, and the operations that say so, change an image.)")
        .def(
            "__init__",
            [](Image* self, const nb::typed<nb::object, FloatArray>& array, int x0, int y0, bool planar) {
                new (self) Image(imageOf(floatsOf(array), x0, y0, planar));
            },
            nb::arg("array"), nb::arg("x0") = 0, nb::arg("y0") = 0, nb::arg("planar") = true,
            R"(Copies an array of float32 and shape (height, width) or (height, width, components).

array: any strides; row 0 is the lowest. Other types of number aren't converted: TypeError. Other shapes: ValueError.
x0, y0: where the lower left pixel lies, in pixels. Images lie within -2^28 .. 2^28.
planar: one plane for each component; False lays the components of a pixel side by side. Results are the same.)")
        .def_prop_ro(
            "box",
            [](const Image& image) {
                const Box& box = image.box();
                return std::make_tuple(box.x0, box.y0, box.x1, box.y1);
            },
            "(x0, y0, x1, y1) in pixels, x1 and y1 excluded.")
        .def_prop_ro("components", &Image::components, "1 to 4.")
        .def_prop_ro("array", arrayOf, nb::rv_policy::move,
                     "A copy of the pixels, of shape (height, width, components); row 0 is y0.")
        .def("__repr__", represented);
}

}  // namespace ViewTint::Python
