#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"
#include "tests/harness/KernelHarness.h"

namespace Vellum::Kernels {
extern const Family smoothing;
extern const Family testMarks;
}  // namespace Vellum::Kernels

namespace ViewTint::Tests {

namespace {

using Vellum::Common::Sides;
using Vellum::Compute::ProgramSource;
using Vellum::Compute::Scalar;

class Neighbourhood : public testing::Test {
protected:
    static void SetUpTestSuite() {
        Vellum::Common::registerKernels();
        Vellum::Kernels::registerFamilies({&Vellum::Kernels::testMarks});
    }
};

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// sum over s of weights[|s|] * the clamped pixel at distance s, s from -radius to radius.
Reference weighted(const std::vector<double>& weights, bool horizontal) {
    return [=](const Scene& scene, int x, int y) {
        const int radius = static_cast<int>(weights.size()) - 1;
        Pixel sum{};
        for (int c = 0; c < scene.count(1); ++c)
            for (int s = -radius; s <= radius; ++s)
                sum[c] += weights[std::abs(s)] * scene.clamped(0, horizontal ? x + s : x, horizontal ? y : y + s, c);
        return sum;
    };
}

std::vector<double> boxWeights(int radius) {
    return std::vector<double>(radius + 1, 1.0 / (2 * radius + 1));
}

/// The bell exp(-(s / sigma)^2), which has no 2 in its exponent, with the sum 1.
std::vector<double> bellWeights(double sigma, int radius) {
    std::vector<double> weights;
    double total = 0;
    for (int s = 0; s <= radius; ++s) {
        weights.push_back(std::exp(-s * s / (sigma * sigma)));
        total += (s ? 2 : 1) * weights.back();
    }
    for (double& weight : weights)
        weight /= total;
    return weights;
}

/// Rows of text, the upper first; '.' is 0, '#' is 1, others digits.
Pixels drawn(const std::vector<std::string>& rows) {
    const int height = static_cast<int>(rows.size());
    Pixels pixels({0, 0, static_cast<int>(rows[0].size()), height}, 1);
    pixels.forEach([&](int x, int y, int) {
        const char mark = rows[height - 1 - y][x];
        pixels.at(x, y, 0) = mark == '.' ? 0.0f : mark == '#' ? 1.0f : static_cast<float>(mark - '0');
    });
    return pixels;
}

/// What an operation with one source makes of it.
template <class Operation>
Pixels resultOf(const Pixels& source, Operation&& operation) {
    const TestImage from(source, Arrangement::paddedPlanar);
    Pixels unset(source.box(), source.components());
    unset.forEach([&](int x, int y, int c) { unset.at(x, y, c) = 7; });
    TestImage to(unset, Arrangement::paddedPlanar);
    operation(from.image(), to.image());
    EXPECT_TRUE(to.guardsIntact());
    return to.pixels();
}

Pixels boxFiltered(const Pixels& source, int radius) {
    return resultOf(source, [&](const Image& from, Image& to) {
        TestImage temporary(Pixels(source.box(), source.components()), Arrangement::planar);
        Vellum::Common::boxFilter(from, temporary.image(), to, radius);
    });
}

/// The separable filter along both axes in double precision.
double filtered(const Pixels& source, const std::vector<double>& weights, int x, int y, int c) {
    const Box& box = source.box();
    const int radius = static_cast<int>(weights.size()) - 1;
    double sum = 0;
    for (int dy = -radius; dy <= radius; ++dy)
        for (int dx = -radius; dx <= radius; ++dx)
            sum += weights[std::abs(dx)] * weights[std::abs(dy)] *
                   source.at(std::clamp(x + dx, box.x0, box.x1 - 1), std::clamp(y + dy, box.y0, box.y1 - 1), c);
    return sum;
}

void expectFiltered(const Pixels& source, const Pixels& actual, const std::vector<double>& weights, double tolerance) {
    double worst = 0;
    source.forEach([&](int x, int y, int c) {
        worst = std::max(worst, std::abs(actual.at(x, y, c) - filtered(source, weights, x, y, c)));
    });
    EXPECT_LE(worst, tolerance) << "weights of radius " << weights.size() - 1;
}

/// Mask values whose sums are exact, so that the sign of a sum doesn't depend on precision. Every `oddOnes`-th pixel is
/// negative, NaN or infinite; with 0 none is.
std::function<void(int, Pixels&)> maskPixels(int oddOnes) {
    return [=](int index, Pixels& pixels) {
        if (index != 0) return;
        std::uint32_t n = static_cast<std::uint32_t>(pixels.box().width());
        pixels.forEach([&](int x, int y, int c) {
            n = n * 1664525u + 1013904223u;
            const std::uint32_t draw = n >> 16;
            constexpr float set[] = {1, 0.5f, 2, std::numeric_limits<float>::infinity()};
            constexpr float odd[] = {-1, -0.5f, nan, -std::numeric_limits<float>::infinity(), -0.0f};
            float& value = pixels.at(x, y, c);
            value = draw % 32 ? 0.0f : set[draw / 32 % 4];
            if (oddOnes && draw % oddOnes == 0) value = odd[draw / 7 % 5];
        });
    };
}

struct Square {
    int radius;
    bool right = true, left = true, up = true, down = true;

    void operator()(KernelExecutionContext& context) const {
        context.set({"radius"}, radius);
        context.set({"right"}, right);
        context.set({"left"}, left);
        context.set({"up"}, up);
        context.set({"down"}, down);
    }
    template <class F>
    void forEachOffset(F&& f) const {
        for (int dy = down ? -radius : 0; dy <= (up ? radius : 0); ++dy)
            for (int dx = left ? -radius : 0; dx <= (right ? radius : 0); ++dx)
                f(dx, dy);
    }
};

const Square squares[] = {{0},
                          {3},
                          {5},
                          {-1},
                          {5, true, false, false, false},
                          {2, false, true, false, true},
                          {30, true, true, false, false},
                          {96, false, false, true, true},
                          {200, false, true, false, false},  // farther than the form for whole blocks looks
                          {-4, false, false, false, false}};

Reference dilated(const Square& square) {
    return [=](const Scene& scene, int x, int y) {
        Pixel result{};
        for (int c = 0; c < scene.count(1); ++c) {
            double sum = 0;
            square.forEachOffset([&](int dx, int dy) { sum += scene.clamped(0, x + dx, y + dy, c); });
            result[c] = sum > 0;
        }
        return result;
    };
}

Reference eroded(const Square& square) {
    return [=](const Scene& scene, int x, int y) {
        Pixel result{1, 1, 1, 1};
        for (int c = 0; c < scene.count(1); ++c)
            square.forEachOffset([&](int dx, int dy) {
                if (scene.clamped(0, x + dx, y + dy, c) == 0) result[c] = 0;
            });
        return result;
    };
}

}  // namespace

// ---- kernels

TEST_F(Neighbourhood, boxSum) {
    for (const bool horizontal : {true, false})
        for (const int radius : {0, 1, 3, 15, 40, 70})
            checkKernel({.kernel = "boxSumKernel",
                         .reference = weighted(boxWeights(radius), horizontal),
                         .scalars =
                             [=](KernelExecutionContext& context) {
                                 context.set({"horizontal"}, horizontal);
                                 context.set({"radius"}, radius);
                             },
                         .tolerance = 2e-6});
    checkKernel({.kernel = "boxSumKernel",
                 .reference = [](const Scene&, int, int) { return Pixel{}; },
                 .scalars = [](KernelExecutionContext& context) { context.set({"radius"}, -1); }});
}

TEST_F(Neighbourhood, runningBoxSum) {
    struct Line {
        int length, radius;
    };
    for (const bool horizontal : {true, false})
        for (const auto& [length, radius] : {Line{1, 0}, {7, 3}, {31, 3}, {33, 16}, {34, 0}, {34, 11}})
            for (const bool hostile : {false, true}) {
                // The mean of the first pixels of a line; what follows them stays. NaN and infinity stay in a running
                // sum, so with those only the forms are compared.
                const auto mean = [=](const Scene& scene, int x, int y) {
                    const Box& box = scene.box(0);
                    const int at = horizontal ? x - box.x0 : y - box.y0;
                    Pixel result{};
                    for (int c = 0; c < scene.count(1); ++c) {
                        result[c] = at < length ? 0 : scene.at(1, x, y, c);
                        for (int s = at - radius; at < length && s <= at + radius; ++s) {
                            const int nearest = std::clamp(s, 0, length - 1);
                            result[c] +=
                                scene.at(0, horizontal ? box.x0 + nearest : x, horizontal ? y : box.y0 + nearest, c) /
                                (2 * radius + 1);
                        }
                    }
                    return result;
                };
                checkKernel(
                    {.kernel = "runningBoxSumKernel",
                     .reference = hostile ? Reference() : mean,
                     .scalars =
                         [=](KernelExecutionContext& context) {
                             context.set({"horizontal"}, horizontal);
                             context.set({"radius"}, radius);
                             context.set({"lineLengths"}, horizontal ? std::array{length, 1} : std::array{1, length});
                         },
                     .tolerance = 2e-6,
                     .range =
                         [=](const Box& box) {
                             return IterationController::over(horizontal ? Box{box.x0, box.y0, box.x0 + 1, box.y1}
                                                                         : Box{box.x0, box.y0, box.x1, box.y0 + 1});
                         },
                     .smallest = length,
                     .hostilePixels = hostile});
            }
}

TEST_F(Neighbourhood, aRunningSumRefusesLinesThatAreNotThere) {
    static const ProgramSource running(Vellum::Kernels::smoothing, "runningBoxSumKernel");
    const TestImage source(randomPixels({0, 0, 40, 40}, 1, 1, false), Arrangement::planar);
    TestImage output(Pixels({0, 0, 40, 40}, 1), Arrangement::planar);
    const auto run = [&](int radius, int length) {
        Vellum::Compute::runKernel(running, {&source.image(), &output.image()}, 19,
                                   IterationController::over({0, 0, 1, 40}), Scalar{"radius", radius},
                                   Scalar{"lineLengths", std::array{length, length}});
    };
    EXPECT_NO_THROW(run(19, 40));
    EXPECT_THROW(run(3, 41), Vellum::Compute::Exception) << "longer than the image";
    EXPECT_THROW(run(3, 6), Vellum::Compute::Exception) << "shorter than the window";
    EXPECT_THROW(run(-1, 40), Vellum::Compute::Exception);
    EXPECT_THROW(run(0, 0), Vellum::Compute::Exception);
    EXPECT_THROW(run(std::numeric_limits<int>::max(), 40), Vellum::Compute::Exception);
}

TEST_F(Neighbourhood, symmetricConvolution) {
    struct Bell {
        float sigma;
        int radius, used;
    };
    for (const bool horizontal : {true, false})
        for (const auto& [sigma, radius, used] :
             {Bell{1, 3, 3}, {1.5f, 5, 5}, {0.3f, 1, 1}, {0.1f, 20, 20}, {18, 54, 54}, {30, 90, 63}, {2, 0, 0}})
            checkKernel({.kernel = "symmetricConvolutionKernel",
                         .reference = weighted(bellWeights(sigma, used), horizontal),
                         .scalars =
                             [=](KernelExecutionContext& context) {
                                 context.set({"sigma"}, sigma);
                                 context.set({"radius"}, radius);
                                 context.set({"horizontal"}, horizontal);
                             },
                         .tolerance = 2e-6,
                         .hostilePixels = sigma != 0.1f});  // taps of 0 and of 1e-44: infinity times them is NaN or not
    checkKernel({.kernel = "symmetricConvolutionKernel",
                 .reference = [](const Scene&, int, int) { return Pixel{}; },
                 .scalars = [](KernelExecutionContext& context) { context.set({"radius"}, -1); }});
    checkKernel({.kernel = "symmetricConvolutionKernel",
                 .reference =
                     [](const Scene&, int, int) {
                         return Pixel{nan, nan, nan, nan};
                     },
                 .scalars =
                     [](KernelExecutionContext& context) {
                         context.set({"sigma"}, 0.0f);
                         context.set({"radius"}, 0);
                     }});
}

TEST_F(Neighbourhood, dilateAndErode) {
    for (const Square& square : squares) {
        for (const int oddOnes : {0, 3, 500})
            if (oddOnes != 3 || square.radius == 3)
                checkKernel({.kernel = "dilateKernel",
                             .reference = dilated(square),
                             .scalars = square,
                             .tolerance = 0,
                             .prepare = maskPixels(oddOnes)});
        checkKernel({.kernel = "erodeKernel",
                     .reference = eroded(square),
                     .scalars = square,
                     .tolerance = 0,
                     .prepare = maskPixels(3)});
    }
}

TEST_F(Neighbourhood, maskEdge) {
    for (int sides = 0; sides < 16; ++sides) {
        const auto chosen = [=](int side) { return (sides >> side & 1) != 0; };
        checkKernel(
            {.kernel = "maskEdgeKernel",
             .reference =
                 [=](const Scene& scene, int x, int y) {
                     Pixel result{};
                     for (int c = 0; c < scene.count(1); ++c) {
                         const auto isZero = [&](int dx, int dy) { return scene.clamped(0, x + dx, y + dy, c) == 0; };
                         result[c] = !isZero(0, 0) && ((chosen(0) && isZero(-1, 0)) || (chosen(1) && isZero(1, 0)) ||
                                                       (chosen(2) && isZero(0, -1)) || (chosen(3) && isZero(0, 1)));
                     }
                     return result;
                 },
             .scalars =
                 [=](KernelExecutionContext& context) {
                     context.set({"left"}, chosen(0));
                     context.set({"right"}, chosen(1));
                     context.set({"down"}, chosen(2));
                     context.set({"up"}, chosen(3));
                 },
             .tolerance = 0,
             .prepare = maskPixels(5)});
    }
}

/// testMarksKernel's body writes 1, its form for whole blocks 2 and 0.
TEST_F(Neighbourhood, blocksTakeTheBodyWhereMarksDoNotDecide) {
    static const ProgramSource marks(Vellum::Kernels::testMarks, "testMarksKernel");
    const auto at = [&](float oddOne, int x, int y) {
        Pixels source({0, 0, 1200, 300}, 1);
        source.at(600, 5, 0) = oddOne;
        source.at(x, y, 0) = 1;
        return resultOf(source,
                        [&](const Image& from, Image& to) {
                            Vellum::Compute::runKernel(marks, {&from, &to}, 19, {});
                        })
            .at(x, y, 0);
    };
    EXPECT_EQ(at(0, 610, 10), 2);
    EXPECT_EQ(at(std::numeric_limits<float>::infinity(), 610, 10), 2);
    for (const float oddOne : {-1.0f, -1e-30f, nan, -std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(at(oddOne, 610, 10), 1) << oddOne;
        EXPECT_EQ(at(oddOne, 2, 10), 2) << "another block, beside " << oddOne;
        EXPECT_EQ(at(oddOne, 610, 298), 2) << "another block, above " << oddOne;
    }
}

// ---- wrappers

TEST_F(Neighbourhood, boxFilterIsTheMeanOfTheSquare) {
    for (const Box& box : {Box{-20, 5, 85, 62}, Box{0, 0, 20, 90}, Box{3, -9, 93, 11}, Box{0, 0, 1, 1}}) {
        const Pixels source = randomPixels(box, 2, 5, false);
        for (const int radius : {1, 3, 15, 16, 20, 28}) {
            const bool small = radius > 3 && box.x0 != -20;
            SCOPED_TRACE(toString(box));
            if (!small || radius == 16 || radius == 20)
                expectFiltered(source, boxFiltered(source, radius), boxWeights(radius), 3e-6);
        }
    }
}

/// Wider than a row of running sums, which is worked off in parts.
TEST_F(Neighbourhood, boxFilterOfAVeryWidePicture) {
    const Pixels source = randomPixels({0, 0, 4111, 33}, 1, 6, false);
    expectFiltered(source, boxFiltered(source, 16), boxWeights(16), 3e-6);
}

TEST_F(Neighbourhood, boxFilterOfRadius0Copies) {
    const Pixels source = randomPixels({2, 3, 70, 40}, 3, 1, false);
    EXPECT_EQ(firstDifference(source, boxFiltered(source, 0)), "");
}

TEST_F(Neighbourhood, boxFilterMayWriteIntoItsSource) {
    const Pixels source = randomPixels({2, 3, 140, 90}, 2, 1, false);
    for (const int radius : {3, 16}) {
        TestImage image(source, Arrangement::planar), temporary(source, Arrangement::planar);
        Vellum::Common::boxFilter(image.image(), temporary.image(), image.image(), radius);
        EXPECT_EQ(firstDifference(boxFiltered(source, radius), image.pixels()), "") << radius;
    }
}

TEST_F(Neighbourhood, constantsStayConstant) {
    Pixels source({0, 0, 130, 90}, 1);
    source.forEach([&](int x, int y, int) { source.at(x, y, 0) = 0.7f; });
    for (const int radius : {3, 15, 16, 40}) {
        const Pixels mean = boxFiltered(source, radius);
        mean.forEach([&](int x, int y, int) { EXPECT_NEAR(mean.at(x, y, 0), 0.7f, 2e-6) << radius; });
    }
}

/// From 16 on a running sum takes over. Inside a slope both radii have the same mean.
TEST_F(Neighbourhood, boxFilterOfRadius15And16Agree) {
    Pixels source({0, 0, 120, 100}, 1);
    source.forEach([&](int x, int y, int) { source.at(x, y, 0) = 0.01f * x + 0.003f * y; });
    const Pixels direct = boxFiltered(source, 15);
    const Pixels running = boxFiltered(source, 16);
    source.forEach([&](int x, int y, int) {
        if (x < 16 || x >= 104 || y < 16 || y >= 84) return;
        EXPECT_NEAR(direct.at(x, y, 0), running.at(x, y, 0), 2e-6) << x << ", " << y;
    });
}

TEST_F(Neighbourhood, gaussianBlurIsTheStatedBell) {
    const Pixels source = randomPixels({-3, 4, 60, 50}, 2, 9, false);
    const auto blurred = [&](float sigma) {
        return resultOf(source, [&](const Image& from, Image& to) {
            TestImage temporary(Pixels(source.box(), 2), Arrangement::planar);
            Vellum::Common::gaussianBlur(from, temporary.image(), to, sigma);
        });
    };
    expectFiltered(source, blurred(0.1f), bellWeights(0.1, 0), 1e-6);
    expectFiltered(source, blurred(1.5f), bellWeights(1.5, 5), 1e-6);
    expectFiltered(source, blurred(2), bellWeights(2, 6), 1e-6);
    expectFiltered(source, blurred(25), bellWeights(25, 63), 2e-6);
    EXPECT_EQ(firstDifference(blurred(1.5f), blurred(-1.5f)), "");
}

TEST_F(Neighbourhood, dilateGrowsAPixelToASquare) {
    const Pixels dot = drawn({".......", ".......", "...#...", ".......", "......."});
    const auto grown = [&](auto... sides) {
        return resultOf(dot, [&](const Image& from, Image& to) { Vellum::Common::dilate(from, to, 1, sides...); });
    };
    EXPECT_EQ(firstDifference(drawn({".......", "..###..", "..###..", "..###..", "......."}), grown()), "");
    // Looking to the right only, a pixel is seen from its left.
    EXPECT_EQ(firstDifference(drawn({".......", ".......", "..##...", ".......", "......."}),
                              grown(true, false, false, false)),
              "");
    EXPECT_EQ(firstDifference(drawn({".......", ".......", "...##..", ".......", "......."}),
                              grown(false, true, false, false)),
              "");
    EXPECT_EQ(firstDifference(drawn({".......", ".......", "...#...", "...#...", "......."}),
                              grown(false, false, true, false)),
              "");
    EXPECT_EQ(firstDifference(drawn({".......", "...#...", "...#...", ".......", "......."}),
                              grown(false, false, false, true)),
              "");
    EXPECT_EQ(firstDifference(dot, grown(false, false, false, false)), "");
}

/// Many blocks, against counts of marked pixels in a table of sums.
TEST_F(Neighbourhood, dilateAndErodeOfALargePicture) {
    const Box box{-7, 11, 1300, 420};
    Pixels source(box, 1);
    maskPixels(0)(0, source);
    source.forEach([&](int x, int y, int) {
        if ((x + y) % 61) source.at(x, y, 0) = 0;
    });
    Pixels inverted(box, 1);
    source.forEach([&](int x, int y, int) { inverted.at(x, y, 0) = source.at(x, y, 0) == 0; });
    std::vector<int> table((box.width() + 1) * (box.height() + 1));
    const auto sumTo = [&](int x, int y) -> int& { return table[(y - box.y0) * (box.width() + 1) + x - box.x0]; };
    source.forEach([&](int x, int y, int) {
        sumTo(x + 1, y + 1) = (source.at(x, y, 0) > 0) + sumTo(x, y + 1) + sumTo(x + 1, y) - sumTo(x, y);
    });
    for (const int radius : {1, 3, 17, 90}) {
        const Pixels grown =
            resultOf(source, [&](const Image& from, Image& to) { Vellum::Common::dilate(from, to, radius); });
        const Pixels shrunk =
            resultOf(inverted, [&](const Image& from, Image& to) { Vellum::Common::erode(from, to, radius); });
        int wrong = 0;
        source.forEach([&](int x, int y, int) {
            const int x0 = std::max(x - radius, box.x0), x1 = std::min(x + radius + 1, box.x1);
            const int y0 = std::max(y - radius, box.y0), y1 = std::min(y + radius + 1, box.y1);
            const bool any = sumTo(x1, y1) - sumTo(x0, y1) - sumTo(x1, y0) + sumTo(x0, y0) > 0;
            wrong += grown.at(x, y, 0) != any || shrunk.at(x, y, 0) != !any;
        });
        EXPECT_EQ(wrong, 0) << "radius " << radius;
    }
}

TEST_F(Neighbourhood, negativeValuesCancelPositiveOnes) {
    Pixels source = drawn({".....", "..1..", "....."});
    source.at(4, 1, 0) = -1;
    const Pixels grown = resultOf(source, [](const Image& from, Image& to) { Vellum::Common::dilate(from, to, 1); });
    EXPECT_EQ(firstDifference(drawn({".##..", ".##..", ".##.."}), grown), "")
        << "column 3 sees both, and the border repeats column 4";
}

TEST_F(Neighbourhood, erodeTakesFromTheInsideAndNotFromTheBorder) {
    const auto shrunk = [](const Pixels& source, int radius) {
        return resultOf(source, [&](const Image& from, Image& to) { Vellum::Common::erode(from, to, radius); });
    };
    const Pixels ones = drawn({"#####", "#####", "#####", "#####"});
    EXPECT_EQ(firstDifference(ones, shrunk(ones, 3)), "");
    EXPECT_EQ(firstDifference(drawn({"#####", "##...", "##...", "##..."}),
                              shrunk(drawn({"#####", "#####", "###.#", "#####"}), 1)),
              "");
    EXPECT_EQ(firstDifference(ones, shrunk(drawn({"23#5#", "#####", "#####", "#####"}), 2)), "");
}

TEST_F(Neighbourhood, maskEdgesBySide) {
    const Pixels mask = drawn({"......", ".####.", ".####.", ".####.", "######"});
    const auto edges = [&](Sides sides) {
        return resultOf(mask, [&](const Image& from, Image& to) { Vellum::Common::maskEdges(from, to, sides); });
    };
    struct {
        Sides sides;
        std::vector<std::string> expected;
    } const cases[] = {
        {Sides::left, {"......", ".#....", ".#....", ".#....", "......"}},
        {Sides::right, {"......", "....#.", "....#.", "....#.", "......"}},
        {Sides::leftAndRight, {"......", ".#..#.", ".#..#.", ".#..#.", "......"}},
        {Sides::down, {"......", "......", "......", "......", "......"}},
        {Sides::up, {"......", ".####.", "......", "......", "#....#"}},
        {Sides::upAndDown, {"......", ".####.", "......", "......", "#....#"}},
    };
    for (const auto& [sides, expected] : cases)
        EXPECT_EQ(firstDifference(drawn(expected), edges(sides)), "") << "side " << static_cast<int>(sides);
    for (const int other : {-1, 6}) {
        const Pixels untouched = edges(static_cast<Sides>(other));
        untouched.forEach([&](int x, int y, int) { EXPECT_EQ(untouched.at(x, y, 0), 7) << other; });
    }
}

TEST_F(Neighbourhood, growMaskMixesTwoWholeGrowths) {
    constexpr float blur = 1.2f;
    const Box box{-4, 2, 45, 40};
    Pixels mask(box, 1);
    mask.forEach([&](int x, int y, int) { mask.at(x, y, 0) = x >= 8 && x < 30 && y >= 10 && y < 33; });
    const auto scratch = [&] { return TestImage(Pixels(box, 1), Arrangement::planar); };
    const auto grown = [&](float amount, float blur) {
        return resultOf(mask, [&](const Image& from, Image& to) {
            TestImage work1 = scratch();
            TestImage work2 = scratch();
            Vellum::Common::growMask(from, work1.image(), work2.image(), to, amount, blur);
        });
    };
    const auto whole = [&](auto operation, int radius) {
        return resultOf(mask, [&](const Image& from, Image& to) {
            TestImage sharp = scratch();
            TestImage temporary = scratch();
            operation(from, sharp.image(), radius, true, true, true, true);
            Vellum::Common::gaussianBlur(sharp.image(), temporary.image(), to, blur);
        });
    };
    EXPECT_EQ(firstDifference(whole(Vellum::Common::dilate, 2), grown(2, blur)), "");
    EXPECT_EQ(firstDifference(whole(Vellum::Common::dilate, 0), grown(0, blur)), "");
    EXPECT_EQ(firstDifference(whole(Vellum::Common::erode, 3), grown(-3, blur)), "");
    const auto expectMix = [&](const Pixels& less, const Pixels& more, float share, const Pixels& actual) {
        mask.forEach([&](int x, int y, int) {
            EXPECT_NEAR(actual.at(x, y, 0), share * more.at(x, y, 0) + (1 - share) * less.at(x, y, 0), 1e-6);
        });
    };
    expectMix(whole(Vellum::Common::dilate, 2), whole(Vellum::Common::dilate, 3), 0.25f, grown(2.25f, blur));
    expectMix(whole(Vellum::Common::erode, 1), whole(Vellum::Common::erode, 2), 0.75f, grown(-1.75f, blur));
    // Half of the mask's height lies on the border that was asked for.
    EXPECT_GT(grown(2, blur).at(6, 20, 0), 0.5f);
    EXPECT_LT(grown(2, blur).at(5, 20, 0), 0.5f);
    EXPECT_GT(grown(-2, blur).at(10, 20, 0), 0.5f);
    EXPECT_LT(grown(-2, blur).at(9, 20, 0), 0.5f);
    // Without a blur the mask stays hard.
    EXPECT_EQ(grown(1, 0).at(7, 20, 0), 1);
    EXPECT_EQ(grown(1, 0).at(6, 20, 0), 0);
}

}  // namespace ViewTint::Tests
