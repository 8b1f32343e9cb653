#include "ToneAligner/src/vellumFillMask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "tests/harness/KernelHarness.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Tone::FillMaskSettings;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;
const Box frame{-4, 3, 61, 46};

class OcclusionKernels : public testing::Test {
protected:
    static void SetUpTestSuite() {
        Vellum::Common::registerKernels();
        Vellum::Tone::registerKernels();
    }
};
using FillMask = OcclusionKernels;

/// |gx| + |gy| of component c by the operators written as matrices.
double sobel(const std::function<double(int, int)>& at) {
    constexpr double across[3] = {-1, 0, 1}, smooth[3] = {1, 2, 1};
    double gx = 0, gy = 0;
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            if (i != 0) gx += across[i + 1] * smooth[j + 1] * at(i, j);
            if (j != 0) gy += smooth[i + 1] * across[j + 1] * at(i, j);
        }
    return std::abs(gx) + std::abs(gy);
}

double merged(double a, double b) {
    const double m = b > a ? b : a;
    return m < 0.001f ? 0 : m > 0.999f ? 1 : m;
}

struct Detection {
    float scale = 1;
    bool thin = true;
};

/// What the marks hold afterwards: the rule pixel by pixel, in single precision.
Pixels marked(const Scene& scene, const Detection& detection) {
    Pixels marks = scene.images()[1];
    const Box& box = scene.box(0);
    const Box& target = marks.box();
    const int s = std::max(1, static_cast<int>(std::ceil(box.width() / 1024.0f * 3.0f)));
    for (int y = box.y0; y < box.y1; ++y)
        for (int x = box.x0; x < box.x1; ++x) {
            const auto jump = [&](int dx, int dy, int c) {
                return (static_cast<float>(scene.clamped(0, x + dx, y + dy, c)) -
                        static_cast<float>(scene.clamped(0, x - dx, y - dy, c))) *
                       detection.scale;
            };
            const float a = jump(1, 0, 0), b = jump(0, 1, 1), c = jump(1, 0, 1), e = jump(0, 1, 0);
            if (!(std::sqrt(a * a + c * c) > 1) && !(std::sqrt(e * e + b * b) > 1)) continue;
            const auto half = [&](float v) {
                if (detection.thin || std::isnan(v)) return 0L;
                return std::lround(std::min(std::abs(v), 1e6f));
            };
            const long w = half(jump(s, 0, 0)), h = half(jump(0, s, 1));
            const auto column = [&](long to) { return std::clamp<long>(to, target.x0, target.x1 - 1); };
            const auto row = [&](long to) { return std::clamp<long>(to, target.y0, target.y1 - 1); };
            for (long j = row(y - h); j <= row(y + h); ++j)
                for (long i = column(x - w); i <= column(x + w); ++i)
                    marks.at(static_cast<int>(i), static_cast<int>(j), 0) = 1;
        }
    return marks;
}

KernelCase edgeCase(const Detection& detection) {
    struct Latest {
        const Scene* scene = nullptr;
        std::unique_ptr<Pixels> marks;
    };
    const auto latest = std::make_shared<Latest>();
    return {.kernel = "disparityEdgeKernel",
            .reference =
                [=](const Scene& scene, int x, int y) {
                    const Box& box = scene.box(1);
                    if (latest->scene != &scene || (x == box.x0 && y == box.y0)) {
                        latest->scene = &scene;
                        latest->marks = std::make_unique<Pixels>(marked(scene, detection));
                    }
                    return Pixel{latest->marks->at(x, y, 0)};
                },
            .scalars =
                [=](KernelExecutionContext& context) {
                    context.set({"scale"}, detection.scale);
                    context.set({"thin"}, detection.thin);
                },
            // Marks land outside a smaller range too.
            .range = [](const Box& box) { return IterationController::over(box); },
            .prepare =
                [](int index, Pixels& pixels) {
                    if (index != 0) return;
                    pixels.forEach([&](int x, int y, int c) {
                        // A foreground of 3 and of -2.5 pixels beside a background that rises gently.
                        float& d = pixels.at(x, y, c);
                        if (std::abs(d) < 1.6f) d = 0.02f * d + (x > y ? 3.0f : c == 0 ? 0.0f : -2.5f) + 0.01f * x;
                    });
                }};
}

/// A bell exp(-x^2 / sigma^2) over floor(3 sigma + 0.5) pixels to each side, along both axes, with the nearest pixel
/// beyond the edge.
Pixels blurred(const Pixels& source, double sigma) {
    if (sigma == 0) return source;
    const int radius = std::min(63, static_cast<int>(std::floor(3 * std::abs(sigma) + 0.5)));
    const Box& box = source.box();
    double total = 0;
    const auto tap = [&](int i) { return std::exp(-i * i / (sigma * sigma)); };
    for (int i = -radius; i <= radius; ++i)
        total += tap(i);
    const auto along = [&](const Pixels& from, int dx, int dy) {
        Pixels to(box, 1);
        to.forEach([&](int x, int y, int) {
            double sum = 0;
            for (int i = -radius; i <= radius; ++i)
                sum +=
                    tap(i) / total *
                    from.at(std::clamp(x + i * dx, box.x0, box.x1 - 1), std::clamp(y + i * dy, box.y0, box.y1 - 1), 0);
            to.at(x, y, 0) = static_cast<float>(sum);
        });
        return to;
    };
    return along(along(source, 1, 0), 0, 1);
}

/// Dilated by a square of that radius, or eroded by -radius.
Pixels grown(const Pixels& source, int radius) {
    const Box& box = source.box();
    Pixels result(box, 1);
    const int reach = std::abs(radius);
    result.forEach([&](int x, int y, int) {
        bool any = false, all = true;
        for (int j = -reach; j <= reach; ++j)
            for (int i = -reach; i <= reach; ++i) {
                const bool set =
                    source.at(std::clamp(x + i, box.x0, box.x1 - 1), std::clamp(y + j, box.y0, box.y1 - 1), 0) > 0;
                any |= set;
                all &= set;
            }
        result.at(x, y, 0) = (radius >= 0 ? any : all) ? 1.0f : 0.0f;
    });
    return result;
}

/// What a render hands over: two flat areas in each view, a slanted occlusion, two edges.
struct MaskScene {
    Pixels source = picture(0.2f, 0.65f);
    Pixels rebuilt = picture(0.1f, 0.9f);
    Pixels occlusion = marks([](int x, int y) { return x > 5 && x < 15 && y - x > 4; });
    Pixels edges = marks([](int x, int y) { return std::abs(x - 40) < 4 || (y == 30 && x > 20); });
    FillMaskSettings settings;

    static Pixels picture(float dark, float bright) {
        Pixels pixels(frame, 4);
        pixels.forEach([&](int x, int y, int c) {
            pixels.at(x, y, c) = (x + 2 * y < 70 ? dark : bright) + 0.05f * static_cast<float>(c);
        });
        return pixels;
    }
    template <class F>
    static Pixels marks(F&& where) {
        Pixels pixels(frame, 1);
        pixels.forEach([&](int x, int y, int) { pixels.at(x, y, 0) = where(x, y) ? 1.0f : 0.0f; });
        return pixels;
    }

    Pixels run() const {
        BufferManager manager(hostDevice(), hostDevice());
        const TestImage views[] = {{source, Arrangement::planar}, {rebuilt, Arrangement::packed}};
        const TestImage occluded(occlusion, Arrangement::planar), edge(edges, Arrangement::paddedPlanar);
        TestImage mask(Pixels(frame, 1), Arrangement::planar);
        Vellum::Tone::buildFillMask(manager, settings, views[0].image(), views[1].image(), occluded.image(),
                                    edge.image(), mask.image(), packed);
        EXPECT_EQ(firstDifference(occlusion, occluded.pixels()), "");
        EXPECT_EQ(firstDifference(edges, edge.pixels()), "");
        return mask.pixels();
    }

    Pixels expected() const {
        const double amount = settings.adjustEdges;
        const int sign = amount < 0 ? -1 : 1;
        const int whole = static_cast<int>(std::abs(amount));
        const double fraction = std::abs(amount) - whole;
        // Growth by 0 is a dilation by 0, shrinking by 0 an erosion by 0: both are the mask.
        const Pixels near = blurred(grown(edges, sign * whole), settings.featherSize);
        const Pixels far = blurred(grown(edges, sign * (whole + 1)), settings.featherSize);
        const Pixels soft = blurred(occlusion, settings.featherSize);
        Pixels mask(frame, 1);
        mask.forEach([&](int x, int y, int) {
            const double edge = fraction * far.at(x, y, 0) + (1 - fraction) * near.at(x, y, 0);
            mask.at(x, y, 0) = static_cast<float>(std::max<double>(edge, soft.at(x, y, 0)));
        });
        if (settings.edgeDetect > 0)
            for (const Pixels* view : {&source, &rebuilt}) {
                const Pixels lines = blurred(marks([&](int x, int y) {
                                                 return sobel([&](int i, int j) { return grey(*view, x + i, y + j); }) >
                                                        std::max(0.01, 1.0 - settings.edgeDetect);
                                             }),
                                             1);
                mask.forEach([&](int x, int y, int) {
                    mask.at(x, y, 0) = static_cast<float>(merged(mask.at(x, y, 0), lines.at(x, y, 0)));
                });
            }
        return mask;
    }

    static double grey(const Pixels& view, int x, int y) {
        x = std::clamp(x, frame.x0, frame.x1 - 1);
        y = std::clamp(y, frame.y0, frame.y1 - 1);
        return std::clamp((view.at(x, y, 0) + view.at(x, y, 1) + view.at(x, y, 2)) / 3.0, 0.0, 1.0);
    }
};

void expectMask(const MaskScene& scene) {
    const Pixels expected = scene.expected(), actual = scene.run();
    double largest = 0, most = 0;
    actual.forEach([&](int x, int y, int) {
        const double difference = std::abs(expected.at(x, y, 0) - actual.at(x, y, 0));
        largest = std::max(std::isnan(difference) ? 1e9 : difference, largest);
        most = std::max<double>(most, actual.at(x, y, 0));
    });
    EXPECT_LT(largest, 2e-6);
    EXPECT_GT(most, 0.5) << "there is something to see";
}

}  // namespace

TEST_F(OcclusionKernels, validPixels) {
    checkKernel({.kernel = "validPixelsKernel",
                 .reference =
                     [](const Scene& scene, int x, int y) {
                         const auto at = [&](int image) { return static_cast<float>(scene.at(image, x, y, 0)); };
                         const float unselected = 1 - at(0);
                         const float either = unselected > at(1) ? unselected : at(1);
                         const float excluded = either > at(2) ? either : at(2);
                         return Pixel{excluded > 0.0001f ? 0.0 : 1.0};
                     },
                 .prepare =
                     [](int index, Pixels& pixels) {
                         // Mostly pixels that count, some of them just so.
                         pixels.forEach([&](int x, int y, int c) {
                             float& v = pixels.at(x, y, c);
                             const float slight = (x + y) % 3 == 0 ? 0.00005f : 0.0f;
                             if (v > 0 && v < 1.45f) v = index == 0 ? 1 - slight : slight;
                         });
                     }});
}

TEST_F(OcclusionKernels, sobelMagnitude) {
    for (const bool limited : {false, true})
        checkKernel({.kernel = "sobelMagnitudeKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             double sum = 0;
                             for (int c = 0; c < scene.count(0); ++c)
                                 sum += sobel([&](int i, int j) { return scene.clamped(0, x + i, y + j, c); });
                             const float scaled = 0.25f * static_cast<float>(sum);
                             return Pixel{limited ? (scaled < 1 ? scaled : 1.0) : scaled};
                         },
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"limitToOne"}, limited);
                             context.set({"scale"}, 0.25f);
                         },
                     .tolerance = 2e-6});
}

TEST_F(OcclusionKernels, maskMerge) {
    checkKernel({.kernel = "maskMergeKernel", .reference = [](const Scene& scene, int x, int y) {
                     return Pixel{merged(scene.at(0, x, y, 0), scene.at(1, x, y, 0))};
                 }});
}

TEST_F(OcclusionKernels, disparityEdges) {
    checkKernel(edgeCase({}));
    checkKernel(edgeCase({.scale = 0.4f}));
    checkKernel(edgeCase({.thin = false}));
}

TEST_F(FillMask, detectsBothSidesOfAJump) {
    const Box box{0, 0, 2048, 5};
    Pixels disparity(box, 2);
    disparity.forEach([&](int x, int y, int c) { disparity.at(x, y, c) = c == 0 && x >= 1000 ? 2.5f : 0.0f; });
    const TestImage input(disparity, Arrangement::packed);
    TestImage output(Pixels(box, 1), Arrangement::planar);
    const auto first = [&](bool thin) {
        Vellum::Tone::detectDisparityEdges(input.image(), output.image(), 1.0f, thin);
        const Pixels marks = output.pixels();
        int from = 0, count = 0;
        for (int x = 2047; x >= 0; --x)
            if (marks.at(x, 2, 0) == 1) {
                from = x;
                ++count;
            }
        return std::pair(from, count);
    };
    EXPECT_EQ(first(true), std::pair(999, 2)) << "the two pixels between whose neighbours it jumps";
    EXPECT_EQ(first(false), std::pair(996, 8)) << "2.5 rounds to 3 pixels on each side of them";
}

TEST_F(FillMask, growsAndShrinksByFractions) {
    for (const float amount : {0.0f, 1.5f, 2.0f, -1.5f, -0.25f}) {
        SCOPED_TRACE(amount);
        MaskScene scene;
        scene.settings.adjustEdges = amount;
        expectMask(scene);
    }
}

TEST_F(FillMask, feathersOrLeavesHardEdges) {
    MaskScene scene;
    for (const float sigma : {0.0f, 0.4f, 3.0f}) {
        SCOPED_TRACE(sigma);
        scene.settings.featherSize = sigma;
        expectMask(scene);
    }
}

TEST_F(FillMask, takesInEdgesOfThePictures) {
    MaskScene scene;
    scene.occlusion = scene.edges = MaskScene::marks([](int, int) { return false; });
    scene.settings.edgeDetect = 0.3f;  // finds the edge of the rebuilt view only
    expectMask(scene);
    scene.settings.edgeDetect = 1;
    expectMask(scene);
    scene.source = scene.rebuilt = MaskScene::picture(0, 0);
    const Pixels none = scene.run();
    none.forEach([&](int x, int y, int) { ASSERT_EQ(none.at(x, y, 0), 0) << "flat areas stay out"; });
}

}  // namespace ViewTint::Tests
