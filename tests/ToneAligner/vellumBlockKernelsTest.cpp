#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "Common/Common.h"
#include "ToneAligner/ToneAligner.h"
#include "tests/harness/KernelHarness.h"
#include "tests/harness/LabReference.h"

namespace ViewTint::Tests {

namespace {

class BlockKernels : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::Tone::registerKernels(); }
};

/// How blocks of one size lie on a picture.
struct Blocks {
    int size = 5;
    bool wrap = false;
    std::array<int, 2> wrapSize{-1, -1};

    /// A picture whose grid is `grid`.
    Box picture(const Box& grid) const { return {4, -3, 4 + size * grid.width() / 2, -3 + size * grid.height() / 2}; }

    /// Calls f(x, y) for the pixels of the block of a cell; they may lie outside the picture.
    template <class F>
    void forEach(const Box& picture, int column, int row, F&& f) const {
        const auto corner = [&](int place, int from, int to) {
            const int start = from + place * (size / 2) + place / 2 * (size % 2);
            return wrap ? start : std::min(to, start + size) - size;
        };
        const int width = wrapSize[0] >= 1 ? wrapSize[0] : picture.width();
        for (int j = 0; j < size; ++j)
            for (int i = 0; i < size; ++i) {
                const int x = corner(column, picture.x0, picture.x1) + i;
                f(wrap ? picture.x0 + ((x - picture.x0) % width + width) % width : x,
                  corner(row, picture.y0, picture.y1) + j);
            }
    }
    void set(KernelExecutionContext& context) const {
        context.set({"size"}, size);
        if (wrap) context.set({"wrapSize"}, wrapSize);
    }
    std::string kernel(const std::string& name) const { return name + (wrap ? "WrapKernel" : "Kernel"); }
};

const Blocks layouts[] = {
    {2}, {5}, {9}, {2, true}, {5, true}, {5, true, {7, 4}}, {5, true, {41, 4}}, {9, true, {7, 4}}};

/// Half of the weights are 0, so that means don't divide by differences of rounding.
void makeMask(Pixels& pixels) {
    pixels.forEach([&](int x, int y, int c) {
        float& v = pixels.at(x, y, c);
        v = v > 0.5f ? 1.0f : v > 0.3f ? v : 0.0f;
    });
}

/// Image number `weights` is the mask, those of `cells` have the grid's box, the others the picture's.
KernelCase statisticsCase(const Blocks& blocks, const std::string& name, int weights, std::vector<int> cells) {
    KernelCase result;
    result.kernel = blocks.kernel(name);
    result.scalars = [=](KernelExecutionContext& context) { blocks.set(context); };
    result.boxOf = [=](int index, const Box& box) {
        return std::find(cells.begin(), cells.end(), index) != cells.end() ? box : blocks.picture(box);
    };
    result.prepare = [=](int index, Pixels& pixels) {
        if (index == weights) makeMask(pixels);
    };
    result.hostilePixels = false;
    return result;
}

/// The weighted mean over a block of f(x, y, c).
template <class F>
Pixel blockMean(const Blocks& blocks, const Scene& scene, int weights, int grid, int x, int y, F&& f) {
    Pixel sum{};
    double weight = 0;
    const Box& box = scene.box(grid);
    blocks.forEach(scene.box(weights), x - box.x0, y - box.y0, [&](int column, int row) {
        const double w = scene.clamped(weights, column, row, 0);
        weight += w;
        for (int c = 0; c < 3; ++c)
            sum[c] += w * f(column, row, c);
    });
    for (double& s : sum)
        s = weight > 0 ? s / weight : 0;
    return sum;
}

/// From a picture's pixels to its grid, as the definition has it: four cells and their shares.
struct Sample {
    int x[2], y[2];
    double shareX, shareY;
};

Sample sampleAt(const Box& grid, const Box& picture, const std::array<int, 2>* wrapSize, int x, int y) {
    const auto along = [](int pixel, int cells, int pixels) {
        const float step = static_cast<float>(cells) / static_cast<float>(pixels);
        return static_cast<float>(pixel) * step + step * 0.5f - 0.5f;
    };
    const float gy = along(y - picture.y0, grid.height(), picture.height());
    const float gx = along(x - picture.x0, grid.width(), picture.width());
    if (!wrapSize) {
        const float fx = std::floor(gx), fy = std::floor(gy);
        return {{int(fx), int(std::floor(gx + 1))}, {int(fy), int(std::floor(gy + 1))}, gx - fx, gy - fy};
    }
    const int width = (*wrapSize)[0] >= 1 ? (*wrapSize)[0] : picture.width();
    const int height = (*wrapSize)[1] >= 1 ? (*wrapSize)[1] : picture.height();
    const float wx = std::fmod(gx + static_cast<float>(width), static_cast<float>(width));
    const float wy = std::clamp(gy, 0.0f, static_cast<float>(height));
    const int x0 = int(std::floor(wx)), y0 = int(std::floor(wy));
    return {{x0, (x0 + 1) % width}, {y0, std::min(y0 + 1, height - 1)}, wx - x0, wy - y0};
}

double interpolated(const Scene& scene, int image, const Sample& s, int c) {
    const Box& box = scene.box(image);
    const auto at = [&](int i, int j) { return scene.clamped(image, box.x0 + s.x[i], box.y0 + s.y[j], c); };
    const auto row = [&](int j) { return (1 - s.shareX) * at(0, j) + s.shareX * at(1, j); };
    return (1 - s.shareY) * row(0) + s.shareY * row(1);
}

/// A grid for a picture: about half as wide, a third as high; as wide in narrow ones.
Box gridFor(const Box& picture) {
    return {2, 5, 2 + (picture.width() + 1) / 2, 5 + (picture.height() + 2) / 3};
}

const std::array<int, 2> wrapSizes[] = {{-1, -1}, {5, 3}, {200, 100}};

/// Lab of moderate colours, so that the powers on the way to RGB don't dwarf everything else.
void makeLab(Pixels& pixels) {
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) *= c == 0 ? 0.5f : 0.1f; });
}

Triple corrected(const Scene& scene, const Sample& sample, int x, int y) {
    Triple result;
    for (int c = 0; c < 3; ++c) {
        const double v = scene.at(0, x, y, c);
        result[c] = std::abs(v) > 1e-8f ? v * interpolated(scene, 2, sample, c) + interpolated(scene, 1, sample, c) : v;
    }
    return result;
}

}  // namespace

TEST_F(BlockKernels, countsMeansAndDeviationsOfBlocks) {
    for (const Blocks& blocks : layouts) {
        KernelCase count = statisticsCase(blocks, "blockCount", 0, {1});
        count.reference = [=](const Scene& scene, int x, int y) {
            double pixels = 0;
            const Box& box = scene.box(1);
            blocks.forEach(scene.box(0), x - box.x0, y - box.y0,
                           [&](int column, int row) { pixels += scene.clamped(0, column, row, 0) > 0; });
            return Pixel{pixels};
        };
        count.tolerance = 0;
        checkKernel(count);

        KernelCase mean = statisticsCase(blocks, "blockMean", 1, {2});
        mean.reference = [=](const Scene& scene, int x, int y) {
            return blockMean(blocks, scene, 1, 2, x, y,
                             [&](int column, int row, int c) { return scene.clamped(0, column, row, c); });
        };
        checkKernel(mean);

        KernelCase deviation = statisticsCase(blocks, "blockDeviation", 2, {1, 3});
        deviation.reference = [=](const Scene& scene, int x, int y) {
            Pixel result = blockMean(blocks, scene, 2, 3, x, y, [&](int column, int row, int c) {
                return std::pow(scene.clamped(0, column, row, c) - scene.at(1, x, y, c), 2);
            });
            for (double& v : result)
                v = std::sqrt(v);
            return result;
        };
        checkKernel(deviation);
    }
}

TEST_F(BlockKernels, transferGivesTheOthersMeanAndDeviation) {
    const auto gain = [](const Scene& scene, int x, int y, int c) {
        const double source = scene.at(1, x, y, c);
        return std::abs(source) > 1e-8f ? std::clamp(scene.at(3, x, y, c) / source, 0.0, 2.0) : 1.0;
    };
    checkKernel({.kernel = "blockTransferKernel",
                 .reference =
                     [=](const Scene& scene, int x, int y) {
                         return Pixel{gain(scene, x, y, 0), gain(scene, x, y, 1), gain(scene, x, y, 2)};
                     },
                 .otherReferences = {{4,
                                      [=](const Scene& scene, int x, int y) {
                                          Pixel offset{};
                                          for (int c = 0; c < 3; ++c)
                                              offset[c] =
                                                  scene.at(2, x, y, c) - gain(scene, x, y, c) * scene.at(0, x, y, c);
                                          return offset;
                                      }}},
                 .prepare =
                     [](int index, Pixels& pixels) {
                         constexpr float special[] = {0, 1e-8f, -1e-8f, 2e-8f};
                         if (index == 1 || index == 3)
                             pixels.forEach([&](int x, int y, int c) {
                                 if ((x + 3 * y + c + 100) % 5 == 0) pixels.at(x, y, c) = special[(x + y + 100) % 4];
                             });
                     },
                 .hostilePixels = false});
}

TEST_F(BlockKernels, gridsAreScaledUp) {
    KernelCase ends{.kernel = "bilinearUpsampleKernel",
                    .reference =
                        [](const Scene& scene, int x, int y) {
                            const Sample sample = sampleAt(scene.box(0), scene.box(1), nullptr, x, y);
                            Pixel result{};
                            for (int c = 0; c < scene.count(1); ++c)
                                result[c] = interpolated(scene, 0, sample, c);
                            return result;
                        },
                    .boxOf = [](int index, const Box& box) { return index == 0 ? gridFor(box) : box; }};
    checkKernel(ends);
    for (const auto& wrapSize : wrapSizes) {
        KernelCase wraps = ends;
        wraps.kernel = "bilinearUpsampleWrapKernel";
        wraps.scalars = [=](KernelExecutionContext& context) { context.set({"wrapSize"}, wrapSize); };
        wraps.reference = [=](const Scene& scene, int x, int y) {
            const Sample sample = sampleAt(scene.box(0), scene.box(1), &wrapSize, x, y);
            Pixel result{};
            for (int c = 0; c < scene.count(1); ++c)
                result[c] = interpolated(scene, 0, sample, c);
            return result;
        };
        checkKernel(wraps);
    }
}

TEST_F(BlockKernels, gainsAndOffsetsLeaveBlackAlone) {
    checkKernel({.kernel = "gainOffsetApplyKernel", .reference = [](const Scene& scene, int x, int y) {
                     Pixel result{};
                     if (scene.count(3) == 4) result[3] = scene.at(3, x, y, 3);
                     for (int c = 0; c < 3; ++c) {
                         const double v = scene.at(0, x, y, c);
                         result[c] = std::abs(v) > 1e-8f ? scene.at(2, x, y, c) * v + scene.at(1, x, y, c) : v;
                     }
                     return result;
                 }});
}

TEST_F(BlockKernels, theCloserOneIsPickedAndTiesKeepTheSecond) {
    KernelCase pick{.kernel = "pickCloserKernel", .reference = [](const Scene& scene, int x, int y) {
                        Pixel result{};
                        if (scene.count(3) == 4) result[3] = scene.at(3, x, y, 3);
                        for (int c = 0; c < 3; ++c) {
                            const double a = scene.at(0, x, y, c), b = scene.at(1, x, y, c), r = scene.at(2, x, y, c);
                            result[c] = std::abs(r - a) < std::abs(r - b) ? a : b;
                        }
                        return result;
                    }};
    // Multiples of an eighth are at equal distances often, and their differences exact.
    pick.prepare = [](int, Pixels& pixels) {
        pixels.forEach([&](int x, int y, int c) {
            float& v = pixels.at(x, y, c);
            if (std::abs(v) < 2) v = std::round(v * 4) / 8;
        });
    };
    pick.tolerance = 0;
    pick.hostilePixels = false;
    checkKernel(pick);
}

TEST_F(BlockKernels, blocksAreAppliedInOnePass) {
    for (const auto& wrapSize : wrapSizes) {
        const bool wraps = wrapSize[0] >= 1;
        const auto sampleOf = [=](const Scene& scene, int x, int y) {
            return sampleAt(scene.box(1), scene.box(0), wraps ? &wrapSize : nullptr, x, y);
        };
        const auto boxOf = [](int index, const Box& box) { return index == 1 || index == 2 ? gridFor(box) : box; };
        checkKernel({.kernel = "blockApplyKernel",
                     .reference =
                         [=](const Scene& scene, int x, int y) {
                             const Triple v = corrected(scene, sampleOf(scene, x, y), x, y);
                             return Pixel{v[0], v[1], v[2]};
                         },
                     .scalars = [=](KernelExecutionContext& context) { context.set({"wrapSize"}, wrapSize); },
                     .boxOf = boxOf});
        for (const int rule : {0, 1, 2}) {
            KernelCase merge{.kernel = "sampleMergeKernel",
                             .reference =
                                 [=](const Scene& scene, int x, int y) {
                                     const Triple lab = corrected(scene, sampleOf(scene, x, y), x, y);
                                     const Triple xyz = xyzOfLab(lab);
                                     Pixel result{};
                                     for (int c = 0; c < 3; ++c) {
                                         double e = 0;
                                         for (int i = 0; i < 3; ++i)
                                             e += double{Vellum::Common::xyzToRgbMatrix[3 * c + i]} * xyz[i];
                                         const double a = scene.at(4, x, y, c), r = scene.at(3, x, y, c);
                                         result[c] = rule == 0   ? e
                                                     : rule == 2 ? a + (e - r)
                                                                 : (std::abs(r - e) < std::abs(r - a) ? e : a);
                                     }
                                     return result;
                                 },
                             .scalars =
                                 [=](KernelExecutionContext& context) {
                                     context.set({"wrapSize"}, wrapSize);
                                     context.set({"rule"}, rule);
                                     context.set({"matrix"}, Vellum::Common::xyzToRgbMatrix);
                                 },
                             .tolerance = 4e-6,
                             .boxOf = boxOf,
                             .prepare =
                                 [](int index, Pixels& pixels) {
                                     if (index < 2) makeLab(pixels);
                                 },
                             .hostilePixels = false};
            checkKernel(merge);
        }
    }
}

/// Their values are those of the match as a whole, see BlockMatch; here every form of each against the others.
TEST_F(BlockKernels, statisticsOfSegmentsInEveryForm) {
    for (const Blocks& blocks : layouts) {
        KernelCase segments{.kernel = "blockSegmentsKernel",
                            .scalars =
                                [=](KernelExecutionContext& context) {
                                    context.set({"size"}, blocks.size);
                                    context.set({"wrapWidth"}, blocks.wrapSize[0]);
                                },
                            .boxOf = [=](int index, const Box& box) { return index < 3 ? blocks.picture(box) : box; },
                            .prepare =
                                [](int index, Pixels& pixels) {
                                    if (index == 2) makeMask(pixels);
                                }};
        checkKernel(segments);
    }
    checkKernel({.kernel = "segmentTransferKernel", .boxOf = [](int index, const Box& box) {
                     return index < 5 ? Box{box.x0, box.y0, box.x1 + 1, box.y1 + 1} : box;
                 }});
    checkKernel({.kernel = "localEndingKernel", .scalars = [](KernelExecutionContext& context) {
                     context.set({"matrix"}, Vellum::Common::xyzToRgbMatrix);
                 }});
}

}  // namespace ViewTint::Tests
