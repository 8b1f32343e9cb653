#pragma once

#include <gtest/gtest.h>

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

}  // namespace ViewTint::Tests
