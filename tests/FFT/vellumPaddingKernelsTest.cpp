#include <gtest/gtest.h>

#include <memory>

#include "FFT/FourierTransform.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

class PaddingKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::FFT::registerKernels(); }
};

/// What O holds after one cell after the other was put where it wraps to.
Pixels paddedKernel(const Scene& s, int channel) {
    Pixels padded = s.images()[1];
    const Box& kernel = s.box(0);
    const Box& box = padded.box();
    for (int y = 0; y < kernel.height(); ++y)
        for (int x = 0; x < kernel.width(); ++x) {
            const auto wrapped = [](int place, int size) { return (place % size + size) % size; };
            padded.at(box.x0 + wrapped(x - kernel.width() / 2, box.width()),
                      box.y0 + wrapped(y - kernel.height() / 2, box.height()), 0) =
                static_cast<float>(s.at(0, kernel.x0 + x, kernel.y0 + y, channel));
        }
    return padded;
}

KernelCase kernelCase(const std::function<Box(const Box&)>& boxOfKernel) {
    struct Latest {
        const Scene* scene = nullptr;
        std::unique_ptr<Pixels> pixels;
    };
    const auto latest = std::make_shared<Latest>();
    return {.kernel = "padKernelKernel",
            .reference =
                [=](const Scene& s, int x, int y) {
                    if (latest->scene != &s || (x == s.box(1).x0 && y == s.box(1).y0)) {
                        latest->scene = &s;
                        latest->pixels = std::make_unique<Pixels>(paddedKernel(s, std::min(1, s.count(0) - 1)));
                    }
                    return Pixel{latest->pixels->at(x, y, 0)};
                },
            .scalars = [](KernelExecutionContext& context) { context.set({"channel"}, 1); },
            .tolerance = 0,
            .range = [=](const Box& box) { return IterationController::over(boxOfKernel(box)); },
            .boxOf = [=](int index, const Box& box) { return index == 0 ? boxOfKernel(box) : box; },
            .smallest = 1};
}

/// Component `channel` of image 0 at (x, y), or the filling outside.
double atOr(const Scene& s, int x, int y, int channel, double filling) {
    const Box& box = s.box(0);
    const bool inside = x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1;
    return inside ? s.at(0, x, y, channel) : filling;
}

constexpr std::array<float, 4> filling{0.5f, -2, 3, 4};

}  // namespace

TEST_F(PaddingKernels, kernelsWrapRoundTheCorner) {
    checkKernel(kernelCase([](const Box& box) { return Box{3, -2, 3 + std::max(1, box.width() / 2), 2}; }));
}

/// Cells of a kernel larger than its padded picture fall on one place: the later one stays.
TEST_F(PaddingKernels, laterCellsStay) {
    checkKernel(kernelCase([](const Box& box) { return Box{-5, 0, 2 * box.width(), 2 * box.height() + 1}; }));
}

TEST_F(PaddingKernels, picturesAreFilledUp) {
    for (const int smaller : {-3, 2})  // a larger picture, and one that is filled up
        checkKernel({.kernel = "padImageKernel",
                     .reference =
                         [](const Scene& s, int x, int y) {
                             const int channel = std::min(2, s.count(0) - 1);
                             return Pixel{atOr(s, x + s.box(0).x0, y + s.box(0).y0, channel, filling[channel])};
                         },
                     .scalars =
                         [](KernelExecutionContext& context) {
                             context.set({"channel"}, 2);
                             context.set({"fillValue"}, filling);
                         },
                     .tolerance = 0,
                     .boxOf =
                         [=](int index, const Box& box) {
                             if (index != 0) return box;
                             return Box{7, -4, 7 + std::max(1, box.width() - smaller),
                                        -4 + std::max(1, box.height() - smaller)};
                         }});
}

TEST_F(PaddingKernels, resultsAreCutAndScaled) {
    for (const int smaller : {-5, 2}) {
        // Two numbers of the cut that don't follow from the images.
        constexpr int left = -1, bottom = 2;
        checkKernel({.kernel = "cropKernel",
                     .reference =
                         [](const Scene& s, int x, int y) {
                             Pixel pixel{};
                             for (int c = 0; c < s.count(1); ++c)
                                 pixel[c] = s.at(1, x, y, c);
                             const int channel = std::min(1, s.count(1) - 1);
                             pixel[channel] = 0.25f * atOr(s, x - left, y - bottom, 0, filling[channel]);
                             return pixel;
                         },
                     .scalars =
                         [](KernelExecutionContext& context) {
                             context.set({"channel"}, 1);
                             context.set({"box"}, std::array<int, 4>{left, bottom, 100, 100});
                             context.set({"scale"}, 0.25f);
                             context.set({"fillValue"}, filling);
                         },
                     .boxOf =
                         [=](int index, const Box& box) {
                             if (index != 0) return box;
                             return Box{0, 0, std::max(1, box.width() - smaller), std::max(1, box.height() - smaller)};
                         }});
    }
}

}  // namespace ViewTint::Tests
