#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "PictureBuilder/PictureBuilder.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

class MarksKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::PictureBuilder::registerKernels(); }
};

struct Marking {
    float threshold = 1;
    bool forward = true;
    bool still = false;
    bool fromLeft = true;
    bool fromRight = true;
    int offset = 0;
};

int outward(float v) {
    return static_cast<int>(v < 0 ? std::floor(v) : std::ceil(v));
}

/// What a scene's marks hold afterwards: the rule, pixel by pixel, in single precision.
Pixels marked(const Scene& scene, const Marking& m) {
    Pixels marks = scene.images()[1];
    const Box& box = scene.box(0);
    const auto d = [&](int x, int y, int c) { return static_cast<float>(scene.clamped(0, x, y, c)); };
    const int t = m.still ? 0 : m.forward ? 1 : -1;
    const int s = std::max(1, static_cast<int>(std::ceil(box.width() / 1024.0f * 3.0f)));
    for (int y = box.y0; y < box.y1; ++y) {
        for (int x = box.x0; x < box.x1; ++x) {
            const float a = d(x + 1, y, 0) - d(x - 1, y, 0), b = d(x, y + 1, 1) - d(x, y - 1, 1);
            const float c = d(x + 1, y, 1) - d(x - 1, y, 1), e = d(x, y + 1, 0) - d(x, y - 1, 0);
            if (!(std::sqrt(a * a + c * c) > m.threshold || std::sqrt(e * e + b * b) > m.threshold)) continue;
            const float q = a + b;
            if (!((q < 0 && m.fromLeft) || (q > 0 && m.fromRight))) continue;
            const float u = d(x + s, y, 0) - d(x - s, y, 0);
            int width, height, nearEnd;
            if (u < 0 && m.fromLeft) {
                width = t * outward(u - static_cast<float>(m.offset));
                height = t * outward(b);
                nearEnd = t;
            } else if (u > 0 && m.fromRight) {
                width = height = t;
                nearEnd = 0;
            } else {
                continue;
            }
            const int g = (width > 0) - (width < 0);
            for (int i = std::min(g + width, g + nearEnd); i <= std::max(g + nearEnd, g + width); ++i)
                for (int j = std::min(height, 0); j <= std::max(0, height); ++j) {
                    const Box& target = marks.box();
                    marks.at(std::clamp(x + i, target.x0, target.x1 - 1), std::clamp(y + j, target.y0, target.y1 - 1),
                             0) = 1;
                }
        }
    }
    return marks;
}

KernelCase markingCase(const Marking& m) {
    // One scene is asked for pixel by pixel.
    struct Latest {
        const Scene* scene = nullptr;
        std::unique_ptr<Pixels> marks;
    };
    const auto latest = std::make_shared<Latest>();
    return {.kernel = "occlusionFromDisparityKernel",
            .reference =
                [=](const Scene& scene, int x, int y) {
                    const Box& box = scene.box(1);
                    if (latest->scene != &scene || (x == box.x0 && y == box.y0)) {
                        latest->scene = &scene;
                        latest->marks = std::make_unique<Pixels>(marked(scene, m));
                    }
                    return Pixel{latest->marks->at(x, y, 0)};
                },
            .scalars =
                [=](KernelExecutionContext& context) {
                    context.set({"threshold"}, m.threshold);
                    context.set({"forward"}, m.forward);
                    context.set({"still"}, m.still);
                    context.set({"fromLeft"}, m.fromLeft);
                    context.set({"fromRight"}, m.fromRight);
                    context.set({"offset"}, m.offset);
                },
            .tolerance = 0,
            // Steps and slopes rather than noise; each picture's first row also holds what no disparity should be.
            .range = [](const Box& box) { return IterationController::over(box); },
            .prepare =
                [](int index, Pixels& pixels) {
                    pixels.forEach([&](int x, int y, int c) {
                        float& v = pixels.at(x, y, c);
                        if (index == 1)
                            v = 0;
                        else if (std::isfinite(v) && std::abs(v) < 100)
                            v = std::floor(v * 2) * 1.7f + 0.3f * static_cast<float>(c);
                        else
                            v = NAN;
                    });
                }};
}

}  // namespace

TEST_F(MarksKernels, jumpsOfDisparity) {
    checkKernel(markingCase({.still = true}));
    checkKernel(markingCase({}));
    checkKernel(markingCase({.threshold = 2.5f, .forward = false, .offset = 2}));
    checkKernel(markingCase({.still = true, .fromLeft = false}));
    checkKernel(markingCase({.fromRight = false}));
}

TEST_F(MarksKernels, pointingOutOfTheFrame) {
    checkKernel({.kernel = "outOfFrameKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         const Box& box = scene.box(0);
                         const float tx = std::round(static_cast<float>(x) + static_cast<float>(scene.at(0, x, y, 0)));
                         const float ty = std::round(static_cast<float>(y) + static_cast<float>(scene.at(0, x, y, 1)));
                         const bool inside = tx >= box.x0 && tx < box.x1 && ty >= box.y0 && ty < box.y1;
                         return Pixel{inside ? scene.at(1, x, y, 0) : 1};
                     },
                 .tolerance = 0,
                 .prepare =
                     [](int index, Pixels& pixels) {
                         if (index == 0) pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) *= 10; });
                     }});
}

TEST_F(MarksKernels, theDisparityOfTheBackground) {
    for (const bool background : {true, false})
        checkKernel({.kernel = "pickDisparityKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             const bool first = (scene.at(0, x, y, 0) < scene.at(1, x, y, 0)) == background;
                             return Pixel{scene.at(first ? 0 : 1, x, y, 0), scene.at(first ? 0 : 1, x, y, 1)};
                         },
                     .scalars = [=](KernelExecutionContext& context) { context.set({"background"}, background); },
                     .tolerance = 0});
}

}  // namespace ViewTint::Tests
