#include "BilateralFilter/BilateralFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Utils::BufferManagement::BufferManager;
using Filter = Vellum::BilateralFilter::BilateralFilter;

class BilateralFilter : public testing::Test {
protected:
    static void SetUpTestSuite() {
        Vellum::Common::registerKernels();
        Vellum::BilateralFilter::registerKernels();
    }
};

Pixels distances(const Pixels& seeds, bool fused) {
    BufferManager manager(hostDevice(), hostDevice());
    Filter filter(manager, {1, 1, 1}, 2, 0);
    filter.setFusedPasses(fused);
    TestImage from(seeds, Arrangement::planar);
    TestImage to(Pixels(seeds.box(), 1), Arrangement::wide);
    filter.growDistance(from.image(), to.image());
    EXPECT_TRUE(to.guardsIntact());
    return to.pixels();
}

/// Steps over diagonals from the seeds above 0; 10000 where they don't lead.
Pixels walked(const Pixels& seeds) {
    const Box& box = seeds.box();
    Pixels distance(box, 1);
    std::vector<std::pair<int, int>> queue;
    distance.forEach([&](int x, int y, int) {
        distance.at(x, y, 0) = seeds.at(x, y, 0) != 0 ? 0.0f : 10000.0f;
        if (seeds.at(x, y, 0) > 0) queue.emplace_back(x, y);
    });
    for (std::size_t next = 0; next < queue.size(); ++next) {
        const auto [x, y] = queue[next];
        for (const int dx : {-1, 1})
            for (const int dy : {-1, 1}) {
                const int column = x + dx, row = y + dy;
                if (column < box.x0 || column >= box.x1 || row < box.y0 || row >= box.y1) continue;
                if (distance.at(column, row, 0) != 10000) continue;
                distance.at(column, row, 0) = distance.at(x, y, 0) + 1;
                queue.emplace_back(column, row);
            }
    }
    return distance;
}

Pixels seedsWhere(const Box& box, const std::function<float(int, int)>& seed) {
    Pixels pixels(box, 1);
    pixels.forEach([&](int x, int y, int) { pixels.at(x, y, 0) = seed(x, y); });
    return pixels;
}

struct Fill {
    std::array<float, 3> sigma{0.2f, 0.15f, 0.15f};
    int boost = 4;

    Pixels run(const Pixels& values, const Pixels& guide, const Pixels& mask,
               Vellum::Image::DeviceBase& device = hostDevice()) const {
        BufferManager manager(device, hostDevice());
        const TestImage v(values, Arrangement::planar), g(guide, Arrangement::paddedPlanar),
            m(mask, Arrangement::planar);
        TestImage out(Pixels(values.box(), 3), Arrangement::planar);
        Filter(manager, sigma, boost, 0).apply(v.image(), g.image(), m.image(), out.image());
        EXPECT_EQ(firstDifference(mask, m.pixels()), "") << "the mask stays";
        return out.pixels();
    }

    /// A plain double loop.
    Pixels expected(const Pixels& values, const Pixels& guide, const Pixels& mask) const {
        const Box& box = values.box();
        const Pixels distance =
            distances(seedsWhere(box, [&](int x, int y) { return mask.at(x, y, 0) > 1e-4f ? 0.0f : 1.0f; }), false);
        Pixels result = values;
        for (int y = box.y0; y < box.y1; ++y)
            for (int x = box.x0; x < box.x1; ++x) {
                const double m = mask.at(x, y, 0);
                if (m == 0) continue;
                const int radius = std::max(3, static_cast<int>(std::ceil(distance.at(x, y, 0) + boost)));
                double total = 0, sum[3] = {};
                for (int row = std::max(y - radius, box.y0); row <= std::min(y + radius, box.y1 - 1); ++row)
                    for (int column = std::max(x - radius, box.x0); column <= std::min(x + radius, box.x1 - 1);
                         ++column) {
                        if (distance.at(column, row, 0) != 0) continue;
                        const int dx = column - x, dy = row - y;
                        double e = -(dx * dx + dy * dy) * 0.7 / (double{1} * radius * radius);
                        for (int c = 0; c < 3; ++c) {
                            const double k = sigma[c] > 0 ? 1 / (double{sigma[c]} * sigma[c]) : 100000;
                            e -= std::pow(double{guide.at(column, row, c)} - guide.at(x, y, c), 2) * k;
                        }
                        const double w = std::exp(e) > 1e-5 ? std::exp(e) : 1e-5;
                        total += w;
                        for (int c = 0; c < 3; ++c)
                            sum[c] += w * values.at(column, row, c);
                    }
                if (total > 0)
                    for (int c = 0; c < 3; ++c)
                        result.at(x, y, c) = static_cast<float>(values.at(x, y, c) * (1 - m) + sum[c] / total * m);
            }
        return result;
    }
};

const Box frame{-9, 5, 62, 51};

/// A hole at the border, one inside with soft rims, single pixels.
float holes(int x, int y) {
    if (x < 0 && y > 20) return 1;
    if ((x * 31 + y * 17) % 97 == 0) return 1;
    const double rim = 9 - std::hypot(x - 30, y - 25);
    return static_cast<float>(std::clamp(rim, 0.0, 1.0));
}

}  // namespace

TEST_F(BilateralFilter, distancesAreDiagonalSteps) {
    std::minstd_rand random(1);
    for (const double share : {0.9, 0.5, 0.05}) {
        std::bernoulli_distribution isSeed(share);
        const Pixels seeds = seedsWhere({-3, 8, 70, 61}, [&](int, int) { return isSeed(random) ? 1.0f : 0.0f; });
        EXPECT_EQ(firstDifference(walked(seeds), distances(seeds, true)), "") << share;
    }
    const Pixels two = seedsWhere({0, 0, 40, 30}, [](int x, int y) { return y == 12 && (x == 9 || x == 10); });
    const Pixels grown = distances(two, true);
    EXPECT_EQ(firstDifference(walked(two), grown), "");
    EXPECT_EQ(grown.at(12, 12, 0), 2) << "a row of pixels is crossed by two diagonal steps for two columns";
}

/// What no diagonal step reaches holds what the last pass left.
TEST_F(BilateralFilter, listsLeaveWhatPassesLeave) {
    std::minstd_rand random(2);
    for (const Box& box : {Box{0, 0, 37, 29}, Box{-5, 3, 12, 4}, Box{2, 2, 3, 30}, Box{0, 0, 2, 2}, Box{0, 0, 1, 1}})
        for (int round = 0; round < 40; ++round) {
            std::uniform_int_distribution<int> column(box.x0, box.x1 - 1), row(box.y0, box.y1 - 1), kind(0, 9);
            const int seedX = column(random), seedY = row(random), otherX = column(random), otherY = row(random);
            const Pixels seeds = seedsWhere(box, [&](int x, int y) {
                if (round == 0) return 0.0f;
                if (round == 1) return 1.0f;
                if (round % 4 == 2) return (x + y) % 2 == 0 && kind(random) == 0 ? 1.0f : 0.0f;
                if (round % 4 == 3) return kind(random) == 0 ? -1.0f : kind(random) == 1 ? 0.25f : 0.0f;
                if (x == seedX && y == seedY) return 1.0f;
                return x == otherX && y == otherY && round % 8 == 4 ? NAN : 0.0f;
            });
            ASSERT_EQ(firstDifference(distances(seeds, false), distances(seeds, true)), "")
                << toString(box) << " round " << round;
        }
}

TEST_F(BilateralFilter, fillsAsAPlainLoopDoes) {
    const Pixels values = randomPixels(frame, 3, 3, false), guide = randomPixels(frame, 3, 4, false);
    const Pixels mask = seedsWhere(frame, holes);
    for (const Fill& fill : {Fill{}, Fill{.sigma = {0, 0.3f, 0}}, Fill{.sigma = {1e-3f, 1e-3f, 1e-3f}, .boost = 0},
                             Fill{.sigma = {5, 5, 5}, .boost = 30}})
        EXPECT_LT(largestDifference(fill.expected(values, guide, mask), fill.run(values, guide, mask)), 3e-5);
}

TEST_F(BilateralFilter, severalBlocksAreOnePicture) {
    const Box wide{-40, 0, 600, 270};
    const Pixels values = randomPixels(wide, 3, 5, false);
    const Pixels mask = seedsWhere(
        wide, [](int x, int y) { return (x > 200 && x < 232 && y % 64 < 60) || (y > 250 && y < 262) ? 1.0f : 0.0f; });
    const Fill fill{.boost = 2};
    EXPECT_LT(largestDifference(fill.expected(values, values, mask), fill.run(values, values, mask)), 3e-5);
}

/// Far from those that give pixels are filled from lists.
TEST_F(BilateralFilter, largeHolesAreFilledAsAPlainLoopDoes) {
    const Box large{-7, 3, 173, 143};
    const Pixels values = randomPixels(large, 3, 12, false);
    Pixels guide = randomPixels(large, 3, 13, false);
    guide.forEach([&](int x, int y, int c) { guide.at(x, y, c) = 0.2f * guide.at(x, y, c) + (x + y * c) * 0.003f; });
    guide.at(160, 30, 1) = NAN;
    std::minstd_rand random(14);
    const auto oneIn = [&](int many) { return random() % static_cast<unsigned>(many) == 0; };
    const std::pair<Fill, std::function<float(int, int)>> cases[] = {
        {{.boost = 20}, [](int x, int) { return x < 120 ? 1.0f : 0.0f; }},
        {{.sigma = {0.05f, 0, 0.1f}, .boost = 9},
         [](int x, int y) { return std::hypot(x, y - 70) < 130 ? 0.75f : 0.0f; }},
        {{.sigma = {3, 3, 3}, .boost = 50}, [&](int, int) { return oneIn(3000) ? 0.0f : 1.0f; }},
        {{.boost = 0}, [](int x, int y) { return (x + y) % 2 == 0 && x > 140 ? 0.0f : 1.0f; }}};
    const SoftwareContext context;
    for (const auto& [fill, hole] : cases) {
        const Pixels mask = seedsWhere(large, hole), filled = fill.run(values, guide, mask);
        // Half of it is the rounding to a float of values from -1 to 2.
        EXPECT_LT(largestDifference(fill.expected(values, guide, mask), filled), 1e-5);
        EXPECT_EQ(firstDifference(filled, fill.run(values, guide, mask, context.device())), "");
        Vellum::Compute::Host::setThreads(3);
        EXPECT_EQ(firstDifference(filled, fill.run(values, guide, mask)), "");
        Vellum::Compute::Host::setThreads(0);
    }
}

TEST_F(BilateralFilter, tellsHowFarItIsAndCanBeStopped) {
    const Box large{0, 0, 600, 300};
    const Pixels values = randomPixels(large, 3, 15, false);
    BufferManager manager(hostDevice(), hostDevice());
    Filter filter(manager, {1, 1, 1}, 20, 0);
    const TestImage v(values, Arrangement::planar);
    TestImage out(Pixels(large, 3), Arrangement::planar);
    std::vector<float> told;
    filter.setProgress([&](float done) {
        told.push_back(done);
        if (told.size() == 5) throw std::runtime_error("enough");
    });
    const auto fillWhere = [&](auto hidden) {
        const TestImage m(seedsWhere(large, hidden), Arrangement::planar);
        filter.apply(v.image(), v.image(), m.image(), out.image());
    };
    EXPECT_THROW(fillWhere([](int x, int) { return x < 400 ? 1.0f : 0.0f; }), std::runtime_error);
    EXPECT_TRUE(std::ranges::is_sorted(told) && told.back() > told.front() && told.back() < 1);
    fillWhere([](int, int) { return 1.0f; });
    EXPECT_EQ(told.size(), 5u) << "without a donor nothing is walked";
    EXPECT_EQ(firstDifference(values, out.pixels()), "");
}

TEST_F(BilateralFilter, nothingToFillAndNothingToFillFrom) {
    const Box little{0, 0, 19, 14};
    const Pixels values = randomPixels(little, 3, 6, false);
    for (const float mask : {0.0f, 1.0f, 0.5f})
        EXPECT_EQ(
            firstDifference(values, Fill{}.run(values, values, seedsWhere(little, [&](int, int) { return mask; }))),
            "");
    // A mask of up to the threshold gives, and is filled by so little.
    const Pixels faint = seedsWhere(little, [](int, int) { return 5e-5f; });
    EXPECT_LT(largestDifference(values, Fill{}.run(values, values, faint)), 2e-4);
}

TEST_F(BilateralFilter, brokenPixelsUnderTheMaskDoNoHarm) {
    Pixels values = randomPixels(frame, 3, 7, false);
    const Pixels guide = randomPixels(frame, 3, 8, false);
    const Pixels mask = seedsWhere(frame, [](int x, int y) { return holes(x, y) > 0.5f ? 1.0f : 0.0f; });
    const Pixels whole = Fill{}.run(values, guide, mask);
    int broken = 0;
    values.forEach([&](int x, int y, int c) {
        if (mask.at(x, y, 0) == 0 || (x == 30 && y == 25)) return;
        values.at(x, y, c) = INFINITY;
        ++broken;
    });
    ASSERT_GT(broken, 100);
    EXPECT_EQ(Fill{}.run(values, guide, mask).at(30, 25, 0), whole.at(30, 25, 0));
}

TEST_F(BilateralFilter, aDeviceOfItsOwnMemoryGivesTheSameBits) {
    const Pixels values = randomPixels(frame, 3, 9, false), guide = randomPixels(frame, 3, 10, false);
    const Pixels mask = seedsWhere(frame, holes);
    const SoftwareContext context;
    EXPECT_EQ(firstDifference(Fill{}.run(values, guide, mask), Fill{}.run(values, guide, mask, context.device())), "");
}

TEST_F(BilateralFilter, refusesWhatDoesNotFit) {
    const Pixels values = randomPixels(frame, 3, 11, false), mask = seedsWhere(frame, holes);
    EXPECT_THROW(Fill{}.run(values, randomPixels(frame, 4, 1, false), mask), Vellum::Compute::Exception);
    EXPECT_THROW(Fill{}.run(values, values, seedsWhere({0, 5, 62, 51}, holes)), Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
