#include <nanobind/stl/array.h>
#include <nanobind/stl/variant.h>

#include "operations.h"

namespace ViewTint::Python {

namespace {

namespace Common = Vellum::Common;

using Matrix = std::array<float, 9>;
using MatrixRows = std::array<std::array<float, 3>, 3>;

Matrix matrixOf(const std::variant<Matrix, MatrixRows>& value) {
    if (const auto* matrix = std::get_if<Matrix>(&value)) return *matrix;
    Matrix matrix;
    for (int i = 0; i < 9; ++i)
        matrix[i] = std::get<MatrixRows>(value)[i / 3][i % 3];
    return matrix;
}

/// For conversions of components 0 to 2 that leave the output's fourth as it is: it comes along from the image.
template <class Operation>
Image converted(const Image& image, Operation&& operation) {
    return written(image, [&](Image& output) {
        output.copyFrom(image);
        operation(output);
    });
}

using Conversion = void (*)(const Image&, Image&, int flags);

template <Conversion conversion>
Image colourOf(const Image& image) {
    return converted(image, [&](Image& output) { conversion(image, output, packedCode); });
}

}  // namespace

void bindColour(nb::module_& module) {
    module.def(
        "colourMatrix",
        [](const Image& image, const std::variant<Matrix, MatrixRows>& matrix) {
            return converted(image,
                             [&](Image& output) { Common::colourMatrix(image, output, matrixOf(matrix), packedCode); });
        },
        "image"_a, "matrix"_a,
        "Components 0 to 2 times a matrix of 3 x 3, or 9 numbers row by row. A fourth component stays.");
    module.def("xyzToLab", colourOf<Common::xyzToLab>, "image"_a,
               "XYZ with the white point (1, 1, 1) to scaled Lab, see rgbToLab.");
    module.def("labToXyz", colourOf<Common::labToXyz>, "image"_a, "The inverse of xyzToLab.");
    module.def("rgbToXyz", colourOf<Common::rgbToXyz>, "image"_a,
               "Linear RGB of 3 or 4 components to XYZ with the white point (1, 1, 1). A fourth component stays.");
    module.def("xyzToRgb", colourOf<Common::xyzToRgb>, "image"_a, "The inverse of rgbToXyz.");
    module.def(
        "rgbToLab", colourOf<Common::rgbToLab>, "image"_a,
        R"(Linear RGB of 3 or 4 components to scaled Lab: L in 0 .. 1, a and b a hundredth of the usual values, and
0 exactly where R = G = B. A fourth component stays.)");
    module.def("labToRgb", colourOf<Common::labToRgb>, "image"_a, "The inverse of rgbToLab.");
    module.def("srgbToLinear", ofOne<Common::srgbToLinear>, "image"_a,
               "Takes the sRGB curve off components 0 to 2. A fourth component stays.");
    module.def("linearToSrgb", ofOne<Common::linearToSrgb>, "image"_a,
               "Puts the sRGB curve on components 0 to 2. A fourth component stays.");
}

}  // namespace ViewTint::Python
