#include "host/parallax/ParallaxSource.h"

#include <atomic>
#include <cmath>
#include <filesystem>

#include "host/files/ImageCacheDirectory.h"
#include "host/parallax/ParallaxField.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
constexpr int width = 120, height = 60, shift = 6;

/// A file of two views without any disparity, shifted against each other.
class ParallaxSourceTest : public FolderTest {
protected:
    static std::vector<float> texture(int offset) {
        std::vector<float> pixels;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double u = x + offset;
                pixels.push_back(static_cast<float>(0.5 + 0.2 * std::sin(u * 0.9 + y * 0.31) +
                                                    0.2 * std::sin(u * 0.37 - y * 0.83) * std::sin(u * 0.11)));
            }
        return pixels;
    }
    void writePair() const {
        std::vector<NewView> views;
        for (const auto& [name, offset] : {std::pair{"left", 0}, {"right", shift}})
            views.push_back({name, {{"R", texture(offset)}, {"G", texture(offset)}, {"B", texture(offset)}}});
        writeMultiView(file("in.exr"), width, height, views, PixelStorage::single);
    }
    std::shared_ptr<MultiViewFile> open(const std::string& name) const {
        return std::make_shared<MultiViewFile>(MultiViewFile::open(file(name)));
    }
    static float value(const MultiViewFile& picture, const std::string& view, const std::string& channel) {
        float pixel = -1;
        picture.read(view, channel, {60, 30, 61, 31}, &pixel, 1);
        return pixel;
    }
    /// The picture of `in.exr` with its disparity.
    std::shared_ptr<MultiViewFile> taken(ParallaxSettings settings) {
        still = std::make_unique<StillSource>(open("in.exr"), 1);
        ParallaxSource source(*still, ChannelRoles(), std::move(settings), services);
        source.report = [&](const ParallaxReport&) { ++estimates; };
        const auto picture = source.frame(1);
        EXPECT_EQ(source.frame(1), picture);
        return picture;
    }
    void SetUp() override {
        FolderTest::SetUp();
        writePair();
        services.progress = [&](double, const std::string& message) { worked += message == "Estimating disparity"; };
    }
    std::unique_ptr<StillSource> still;
    RenderServices services;
    int estimates = 0, worked = 0;
};

}  // namespace

TEST_F(ParallaxSourceTest, picturesWithoutDisparityGetTheNodesOwn) {
    const auto picture = taken({});
    EXPECT_EQ(estimates, 1);
    EXPECT_NEAR(value(*picture, "left", "disparityR.x"), -shift, 0.3);
    EXPECT_NEAR(value(*picture, "right", "disparityL.x"), shift, 0.3);
    EXPECT_EQ(value(*picture, "left", "disparityL.x"), 0);
    EXPECT_EQ(value(*picture, "left", "mask_occlusion.alpha"), 0);
    EXPECT_EQ(picture->addedFrom(), parallaxFieldClass);
    picture->save(file("plain.exr"));
    EXPECT_FALSE(open("plain.exr")->hasChannel("left", "disparityR.x"));

    taken({.save = true})->save(file("with.exr"));
    EXPECT_NEAR(value(*open("with.exr"), "right", "disparityL.x"), shift, 0.3);
    EXPECT_EQ(value(*open("with.exr"), "right", "R"), value(*picture, "right", "R"));

    fs::rename(file("with.exr"), file("in.exr"));
    estimates = 0;
    EXPECT_EQ(taken({})->addedFrom(), "") << "it has its own";
    EXPECT_EQ(estimates, 0);
    taken({.from = DisparityFrom::estimate, .save = true})->save(file("again.exr"));
    EXPECT_EQ(estimates, 1);
    EXPECT_NEAR(value(*open("again.exr"), "right", "disparityL.x"), shift, 0.3);
    fs::rename(file("plain.exr"), file("in.exr"));
    EXPECT_FALSE(taken({.from = DisparityFrom::file})->hasChannel("left", "disparityR.x"));
    const auto other = taken({.from = DisparityFrom::otherFile, .otherFile = [&](int) { return file("again.exr"); }});
    EXPECT_NEAR(value(*other, "left", "disparityR.x"), -shift, 0.3);
    EXPECT_THROW(taken({.from = DisparityFrom::otherFile, .otherFile = [&](int) { return file("in.exr"); }}),
                 FileError);
}

TEST_F(ParallaxSourceTest, estimatesAreKeptInTheCache) {
    const auto former = Fresco::Image::Image_Cache::mainCache();
    ImageCacheDirectory cache(file("cache"), std::size_t{1} << 30);
    Fresco::Image::Image_Cache::setMainCache(&cache);
    const float first = value(*taken({}), "left", "disparityR.x");
    EXPECT_EQ(worked > 0, true);
    worked = 0;
    EXPECT_EQ(value(*taken({}), "left", "disparityR.x"), first);
    EXPECT_EQ(worked, 0) << "read from the cache";
    Fresco::Image::Image_Cache::setMainCache(former);
}

TEST_F(ParallaxSourceTest, anAbortLeavesThePictureAsItWas) {
    std::atomic<bool> abort = false;
    services.abort = &abort;
    services.progress = [&](double done, const std::string&) { abort = done > 0.3; };
    EXPECT_ANY_THROW(taken({}));
}

}  // namespace ViewTint::Host::Testing
