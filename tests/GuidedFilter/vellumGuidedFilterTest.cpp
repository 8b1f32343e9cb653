#include "GuidedFilter/GuidedFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Common/Common.h"
#include "compute/Catalogue.h"
#include "compute/Exception.h"
#include "compute/RunKernel.h"
#include "tests/harness/SoftwareDevice.h"
#include "tests/harness/TestImage.h"

namespace Vellum::Kernels {
extern const Family guided;
}

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

const Box tiny{-3, 2, 41, 39};
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

/// The steps one by one, means in place among them.
TEST_F(GuidedFilter, isTheSequenceOfOperations) {
    namespace Common = Vellum::Common;
    const Pixels input = picture(small, 3, 16), guidance = picture(small, 3, 17);
    const auto one = [](const Pixels& from) { return TestImage(from, Arrangement::planar).image(); };
    for (const int radius : {3, 17}) {
        const Call call{.radius = radius, .fused = false};
        Image scratch = one(channel(input, 0));
        const auto mean = [&](const Image& from, Image& to) { Common::boxFilter(from, scratch, to, radius); };
        const auto covariance = [&](const Image& x, const Image& y, const Image& meanX, const Image& meanY) {
            Image result = scratch.makeLike(hostDevice()), product = scratch.makeLike(hostDevice());
            Common::multiply(x, y, product);
            mean(product, product);
            Common::multiply(meanX, meanY, result);
            Common::subtract(product, result, result);
            return result;
        };
        const auto meanOf = [&](const Image& from) {
            Image result = scratch.makeLike(hostDevice());
            mean(from, result);
            return result;
        };
        const Image p = one(channel(input, 1)), meanP = meanOf(p);
        std::vector<Image> g, meanG;
        for (int c = 0; c < 3; ++c) {
            g.push_back(one(channel(guidance, c)));
            meanG.push_back(meanOf(g[c]));
        }
        const auto combined = [&](std::vector<Image>& a, const std::vector<int>& guides) {
            Image b = scratch.makeLike(hostDevice()), product = b.makeLike(hostDevice());
            Common::copy(meanP, b);
            for (std::size_t k = 0; k < a.size(); ++k) {
                Common::multiply(a[k], meanG[guides[k]], product);
                Common::subtract(b, product, b);
            }
            for (std::size_t k = 0; k < a.size(); ++k) {
                mean(a[k], a[k]);
                Common::multiply(a[k], g[guides[k]], a[k]);
            }
            mean(b, b);
            if (a.size() == 3) {
                Common::add(a[0], a[1], a[0]);
                Common::add(a[2], a[0], a[0]);
            }
            Common::add(b, a[0], b);
            return pixelsOf(b);
        };
        std::vector<Image> slope{covariance(g[1], g[1], meanG[1], meanG[1])};
        Common::addConstant(slope[0], slope[0], call.epsilon);
        Common::divide(covariance(p, g[1], meanP, meanG[1]), slope[0], slope[0]);
        EXPECT_EQ(firstDifference(combined(slope, {1}), channel(call.run(input, guidance), 1)), "") << radius;

        std::vector<Image> variances, covariances, slopes;
        for (int i = 0; i < 3; ++i) {
            covariances.push_back(covariance(g[i], p, meanG[i], meanP));
            slopes.push_back(p.makeLike(hostDevice()));
            for (int j = i; j < 3; ++j)
                variances.push_back(covariance(g[i], g[j], meanG[i], meanG[j]));
        }
        const Vellum::Compute::ProgramSource solve(Vellum::Kernels::guided, "guidedSolveKernel");
        Vellum::Compute::runKernel(
            solve,
            {&variances[0], &variances[1], &variances[2], &variances[3], &variances[4], &variances[5], &covariances[0],
             &covariances[1], &covariances[2], &slopes[0], &slopes[1], &slopes[2]},
            19, {}, Vellum::Compute::Scalar{"epsilon", call.epsilon});
        const Call byColour{.radius = radius, .mode = Filter::allChannels};
        EXPECT_EQ(firstDifference(combined(slopes, {0, 1, 2}), channel(byColour.run(input, guidance), 1)), "");
    }
}

TEST_F(GuidedFilter, fewerPassesHaveTheBitsOfTheSequence) {
    for (const int radius : {0, 1, 2, 3, 11, 15, 16, 21})
        for (const Box& box : {small, Box{3, 3, 4, 40}, Box{0, 0, 33, 1}, fourTiles}) {
            if (box == fourTiles && radius != 3 && radius != 21) continue;
            const Pixels input = picture(box, 3, 3), guidance = picture(box, 3, 4);
            for (const auto& guide : {guidance, input}) {
                const auto with = [&](bool fused) { return Call{.radius = radius, .fused = fused}.run(input, guide); };
                EXPECT_EQ(firstDifference(with(false), with(true)), "") << "radius " << radius;
            }
        }
}

/// A picture guided by itself takes a form of its own.
TEST_F(GuidedFilter, instructionSetsAgreeOnAPictureGuidedByItself) {
    using Vellum::CodeGen::limitInstructionSet;
    const TestImage self(picture(small, 3, 18), Arrangement::ordinary);
    const auto filtered = [&](bool fused) {
        Image output = self.image().makeLike(hostDevice());
        Call{.fused = fused}.apply(self.image(), self.image(), output);
        return pixelsOf(output);
    };
    const Pixels composed = filtered(false);
    for (const auto set : Vellum::CodeGen::availableInstructionSets()) {
        limitInstructionSet(set);
        EXPECT_EQ(firstDifference(composed, filtered(true)), "") << toString(set);
    }
    limitInstructionSet(Vellum::CodeGen::InstructionSet::avx512);
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
    const Call calls[] = {{.radius = 3},
                          {.radius = 18},
                          {.radius = 3, .fused = false},
                          {.radius = 0},
                          {.radius = 260}};  // the margin of the last is wider than a tile
    for (Call call : calls) {
        SCOPED_TRACE(testing::Message() << call.radius << (call.fused ? " fused" : " composed"));
        call.epsilon = 1e-2f;
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

TEST_F(GuidedFilter, onlyPixelsOfTheInputCount) {
    const Pixels input = picture(small, 3, 19);
    const Pixels wide = picture({-9, 0, 90, 70}, 3, 20);
    Pixels cut(small, 3);
    cut.forEach([&](int x, int y, int c) { cut.at(x, y, c) = wide.at(x, y, c); });
    for (const bool fused : {true, false}) {
        const Call call{.fused = fused};
        const Pixels expected = call.run(input, cut);
        EXPECT_EQ(firstDifference(expected, call.run(input, wide)), "") << "a guidance beyond the input";
        const TestImage in(input, Arrangement::planar), guide(cut, Arrangement::planar);
        TestImage out(wide, Arrangement::planar);
        call.apply(in.image(), guide.image(), out.image());
        Pixels written = wide;
        expected.forEach([&](int x, int y, int c) { written.at(x, y, c) = expected.at(x, y, c); });
        EXPECT_EQ(firstDifference(written, out.pixels()), "") << "an output beyond the input";
        const Pixels two = call.run(input, cut, 2);
        for (int c = 0; c < 2; ++c)
            EXPECT_EQ(firstDifference(channel(expected, c), channel(two, c)), "") << "an output of fewer channels";
    }
}

TEST_F(GuidedFilter, namedBuffersAreReleased) {
    const TestImage image(picture(small, 3, 21), Arrangement::planar);
    Image output = image.image().makeLike(hostDevice());
    BufferManager manager(hostDevice(), hostDevice());
    for (const int mode : {0, 1, 2}) {
        Filter(manager, 3, 1e-3f, mode, 0).apply(image.image(), image.image(), output);
        for (const char* name : {"kFiltered", "kMeanInput", "kB"})
            EXPECT_FALSE(manager.hasImage(name)) << name;
        for (const char* name : {"kInputTuple", "kGuidanceTuple", "kMeanGuidanceTuple", "kCovarianceGuidanceImageTuple",
                                 "kVarianceGuidanceTuple", "kATuple"})
            EXPECT_FALSE(manager.hasTuple(name)) << name;
    }
}

/// Of 8192 x 4320 pixels the first columns of tiles: what is kept beside them is as high as the picture.
TEST_F(GuidedFilter, memoryDoesNotGrowWithThePicture) {
    const Box box{0, 0, 2400, 4320};
    constexpr std::size_t allowed = 120'000'000;
    auto& pool = hostDevice().pool();
    pool.trim();
    const auto needed = [&](const Call& call, Image& input, Image& guidance) {
        const std::size_t before = pool.bytesInUse();
        pool.forgetMostBytesInUse();
        call.apply(input, guidance, input);
        return pool.mostBytesInUse() - before;
    };
    Image picture({box, 4}, hostDevice()), guidance({box, 3}, hostDevice());
    picture.clear();
    guidance.clear();
    for (const bool fused : {true, false}) {
        EXPECT_LT(needed({.radius = 40, .epsilon = 1e-7f, .fused = fused}, picture, picture), allowed);
        EXPECT_LT(needed({.radius = 40, .epsilon = 1e-7f, .fused = fused}, picture, guidance), allowed);
    }
    pool.trim();
}

/// Copies of pictures on a device of its own.
Image onDevice(const Pixels& pixels, Vellum::Image::DeviceBase& device) {
    return TestImage(pixels, Arrangement::planar).image().distributeTo(device);
}

TEST_F(GuidedFilter, aDeviceOfItsOwnMemoryGivesTheSameBits) {
    const Pixels input = picture(tiny, 4, 13), guidance = picture(tiny, 4, 14);
    for (Call call : {Call{.mode = 0}, Call{.mode = 1}, Call{.mode = 2}, Call{.radius = 17, .mode = 1}}) {
        const Pixels expected = call.run(input, guidance);
        const SoftwareContext context;
        call.device = &context.device();
        const Image guide = onDevice(guidance, *call.device);
        Image image = onDevice(input, *call.device), output = onDevice(input, *call.device);
        call.apply(image, guide, output);
        EXPECT_EQ(firstDifference(expected, pixelsOf(output)), "") << call.mode;
        call.apply(image, guide, image);
        EXPECT_EQ(firstDifference(expected, pixelsOf(image)), "") << call.mode << " in place";
    }
}

/// Images that find no room are met by going over to the CPU; a kernel that fails is the caller's affair.
TEST_F(GuidedFilter, aDeviceWithoutRoomIsLeftAndTheResultDelivered) {
    const Pixels input = picture(tiny, 3, 22), guidance = picture(tiny, 3, 23);
    Call call;
    const Pixels expected = call.run(input, guidance);
    const SoftwareContext context;
    auto& device = context.device();
    call.device = &device;
    for (const bool resultThere : {true, false}) {
        const Image image = onDevice(input, device), guide = onDevice(guidance, device);
        Image output = onDevice(input, resultThere ? *call.device : hostDevice());
        bool inKernel = false;
        int images = 0;
        for (; !inKernel; ++images) {
            output = onDevice(input, *output.device());
            device.failAt(SoftwareDevice::Operation::allocation, images, SoftwareDevice::Failing::fromThenOn);
            testing::internal::CaptureStdout();
            try {
                call.apply(image, guide, output);
            } catch (const Cobalt::Base::Exception&) {
                inKernel = device.failedInsideCall();
            }
            const std::string told = testing::internal::GetCapturedStdout();
            device.failNoMore();
            if (inKernel) continue;
            EXPECT_NE(told, "") << images;
            EXPECT_EQ(firstDifference(expected, pixelsOf(output)), "") << images;
        }
        EXPECT_GE(images, 17) << "the named buffers and the strips, at least";
    }
    EXPECT_TRUE(device.gapsIntact());
}

TEST_F(GuidedFilter, refusesWhatItCannotFilter) {
    const Pixels input = picture(small, 3, 15);
    EXPECT_THROW((Call{.radius = -1}.run(input, input)), Vellum::Compute::Exception);
    EXPECT_THROW(Call{}.run(input, picture({0, 5, 84, 67}, 3, 1)), Vellum::Compute::Exception);
}

}  // namespace ViewTint::Tests
