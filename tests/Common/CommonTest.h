#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "Common/Common.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

/// The shared kernels, entered into the catalogue.
class CommonKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::Common::registerKernels(); }
};

/// What the last image held before at (x, y).
inline Pixel before(const Scene& scene, int x, int y) {
    const int last = static_cast<int>(scene.images().size()) - 1;
    Pixel pixel{};
    for (int c = 0; c < scene.count(last); ++c)
        pixel[c] = scene.at(last, x, y, c);
    return pixel;
}

inline Pixels constantPixels(const Box& box, int components, float value) {
    Pixels pixels(box, components);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = value; });
    return pixels;
}

/// One row of pixels of one component, from x0 on.
inline Pixels row(const std::vector<float>& values, int x0 = 0) {
    Pixels pixels({x0, 0, x0 + static_cast<int>(values.size()), 1}, 1);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = values[x - x0]; });
    return pixels;
}

/// What an operation leaves in an image that held `before`.
template <class Operation>
Pixels resultOf(Operation&& operation, const Pixels& before) {
    TestImage output(before, Arrangement::paddedPlanar);
    operation(output.image());
    return output.pixels();
}

}  // namespace ViewTint::Tests
