#include "ToneAligner/src/vellumBlockMatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "Common/Common.h"
#include "PullPush/PullPush.h"
#include "ToneAligner/ToneAligner.h"
#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Tone::BlockKernels;
using Vellum::Tone::MergeRule;
using Vellum::Tone::sampleBlockSizes;
using Vellum::Utils::BufferManagement::BufferManager;

constexpr int packed = 19;
using Triple = std::array<double, 3>;

struct Grid {
    Box box;
    std::vector<double> count;
    std::vector<Triple> offset, gain;
    std::size_t index(int x, int y) const { return static_cast<std::size_t>(y) * box.width() + x; }
};

Pixels pixelsOf(const Grid& grid, const std::vector<Triple>& values) {
    Pixels pixels(grid.box, 3);
    pixels.forEach([&](int x, int y, int c) { pixels.at(x, y, c) = static_cast<float>(values[grid.index(x, y)][c]); });
    return pixels;
}

/// One match on plain pixels, and the same from the definition.
struct Match {
    Box frame{-6, 4, 57, 45};
    int size = 5;
    bool wrap = true;
    bool fill = true;
    bool fused = true;
    /// A hole in the pixels that count, none where empty.
    Box hole{0, 10, 20, 25};
    std::uint32_t seed = 1;

    Pixels lab(std::uint32_t number, float scale) const {
        Pixels pixels = randomPixels(frame, 3, 10 * seed + number, false);
        pixels.forEach([&](int x, int y, int c) {
            const float slope = 0.004f * static_cast<float>(x) - 0.003f * static_cast<float>(y);
            pixels.at(x, y, c) = scale * (c == 0 ? 0.5f : 0.05f) + slope + 0.1f * scale * pixels.at(x, y, c);
        });
        pixels.at(frame.x0 + frame.width() / 2, frame.y0, 1) = 0;  // black stays
        return pixels;
    }
    Pixels source() const { return lab(1, 1); }
    Pixels target() const { return lab(2, 0.7f); }
    Pixels valid() const {
        Pixels pixels = randomPixels(frame, 1, seed, false);
        pixels.forEach([&](int x, int y, int) {
            const bool inHole = x >= hole.x0 && x < hole.x1 && y >= hole.y0 && y < hole.y1;
            pixels.at(x, y, 0) = !inHole && pixels.at(x, y, 0) > -0.3f ? 1.0f : 0.0f;
        });
        return pixels;
    }

    BlockKernels kernels(BufferManager& manager) const {
        const std::array<int, 2> wrapSize = wrap ? std::array{frame.width(), frame.height()} : std::array{-1, -1};
        BlockKernels result(manager, packed, wrap, wrapSize);
        result.fusedPasses = fused;
        return result;
    }
    Pixels run(Vellum::Image::DeviceBase& primary = hostDevice()) const {
        BufferManager manager(primary, hostDevice());
        const auto managed = [&](const Pixels& pixels, Arrangement arrangement) {
            return TestImage(pixels, arrangement).image().distributeTo(primary);
        };
        const Image a = managed(source(), Arrangement::planar), b = managed(target(), Arrangement::packed);
        const Image w = managed(valid(), Arrangement::paddedPlanar);
        Image result({frame, 3}, primary);
        Vellum::Tone::matchBlocks(kernels(manager), {a, b, w}, result, size, fill);
        return ViewTint::Tests::pixelsOf(result);
    }

    // ---- the definition, in double precision

    template <class F>
    void forEachOfBlock(int column, int row, F&& f) const {
        const auto corner = [&](int place, int length) {
            const int start = place * (size / 2) + place / 2 * (size % 2);
            return wrap ? start : std::min(length, start + size) - size;
        };
        for (int j = 0; j < size; ++j)
            for (int i = 0; i < size; ++i) {
                const int x = corner(column, frame.width()) + i;
                f(std::clamp(wrap ? x % frame.width() : x, 0, frame.width() - 1) + frame.x0,
                  std::clamp(corner(row, frame.height()) + j, 0, frame.height() - 1) + frame.y0);
            }
    }
    Grid grid() const {
        const auto cells = [&](int length) { return static_cast<int>(std::ceil(length / (size * 0.5))); };
        Grid result{{0, 0, cells(frame.width()), cells(frame.height())}, {}, {}, {}};
        const Pixels a = source(), b = target(), w = valid();
        for (int row = 0; row < result.box.height(); ++row)
            for (int column = 0; column < result.box.width(); ++column) {
                double pixels = 0;
                Triple meanA{}, meanB{}, varianceA{}, varianceB{}, gain{1, 1, 1}, offset{};
                forEachOfBlock(column, row, [&](int x, int y) {
                    if (!(w.at(x, y, 0) > 0)) return;
                    ++pixels;
                    for (int c = 0; c < 3; ++c)
                        meanA[c] += a.at(x, y, c), meanB[c] += b.at(x, y, c);
                });
                const bool counts = pixels >= std::max(1, size * size / 4);
                for (int c = 0; c < 3; ++c)
                    meanA[c] /= std::max(pixels, 1.0), meanB[c] /= std::max(pixels, 1.0);
                forEachOfBlock(column, row, [&](int x, int y) {
                    if (!(w.at(x, y, 0) > 0)) return;
                    for (int c = 0; c < 3; ++c) {
                        varianceA[c] += std::pow(a.at(x, y, c) - meanA[c], 2) / pixels;
                        varianceB[c] += std::pow(b.at(x, y, c) - meanB[c], 2) / pixels;
                    }
                });
                for (int c = 0; c < 3 && counts; ++c) {
                    const double deviation = std::sqrt(varianceA[c]);
                    if (deviation > 1e-8) gain[c] = std::clamp(std::sqrt(varianceB[c]) / deviation, 0.0, 2.0);
                    offset[c] = meanB[c] - gain[c] * meanA[c];
                }
                result.count.push_back(counts);
                result.gain.push_back(gain);
                result.offset.push_back(offset);
            }
        if (fill) {
            fillEmpty(result, result.offset);
            fillEmpty(result, result.gain);
        }
        return result;
    }
    /// What empty cells take from the others is PullPush's business.
    static void fillEmpty(const Grid& grid, std::vector<Triple>& values) {
        Pixels counts(grid.box, 1);
        counts.forEach(
            [&](int x, int y, int) { counts.at(x, y, 0) = static_cast<float>(grid.count[grid.index(x, y)]); });
        TestImage known(pixelsOf(grid, values), Arrangement::planar), weights(counts, Arrangement::planar);
        TestImage filled(Pixels(grid.box, 3), Arrangement::planar);
        BufferManager manager(hostDevice(), hostDevice());
        Vellum::PullPush::PullPush(manager, packed).apply(known.image(), weights.image(), filled.image());
        const Pixels result = filled.pixels();
        for (int y = 0; y < grid.box.height(); ++y)
            for (int x = 0; x < grid.box.width(); ++x)
                for (int c = 0; c < 3; ++c)
                    if (grid.count[grid.index(x, y)] == 0) values[grid.index(x, y)][c] = result.at(x, y, c);
    }
    Triple between(const Grid& grid, const std::vector<Triple>& values, int x, int y) const {
        struct Axis {
            int first, second;
            double share;
        };
        const auto axis = [&](int pixel, int cells, int length, bool closes) {
            const double step = static_cast<double>(cells) / length;
            double g = pixel * step + step * 0.5 - 0.5;
            if (closes) g = std::fmod(g + length, length);
            if (wrap && !closes) g = std::clamp(g, 0.0, static_cast<double>(length));
            const int first = static_cast<int>(std::floor(g));
            const int second = closes ? (first + 1) % length : wrap ? std::min(first + 1, length - 1) : first + 1;
            return Axis{std::clamp(first, 0, cells - 1), std::clamp(second, 0, cells - 1), g - first};
        };
        const Axis u = axis(x - frame.x0, grid.box.width(), frame.width(), wrap);
        const Axis v = axis(y - frame.y0, grid.box.height(), frame.height(), false);
        Triple result;
        for (int c = 0; c < 3; ++c) {
            const auto along = [&](int row) {
                return (1 - u.share) * values[grid.index(u.first, row)][c] +
                       u.share * values[grid.index(u.second, row)][c];
            };
            result[c] = (1 - v.share) * along(v.first) + v.share * along(v.second);
        }
        return result;
    }
    Pixels expected() const {
        const Grid cells = grid();
        Pixels result = source();
        for (int y = frame.y0; y < frame.y1; ++y)
            for (int x = frame.x0; x < frame.x1; ++x) {
                const Triple gain = between(cells, cells.gain, x, y), offset = between(cells, cells.offset, x, y);
                for (int c = 0; c < 3; ++c) {
                    float& v = result.at(x, y, c);
                    if (std::abs(v) > 1e-8) v = static_cast<float>(gain[c] * v + offset[c]);
                }
            }
        return result;
    }
};

class BlockMatch : public testing::Test {
protected:
    static void SetUpTestSuite() { Vellum::Tone::registerKernels(); }
};

}  // namespace

TEST_F(BlockMatch, isTheDefinition) {
    for (const int size : {2, 5, 12, 101})  // the last one larger than the picture
        for (const bool wrap : {true, false})
            for (const bool fill : {true, false}) {
                Match match;
                match.size = size, match.wrap = wrap, match.fill = fill;
                match.seed = static_cast<std::uint32_t>(size);
                SCOPED_TRACE(testing::Message() << size << (wrap ? " wraps" : "") << (fill ? " fills" : ""));
                const Pixels expected = match.expected();
                // A block of 2 by 2 may hold two pixels that are nearly alike: their deviation divides.
                const double tolerance = size == 2 ? 2e-4 : 3e-6;
                EXPECT_LT(largestDifference(expected, match.run()), tolerance);
                match.fused = false;
                EXPECT_LT(largestDifference(expected, match.run()), tolerance);
            }
}

TEST_F(BlockMatch, ofPicturesOfAnySize) {
    for (const Box& frame : {Box{0, 0, 1, 1}, Box{0, 0, 3, 40}, Box{5, 5, 905, 8}, Box{-3, -3, 30, 120}})
        for (const int size : {2, 7, 30}) {
            Match match;
            match.frame = frame, match.size = size, match.hole = {};
            EXPECT_LT(largestDifference(match.expected(), match.run()), size == 2 ? 2e-4 : 6e-6)
                << toString(frame) << size;
        }
}

TEST_F(BlockMatch, threadsAndInstructionSetsDoNotChangeIt) {
    Match match;
    match.frame = {0, 0, 700, 90};  // more than a strip of the passes
    const Pixels expected = match.run();
    for (const int threads : {1, 3}) {
        const ThreadScope scope(Vellum::Parallel::MakeThreader(threads));
        EXPECT_EQ(firstDifference(expected, match.run()), "");
    }
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::sse2);
    EXPECT_EQ(firstDifference(expected, match.run()), "");
    Vellum::CodeGen::limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
    const SoftwareContext gpu;
    EXPECT_EQ(firstDifference(expected, match.run(gpu.device())), "");
    EXPECT_TRUE(gpu.device().gapsIntact());
}

TEST_F(BlockMatch, withoutAnyPixelThatCounts) {
    Match match;
    match.hole = match.frame;
    match.fill = false;
    EXPECT_EQ(firstDifference(match.source(), match.run()), "") << "gain 1 and offset 0 everywhere";
    match.fill = true;
    EXPECT_LT(largestDifference(match.expected(), match.run()), 1e-6) << "there is nothing to fill from";
}

TEST_F(BlockMatch, aBlockNeedsAQuarterOfItsPixels) {
    // One block of 5 x 5 in the corner of a picture that doesn't count otherwise: 6 pixels serve, 5 don't.
    BufferManager manager(hostDevice(), hostDevice());
    const Box frame{0, 0, 40, 40};
    for (const int pixels : {5, 6}) {
        Pixels source(frame, 3), target(frame, 3), valid(frame, 1);
        source.forEach([&](int x, int y, int c) { source.at(x, y, c) = 0.5f, target.at(x, y, c) = 0.75f; });
        for (int i = 0; i < pixels; ++i)
            valid.at(i % 5, i / 5, 0) = 1;
        TestImage a(source, Arrangement::planar), b(target, Arrangement::planar), w(valid, Arrangement::planar);
        TestImage result(source, Arrangement::planar);
        for (const bool fused : {true, false}) {
            BlockKernels kernels(manager, packed, true, {40, 40});
            kernels.fusedPasses = fused;
            Vellum::Tone::matchBlocks(kernels, {a.image(), b.image(), w.image()}, result.image(), 5, false);
            // A tenth of the next block, which has too few.
            EXPECT_NEAR(result.pixels().at(1, 0, 0), pixels == 6 ? 0.725f : 0.5f, 1e-6f);
        }
    }
}

TEST_F(BlockMatch, whatCannotBeMatched) {
    BufferManager manager(hostDevice(), hostDevice());
    const BlockKernels kernels(manager, packed, true, {8, 8});
    const TestImage picture(Pixels({0, 0, 8, 8}, 3), Arrangement::planar);
    const TestImage mask(Pixels({0, 0, 8, 8}, 1), Arrangement::planar);
    TestImage smaller(Pixels({0, 0, 8, 7}, 3), Arrangement::planar), same(Pixels({0, 0, 8, 8}, 3), Arrangement::planar);
    const auto match = [&](TestImage& result, int size) {
        Vellum::Tone::matchBlocks(kernels, {picture.image(), picture.image(), mask.image()}, result.image(), size,
                                  true);
    };
    EXPECT_THROW(match(smaller, 5), Vellum::Compute::Exception);
    EXPECT_THROW(match(same, 1), Vellum::Compute::Exception);
    EXPECT_NO_THROW(match(same, 2));
}

TEST_F(BlockMatch, samplesAreMergedByEachRuleInOnePassAndInSteps) {
    Match match;
    const Box& frame = match.frame;
    BufferManager manager(hostDevice(), hostDevice());
    for (const int components : {3, 4}) {
        const Pixels reference = randomPixels(frame, components, 7, false);
        for (const MergeRule rule : {MergeRule::first, MergeRule::closer, MergeRule::add}) {
            const TestImage a(match.source(), Arrangement::planar), b(match.target(), Arrangement::planar);
            const TestImage w(match.valid(), Arrangement::planar), r(reference, Arrangement::packed);
            TestImage matched(match.run(), Arrangement::planar);
            Vellum::Common::labToRgb(matched.image(), matched.image(), packed);
            const Pixels sample = matched.pixels(), soFar = randomPixels(frame, 3, 8, false);
            Pixels expected(frame, 3);
            expected.forEach([&](int x, int y, int c) {
                const float e = sample.at(x, y, c), s = soFar.at(x, y, c), n = reference.at(x, y, c);
                expected.at(x, y, c) = rule == MergeRule::first ? e
                                       : rule == MergeRule::add ? s + (e - n)
                                                                : (std::abs(n - e) < std::abs(n - s) ? e : s);
            });
            for (const bool fused : {true, false}) {
                match.fused = fused;
                TestImage merged(soFar, Arrangement::planar);
                Vellum::Tone::matchAndMerge(match.kernels(manager), {a.image(), b.image(), w.image()}, r.image(), rule,
                                            merged.image(), match.size, true);
                const Pixels result = merged.pixels();
                int different = 0;  // where both are about as near, rounding decides
                expected.forEach([&](int x, int y, int c) {
                    different += std::abs(result.at(x, y, c) - expected.at(x, y, c)) > 2e-5;
                });
                EXPECT_LE(different, 2) << components << " components, rule " << static_cast<int>(rule) << fused;
            }
            match.fused = true;
        }
    }
}

TEST(BlockSizes, ofSamples) {
    using Sizes = std::vector<int>;
    EXPECT_EQ(sampleBlockSizes(5, 100, 4, 0, false), (Sizes{5, 37, 69, 100}));
    EXPECT_EQ(sampleBlockSizes(5, 100, 4, 1, false), (Sizes{5, 21, 53, 100}));
    // With wrapping the top is 101.25: steps of 24.0625.
    EXPECT_EQ(sampleBlockSizes(5, 100, 5, 0, true), (Sizes{5, 29, 53, 77, 101}));
    EXPECT_EQ(sampleBlockSizes(5, 100, 2, 1, false), (Sizes{5, 100})) << "two favour nothing";
    EXPECT_EQ(sampleBlockSizes(20, 20, 3, 0, false), (Sizes{20, 20, 20}));
    EXPECT_EQ(sampleBlockSizes(9, 5, 3, 0, false), (Sizes{9, 7, 5})) << "down";
    EXPECT_EQ(sampleBlockSizes(5, 100, 0, 0, false), Sizes{});
    EXPECT_EQ(sampleBlockSizes(5, 100, 1, 0, true), Sizes{101});
    const Sizes many = sampleBlockSizes(2, 3, 20, 0, false);
    EXPECT_EQ(many.size(), 20u);
    EXPECT_EQ(std::count(many.begin(), many.end(), 2) + std::count(many.begin(), many.end(), 3), 20);
}

}  // namespace ViewTint::Tests
