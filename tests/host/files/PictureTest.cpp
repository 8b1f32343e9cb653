#include "host/files/Picture.h"

#include <OpenImageIO/imageio.h>

#include <cmath>

#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

class PictureTest : public FolderTest {
protected:
    template <class Value>
    void write(const std::string& name, int width, int height, int channels, OIIO::TypeDesc type,
               const std::vector<Value>& pixels, bool unassociatedAlpha = false) const {
        OIIO::ImageSpec spec(width, height, channels, type);
        if (unassociatedAlpha) spec.attribute("oiio:UnassociatedAlpha", 1);
        const auto output = OIIO::ImageOutput::create(file(name).string());
        ASSERT_TRUE(output && output->open(file(name).string(), spec)) << OIIO::geterror();
        ASSERT_TRUE(output->write_image(OIIO::BaseTypeFromC<Value>::value, pixels.data())) << output->geterror();
        ASSERT_TRUE(output->close());
    }

    /// Noise, so that every stretch of the file matters.
    static std::vector<std::uint8_t> noise(std::size_t count) {
        std::vector<std::uint8_t> values(count);
        std::uint32_t state = 1;
        for (auto& value : values) {
            state = state * 1664525u + 1013904223u;
            value = static_cast<std::uint8_t>(state >> 24);
        }
        return values;
    }
};

TEST_F(PictureTest, readsRowsUpwardAndCodesAsFractions) {
    write<std::uint8_t>("in.png", 2, 2, 3, OIIO::TypeDesc::UINT8, {0, 51, 255, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    const Picture picture = readPicture(file("in.png"), Colourspace::linear);
    EXPECT_EQ(picture.width, 2);
    EXPECT_EQ(picture.channels, (std::vector<std::string>{"R", "G", "B"}));
    ASSERT_EQ(picture.planes.size(), 3u);
    EXPECT_FLOAT_EQ(picture.planes[1][2], 51 / 255.0f);  // top left
    EXPECT_FLOAT_EQ(picture.planes[2][1], 9 / 255.0f);   // bottom right
}

TEST_F(PictureTest, decodesColourButNotAlpha) {
    write<std::uint8_t>("in.png", 1, 1, 4, OIIO::TypeDesc::UINT8, {255, 128, 5, 128}, true);
    const Picture picture = readPicture(file("in.png"), Colourspace::sRGB);
    const float alpha = 128 / 255.0f;
    const double green = std::pow((128 / 255.0 + 0.055) / 1.055, 2.4);
    EXPECT_FLOAT_EQ(picture.planes[3][0], alpha);
    EXPECT_FLOAT_EQ(picture.planes[0][0], alpha);
    EXPECT_FLOAT_EQ(picture.planes[1][0], static_cast<float>(green) * alpha);
    EXPECT_FLOAT_EQ(picture.planes[2][0], 5 / 255.0f / 12.92f * alpha);
}

TEST_F(PictureTest, readsCodesAsTheyAre) {
    write<std::uint8_t>("in.png", 1, 2, 1, OIIO::TypeDesc::UINT8, {255, 7});
    EXPECT_EQ(readCodes(file("in.png")).planes.at(0), (std::vector<float>{7, 255}));
    write<std::uint16_t>("in.tif", 1, 2, 1, OIIO::TypeDesc::UINT16, {65535, 300});
    EXPECT_EQ(readCodes(file("in.tif")).planes.at(0), (std::vector<float>{300, 65535}));
    write<std::uint8_t>("colour.png", 1, 1, 3, OIIO::TypeDesc::UINT8, {1, 2, 3});
    EXPECT_NE(fileErrorOf([&] { readCodes(file("colour.png")); }).find("3 channels"), std::string::npos);
}

TEST_F(PictureTest, placesTheDataWindowInTheDisplayWindow) {
    const Imath::Box2i display({0, 0}, {3, 2});
    const Imath::Box2i data({2, -1}, {5, 1});
    writeRaw(file("in.exr"), {functionPart(Imf::Header(display, data), {"Y"}, [](const std::string&, int x, int y) {
                 return static_cast<float>(10 * y + x + 1);
             })});
    const Picture picture = readPicture(file("in.exr"), Colourspace::linear);
    ASSERT_EQ(picture.planes.size(), 1u);
    EXPECT_EQ(picture.planes[0], (std::vector<float>{0, 0, 0, 0, 0, 0, 13, 14, 0, 0, 3, 4}));
}

TEST_F(PictureTest, aCutPictureIsRefused) {
    const auto pixels = noise(64 * 64 * 3);
    for (const std::string name : {"in.png", "in.jpg", "in.tif", "in.dpx"}) {
        write(name, 64, 64, 3, OIIO::TypeDesc::UINT8, pixels);
        EXPECT_EQ(readPicture(file(name), Colourspace::linear).planes.size(), 3u);
        const std::string whole = bytesOfFile(file(name));
        for (const std::size_t length : {std::size_t{0}, std::size_t{20}, whole.size() / 3, whole.size() / 2,
                                         whole.size() * 3 / 4, whole.size() * 9 / 10}) {
            writeBytes(file("cut-" + name), whole.substr(0, length));
            EXPECT_NE(fileErrorOf([&] { readPicture(file("cut-" + name), Colourspace::linear); }).find("cut-" + name),
                      std::string::npos)
                << length << " of " << whole.size();
        }
    }
}

TEST_F(PictureTest, whatCannotBeReadIsNamed) {
    const auto read = [&](const std::string& name) {
        return fileErrorOf([&] { readPicture(file(name), Colourspace::linear); });
    };
    EXPECT_NE(read("no.png").find("there is no such file"), std::string::npos);
    writeBytes(file("text.png"), "This is no picture.");
    EXPECT_NE(read("text.png").find("it is not a picture"), std::string::npos);
    EXPECT_NE(read("").find("it is a folder"), std::string::npos);
}

TEST_F(PictureTest, writesEightBitPictures) {
    const auto pixels = noise(5 * 3 * 3);
    writeRgb8(file("out.png"), 5, 3, pixels);
    const auto input = OIIO::ImageInput::open(file("out.png").string());
    ASSERT_TRUE(input);
    std::vector<std::uint8_t> back(pixels.size());
    ASSERT_TRUE(input->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, back.data()));
    EXPECT_EQ(back, pixels);

    EXPECT_NE(fileErrorOf([&] { writeRgb8(file("out.what"), 5, 3, pixels); }).find("ending"), std::string::npos);
    EXPECT_THROW(writeRgb8(file("no/out.png"), 5, 3, pixels), FileError);
    EXPECT_THROW(writeRgb8(file("small.png"), 6, 3, pixels), FileError);
    EXPECT_EQ(filesThere(), std::vector<std::string>{"out.png"});
}

TEST_F(PictureTest, agreesWithTheSharedScene) {
    const std::filesystem::path scene = VIEWTINT_SHARED_DATA "/cones";
    if (!std::filesystem::exists(scene)) GTEST_SKIP() << "no test pictures at " << scene;
    const Picture picture = readPicture(scene / "im6.png", Colourspace::sRGB);
    const auto packed = MultiViewFile::open(scene / "cones.exr");
    std::vector<float> green(picture.planes[1].size());
    packed.read("right", "G", {0, 0, picture.width, picture.height}, green.data(), picture.width);
    for (std::size_t i = 0; i < green.size(); ++i)
        ASSERT_NEAR(picture.planes[1][i], green[i], 1e-6f) << i;
}

}  // namespace
}  // namespace ViewTint::Host::Testing
