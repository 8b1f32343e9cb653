// What the bindings of operations share.
#pragma once

#include <array>
#include <tuple>
#include <variant>

#include "Common/Common.h"
#include "bindings.h"
#include "compute/HostDevice.h"

namespace ViewTint::Python {

using namespace nb::literals;
using Vellum::Common::Box;
using Vellum::Common::Float4;
using Vellum::Common::Image;

/// One number for all components, or one for each.
using OneOrFour = std::variant<float, Float4>;
/// A box as (x0, y0, x1, y1).
using Corners = std::tuple<int, int, int, int>;

inline Float4 fourOf(const OneOrFour& value) {
    if (const auto* one = std::get_if<float>(&value)) return {*one, *one, *one, *one};
    return std::get<Float4>(value);
}

inline Box boxOf(const Corners& corners) {
    const auto& [x0, y0, x1, y1] = corners;
    return {x0, y0, x1, y1};
}

inline Image newLike(const Image& model) {
    return model.makeLike(Vellum::Compute::Host::hostDevice());
}

inline Image newOver(const Box& box, const Image& model) {
    requirePlace(box);
    return Image({box, model.components()}, Vellum::Compute::Host::hostDevice(), model.tile().layout.spec);
}

/// A new image like the model, written by operation(output).
template <class Operation>
Image written(const Image& model, Operation&& operation) {
    return unlocked([&] {
        Image output = newLike(model);
        operation(output);
        return output;
    });
}

using OfOne = void (*)(const Image&, Image&);
using OfTwo = void (*)(const Image&, const Image&, Image&);

template <OfOne operation>
Image ofOne(const Image& image) {
    return written(image, [&](Image& output) { operation(image, output); });
}

template <OfTwo operation>
Image ofTwo(const Image& a, const Image& b) {
    return written(a, [&](Image& output) { operation(a, b, output); });
}

inline Image copied(const Image& image) {
    return ofOne<Vellum::Common::copy>(image);
}

}  // namespace ViewTint::Python
