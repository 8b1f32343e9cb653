#include "host/packing/PackFiles.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace ViewTint::Host {
namespace {

namespace fs = std::filesystem;
using Plane = std::vector<float>;

class PackFiles : public testing::Test {
protected:
    void SetUp() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        folder_ = fs::path(testing::TempDir()) / (std::string("viewtint_pack_") + test->name());
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        request_.left.picture = writeGrey("left.png", 4, 2, {0, 255, 0, 0, 0, 0, 0, 0});
        request_.right.picture = writeGrey("right.png", 4, 2, Codes(8, 128));
        request_.output = folder_ / "out.exr";
    }
    void TearDown() override { fs::remove_all(folder_); }

    using Codes = std::vector<std::uint8_t>;

    /// Codes with the top row first.
    fs::path writeGrey(const std::string& name, int width, int height, const Codes& codes) {
        const fs::path path = folder_ / name;
        const auto output = OIIO::ImageOutput::create(path.string());
        EXPECT_TRUE(output->open(path.string(), OIIO::ImageSpec(width, height, 1, OIIO::TypeUInt8)));
        EXPECT_TRUE(output->write_image(OIIO::TypeUInt8, codes.data()) && output->close());
        return path;
    }

    fs::path writeVectors(const std::string& name, Plane x, Plane y) {
        const NewView view{"main", {{"x", std::move(x)}, {"y", std::move(y)}}};
        writeMultiView(folder_ / name, 4, 2, std::span(&view, 1), PixelStorage::single);
        return folder_ / name;
    }

    Plane packed(const std::string& view, const std::string& channel) {
        const MultiViewFile file = MultiViewFile::open(request_.output);
        Plane values(8);
        file.read(view, channel, {0, 0, 4, 2}, values.data(), 4);
        return values;
    }

    fs::path folder_;
    PackRequest request_;
};

TEST_F(PackFiles, CodesBecomeLightAndPixels) {
    request_.left.disparity = writeGrey("map.png", 4, 2, {4, 4, 0, 4, 2, 2, 2, 2});
    request_.right.occlusion = writeGrey("occlusion.png", 4, 2, {255, 0, 0, 0, 0, 0, 0, 51});
    request_.disparityScale = 4.0;
    const PackReport report = packFiles(request_);
    EXPECT_EQ(report.width, 4);
    EXPECT_EQ(report.left.unknown, 1u);
    // The upper row of the files is the second one here.
    EXPECT_EQ(packed("left", "R"), (Plane{0, 0, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(packed("left", "B"), packed("left", "R"));
    EXPECT_NEAR(packed("right", "G")[0], 0.2158605f, 1e-6f);
    EXPECT_EQ(packed("left", "disparityR.x"), (Plane{-0.5f, -0.5f, -0.5f, -0.5f, -1, -1, -1, -1}));
    EXPECT_EQ(packed("left", "mask_occlusion.alpha")[6], 1.0f);
    EXPECT_EQ(packed("right", "mask_occlusion.alpha")[4], 1.0f);
    EXPECT_FLOAT_EQ(packed("right", "mask_occlusion.alpha")[3], 0.2f);  // soft masks stay soft
}

TEST_F(PackFiles, LinearInputAndHalfStorageAsAsked) {
    request_.left.disparity = writeGrey("map.png", 4, 2, Codes(8, 1));
    request_.colourspace = Colourspace::linear;
    request_.storage = PixelStorage::half;
    packFiles(request_);
    EXPECT_EQ(packed("right", "R")[0], 0.501953125f);  // 128 / 255 in half precision
}

TEST_F(PackFiles, VectorsCountUpOrDownAsAsked) {
    const Plane x = {-1, -1, -1, -1, 0, 0, DisparityMap::unknown, 0};
    const Plane y = {0, 0, 0, 0, -1, 0, 0, 0.25f};
    request_.left.disparity = writeVectors("vectors.exr", x, y);
    packFiles(request_);
    EXPECT_EQ(packed("left", "disparityR.x"), (Plane{-1, -1, -1, -1, 0, 0, 0, 0}));
    EXPECT_EQ(packed("left", "disparityR.y"), (Plane{0, 0, 0, 0, -1, 0, 0, 0.25f}));
    EXPECT_EQ(packed("left", "mask_occlusion.alpha"), (Plane{1, 0, 0, 0, 1, 0, 1, 0}));
    request_.vectorY = VectorY::down;
    packFiles(request_);
    EXPECT_EQ(packed("left", "disparityR.y")[7], -0.25f);
    EXPECT_EQ(packed("right", "disparityL.y")[7], 0.25f);
}

TEST_F(PackFiles, FilesThatDontFitAreNamedAndNothingIsWritten) {
    const auto messageOf = [&] {
        try {
            packFiles(request_);
        } catch (const FileError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    request_.left.disparity = writeGrey("small.png", 2, 2, Codes(4, 1));
    EXPECT_NE(messageOf().find("small.png"), std::string::npos);
    request_.left.disparity = request_.left.picture;
    request_.right.picture = writeGrey("narrow.png", 3, 2, Codes(6, 1));
    EXPECT_NE(messageOf().find("narrow.png"), std::string::npos);
    request_.right.picture = request_.left.picture;
    struct Enough {};
    EXPECT_THROW(packFiles(request_, [] { throw Enough(); }), Enough);
    for (const auto& entry : fs::directory_iterator(folder_))
        EXPECT_EQ(entry.path().extension(), ".png");
}

/// A measured scene with both maps, packed by other means from the same pictures.
TEST(PackMeasuredScene, AgreesWithThePackedReference) {
    const fs::path cones = fs::path(VIEWTINT_SHARED_DATA) / "cones";
    if (!fs::exists(cones / "cones.exr")) GTEST_SKIP() << "the measured scenes are not here: " << cones;
    PackRequest request;
    request.left = {cones / "im2.png", cones / "disp2.png", {}, {}};
    request.right = {cones / "im6.png", cones / "disp6.png", {}, {}};
    request.disparityScale = 4.0;
    request.output = fs::path(testing::TempDir()) / "viewtint_cones.exr";
    packFiles(request);

    const MultiViewFile reference = MultiViewFile::open(cones / "cones.exr");
    const MultiViewFile ours = MultiViewFile::open(request.output);
    const Box box{0, 0, reference.width(), reference.height()};
    Plane expected(std::size_t(box.pixels()));
    Plane actual(expected.size());
    for (const std::string& view : reference.views())
        for (const std::string& channel : reference.channels(view)) {
            reference.read(view, channel, box, expected.data(), box.width());
            ours.read(view, channel, box, actual.data(), box.width());
            std::size_t agreeing = 0;
            for (std::size_t i = 0; i < expected.size(); ++i)
                agreeing += std::abs(expected[i] - actual[i]) <= 1e-6f;
            // Visibility allows more than one reading of "unknown"; everything else is exact.
            const double share = double(agreeing) / double(expected.size());
            EXPECT_GE(share, channel == "mask_occlusion.alpha" ? 0.99 : 1.0) << view << ' ' << channel;
        }
    fs::remove(request.output);
}

}  // namespace
}  // namespace ViewTint::Host
