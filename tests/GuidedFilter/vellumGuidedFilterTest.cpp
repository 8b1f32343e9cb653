#include "GuidedFilter/GuidedFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Common/Common.h"
#include "compute/Exception.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::Host::hostDevice;
using Vellum::Utils::BufferManagement::BufferManager;
using Filter = Vellum::GuidedFilter::GuidedFilter;

class GuidedFilter : public testing::Test {
protected:
    static void SetUpTestSuite() {
        Vellum::Common::registerKernels();
        Vellum::GuidedFilter::registerKernels();
    }
};

struct Call {
    int radius = 3;
    float epsilon = 1e-3f;
    int mode = Filter::channelByChannel;
    bool tiles = true;
    bool fused = true;
    Vellum::Image::DeviceBase* device = &hostDevice();

    void apply(const Image& input, const Image& guidance, Image& output) const {
        BufferManager manager(*device, hostDevice());
        Filter filter(manager, radius, epsilon, mode, 0);
        filter.setForceTiling(tiles);
        filter.setFusedPasses(fused);
        filter.apply(input, guidance, output);
    }
    /// Into an output of its own that holds 9 before.
    Pixels run(const Pixels& input, const Pixels& guidance, int components = 0) const {
        const TestImage in(input, Arrangement::paddedPlanar), guide(guidance, Arrangement::planar);
        Pixels before(input.box(), components > 0 ? components : input.components());
        before.forEach([&](int x, int y, int c) { before.at(x, y, c) = 9; });
        TestImage out(before, Arrangement::planar);
        apply(in.image(), guide.image(), out.image());
        EXPECT_EQ(firstDifference(input, in.pixels()), "");
        EXPECT_EQ(firstDifference(guidance, guide.pixels()), "");
        EXPECT_TRUE(out.guardsIntact());
        return out.pixels();
    }
};

/// A picture with an edge, a slope and grain.
Pixels picture(const Box& box, int components, std::uint32_t seed) {
    Pixels pixels = randomPixels(box, components, seed, false);
    pixels.forEach([&](int x, int y, int c) {
        float& v = pixels.at(x, y, c);
        v = 0.1f * v + (x + 2 * y > 60 ? 0.7f : 0.2f) + 0.0003f * static_cast<float>(x - y) +
            0.1f * static_cast<float>(c);
    });
    return pixels;
}

Pixels channel(const Pixels& from, int c) {
    Pixels one(from.box(), 1);
    one.forEach([&](int x, int y, int) { one.at(x, y, 0) = from.at(x, y, c); });
    return one;
}

/// Means over windows in double, nearest pixel beyond the edge.
std::vector<double> means(const Box& box, int radius, const std::function<double(int, int)>& value) {
    std::vector<double> result;
    for (int y = box.y0; y < box.y1; ++y)
        for (int x = box.x0; x < box.x1; ++x) {
            double sum = 0;
            for (int j = -radius; j <= radius; ++j)
                for (int i = -radius; i <= radius; ++i)
                    sum += value(std::clamp(x + i, box.x0, box.x1 - 1), std::clamp(y + j, box.y0, box.y1 - 1));
            result.push_back(sum / ((2 * radius + 1) * (2 * radius + 1)));
        }
    return result;
}

/// The filter of one channel by one channel from its definition, in double.
Pixels expected(const Pixels& p, const Pixels& g, int radius, double epsilon) {
    const Box& box = p.box();
    const auto index = [&](int x, int y) { return static_cast<std::size_t>(y - box.y0) * box.width() + (x - box.x0); };
    const auto meanP = means(box, radius, [&](int x, int y) { return p.at(x, y, 0); });
    const auto meanG = means(box, radius, [&](int x, int y) { return g.at(x, y, 0); });
    const auto meanPG = means(box, radius, [&](int x, int y) { return double{p.at(x, y, 0)} * g.at(x, y, 0); });
    const auto meanGG = means(box, radius, [&](int x, int y) { return double{g.at(x, y, 0)} * g.at(x, y, 0); });
    std::vector<double> a(meanP.size()), b(meanP.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double divisor = meanGG[i] - meanG[i] * meanG[i] + epsilon;
        a[i] = divisor == 0 ? 0 : (meanPG[i] - meanP[i] * meanG[i]) / divisor;
        b[i] = meanP[i] - a[i] * meanG[i];
    }
    const auto meanA = means(box, radius, [&](int x, int y) { return a[index(x, y)]; });
    const auto meanB = means(box, radius, [&](int x, int y) { return b[index(x, y)]; });
    Pixels result(box, 1);
    result.forEach([&](int x, int y, int) {
        result.at(x, y, 0) = static_cast<float>(meanB[index(x, y)] + meanA[index(x, y)] * g.at(x, y, 0));
    });
    return result;
}

double largestDifference(const Pixels& a, const Pixels& b) {
    double largest = 0;
    a.forEach([&](int x, int y, int c) {
        const double d = std::abs(double{a.at(x, y, c)} - b.at(x, y, c));
        largest = std::max(largest, std::isnan(d) ? 1e9 : d);
    });
    return largest;
}

const Box small{-7, 4, 84, 67};
/// Two by two tiles, the last ones narrow.
const Box fourTiles{-20, 11, -20 + 1024 + 37, 11 + 768 + 25};

}  // namespace

TEST_F(GuidedFilter, isItsDefinition) {
    const Pixels input = picture(small, 3, 1), guidance = picture(small, 3, 2);
    for (const int radius : {0, 1, 3, 12, 16, 21})
        for (const bool fused : {true, false}) {
            SCOPED_TRACE(testing::Message() << radius << (fused ? " fused" : " composed"));
            const Pixels filtered = Call{.radius = radius, .fused = fused}.run(input, guidance);
            for (int c = 0; c < 3; ++c)
                EXPECT_LT(largestDifference(expected(channel(input, c), channel(guidance, c), radius, 1e-3),
                                            channel(filtered, c)),
                          3e-5);
        }
}

TEST_F(GuidedFilter, twoPassesHaveTheBitsOfTheSequence) {
    for (const int radius : {0, 1, 2, 3, 11, 15})
        for (const Box& box : {small, Box{3, 3, 4, 40}, Box{0, 0, 33, 1}, fourTiles}) {
            if (box == fourTiles && radius != 3) continue;
            const Pixels input = picture(box, 3, 3), guidance = picture(box, 3, 4);
            for (const auto& guide : {guidance, input}) {
                const auto with = [&](bool fused) { return Call{.radius = radius, .fused = fused}.run(input, guide); };
                EXPECT_EQ(firstDifference(with(false), with(true)), "") << "radius " << radius;
            }
        }
}

TEST_F(GuidedFilter, tilesAgreeAtTheirSeams) {
    const Pixels input = picture(fourTiles, 3, 5), guidance = picture(fourTiles, 3, 6);
    for (const bool fused : {true, false}) {
        const auto inTiles = [&](int radius, bool tiles) {
            return Call{.radius = radius, .tiles = tiles, .fused = fused}.run(input, guidance);
        };
        EXPECT_EQ(firstDifference(inTiles(5, false), inTiles(5, true)), "");
        EXPECT_LT(largestDifference(inTiles(20, false), inTiles(20, true)), 1e-4) << "sums run from other places";
    }
}

TEST_F(GuidedFilter, readsPicturesAsTheyWereBeforeTheCall) {
    const Pixels picture0 = picture(fourTiles, 3, 7), other = picture(fourTiles, 3, 8);
    for (const int radius : {3, 18, 260}) {  // the margin of the last is wider than a tile
        SCOPED_TRACE(radius);
        const Call call{.radius = radius, .epsilon = 1e-2f};
        const Pixels apart = call.run(picture0, picture0);
        TestImage same(picture0, Arrangement::planar);
        call.apply(same.image(), same.image(), same.image());
        EXPECT_EQ(firstDifference(apart, same.pixels()), "") << "input, guidance and output in one";

        const Pixels guided = call.run(picture0, other);
        TestImage input(picture0, Arrangement::planar), guidance(other, Arrangement::planar);
        call.apply(input.image(), guidance.image(), input.image());
        EXPECT_EQ(firstDifference(guided, input.pixels()), "") << "output in the input";
        TestImage second(picture0, Arrangement::planar);
        call.apply(second.image(), guidance.image(), guidance.image());
        EXPECT_EQ(firstDifference(guided, guidance.pixels()), "") << "output in the guidance";
    }
}

TEST_F(GuidedFilter, furtherChannelsPassThroughInTilesAndStayInWholePictures) {
    const Pixels input = picture(fourTiles, 4, 9);
    for (const bool fused : {true, false}) {
        const Pixels tiled = Call{.fused = fused}.run(input, input);
        EXPECT_EQ(firstDifference(channel(input, 3), channel(tiled, 3)), "");
        EXPECT_NE(firstDifference(channel(input, 2), channel(tiled, 2)), "");
        const Pixels whole = Call{.tiles = false, .fused = fused}.run(input, input);
        EXPECT_EQ(firstDifference(channel(tiled, 2), channel(whole, 2)), "");
        EXPECT_EQ(whole.at(0, 20, 3), 9);
    }
    EXPECT_EQ(firstDifference(Call{}.run(input, input, 3), Call{}.run(picture(fourTiles, 4, 9), input, 3)), "");
    // Small pictures go through the tile loop even so.
    const Pixels little = picture(small, 4, 9);
    EXPECT_EQ(firstDifference(channel(little, 3), channel(Call{.tiles = false}.run(little, little), 3)), "");
}

TEST_F(GuidedFilter, guidanceModes) {
    const Pixels input = picture(small, 2, 10), guidance = picture(small, 3, 11);
    EXPECT_EQ(firstDifference(input, Call{}.run(input, guidance)), "") << "two channels can't be guided by three";
    EXPECT_EQ(firstDifference(input, Call{.mode = 7}.run(input, guidance)), "");
    EXPECT_EQ(firstDifference(input, Call{.mode = Filter::allChannels}.run(input, input)), "");

    Pixels mean(small, 1);
    mean.forEach([&](int x, int y, int) {
        mean.at(x, y, 0) = (guidance.at(x, y, 0) + guidance.at(x, y, 1) + guidance.at(x, y, 2)) / 3;
    });
    for (const bool fused : {true, false}) {
        const Pixels byMean = Call{.mode = Filter::meanOfChannels, .fused = fused}.run(input, guidance);
        for (int c = 0; c < 2; ++c)
            EXPECT_LT(largestDifference(expected(channel(input, c), mean, 3, 1e-3), channel(byMean, c)), 3e-5);
    }
    // An input that is a sum of the guidance's channels is explained by them but for epsilon.
    Pixels sum(small, 1);
    sum.forEach([&](int x, int y, int) {
        sum.at(x, y, 0) = 0.5f * guidance.at(x, y, 0) - 0.25f * guidance.at(x, y, 1) + guidance.at(x, y, 2) + 0.1f;
    });
    EXPECT_LT(largestDifference(sum, Call{.epsilon = 1e-6f, .mode = Filter::allChannels}.run(sum, guidance)), 2e-3);
    EXPECT_GT(largestDifference(sum, Call{.epsilon = 1e-6f}.run(sum, channel(guidance, 2))), 2e-2);
}

TEST_F(GuidedFilter, flatPicturesWithoutEpsilonStay) {
    Pixels flat(small, 3);
    flat.forEach([&](int x, int y, int c) { flat.at(x, y, c) = 0.5f; });
    for (const int mode : {0, 1, 2})
        EXPECT_LT(largestDifference(flat, Call{.radius = 1, .epsilon = 0, .mode = mode}.run(flat, flat)), 1e-6) << mode;
}

TEST_F(GuidedFilter, wholeTilesLeaveNoEmptyOnesBehind) {
    const Box exact{0, 0, 1024, 9};
    const Pixels input = picture(exact, 3, 12);
    const Pixels filtered = Call{}.run(input, input);
    EXPECT_LT(largestDifference(expected(channel(input, 0), channel(input, 0), 3, 1e-3), channel(filtered, 0)), 3e-5);
}

TEST_F(GuidedFilter, memoryDoesNotGrowWithThePicture) {
    const Box box{0, 0, 8192, 4320};
    constexpr std::size_t allowed = 120'000'000;
    auto& pool = hostDevice().pool();
    pool.trim();
    Image input({box, 3}, hostDevice());
    input.clear();
    const std::size_t before = pool.bytesInUse();
    pool.forgetMostBytesInUse();
    Call{.radius = 40, .epsilon = 1e-7f}.apply(input, input, input);
    EXPECT_LT(pool.mostBytesInUse() - before, allowed);
    pool.trim();
}

TEST_F(GuidedFilter, aDeviceOfItsOwnMemoryGivesTheSameBits) {
    const Pixels input = picture(small, 4, 13), guidance = picture(small, 4, 14);
    for (const int mode : {0, 1, 2}) {
        const SoftwareContext context;
        auto& device = context.device();
        const auto onDevice = [&](const Pixels& pixels) {
            const TestImage image(pixels, Arrangement::planar);
            return image.image().distributeTo(device);
        };
        const Image in = onDevice(input), guide = onDevice(guidance);
        Image out = onDevice(input);
        Call{.mode = mode, .device = &device}.apply(in, guide, out);
        EXPECT_EQ(firstDifference(Call{.mode = mode}.run(input, guidance), pixelsOf(out)), "");
    }
}

TEST_F(GuidedFilter, refusesWhatItCannotFilter) {
    const Pixels input = picture(small, 3, 15);
    EXPECT_THROW((Call{.radius = -1}.run(input, input)), Vellum::Compute::Exception);
    EXPECT_THROW(Call{}.run(input, picture({0, 5, 84, 67}, 3, 1)), Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
