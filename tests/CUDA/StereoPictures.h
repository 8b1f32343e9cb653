#pragma once

#include <cmath>
#include <functional>

#include "compute/HostDevice.h"
#include "host/graph/NodeRender.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

/// A pair whose left view is tinted, differently from left to right: waves with some grain, and a step in the disparity
/// with what it hides.
inline Host::FramePictures stereoPictures(const Box& frame) {
    const auto image = [&](int components, const std::function<float(int x, int y, int c)>& value) {
        Pixels pixels(frame, components);
        pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = value(x, y, c); });
        Image made({frame, static_cast<std::uint32_t>(components)}, Vellum::Compute::Host::hostDevice());
        made.copyFrom(TestImage(pixels, Arrangement::planar).image());
        return made;
    };
    const Pixels grain = randomPixels({frame.x0, frame.y0, frame.x1 + 2, frame.y1}, 3, 3, false);
    const auto view = [&](bool left) {
        return image(4, [&](int x, int y, int c) {
            if (c == 3) return 1.0f;
            const int sampled = left ? x : x + 2;
            const float u = static_cast<float>(sampled), v = static_cast<float>(y);
            const float shape = 0.35f + 0.15f * std::sin(0.2f * u + static_cast<float>(c)) * std::cos(0.13f * v) +
                                0.01f * grain.at(sampled, y, c);
            const float across = u / static_cast<float>(frame.width());
            return left ? shape * (1 + static_cast<float>(c - 1) * (0.2f - 0.3f * across)) : shape;
        });
    };
    const int step = frame.width() * 2 / 5;
    return {.left = view(true),
            .right = view(false),
            .disparity = image(4, [=](int x, int, int c) { return c == 2 ? (x < step ? -2.0f : -3.0f) : 0.0f; }),
            .occlusions = {image(1, [=](int x, int, int) { return x >= step - 2 && x < step + 2 ? 1.0f : 0.0f; })}};
}

}  // namespace ViewTint::Tests
