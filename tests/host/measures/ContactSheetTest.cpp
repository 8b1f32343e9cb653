#include "host/measures/ContactSheet.h"

#include <algorithm>
#include <array>
#include <limits>

#include <gtest/gtest.h>

#include "host/measures/SmallFont.h"

namespace ViewTint::Host {
namespace {

std::array<int, 3> pixelAt(const Raster& raster, int x, int y) {
    const std::size_t i = (std::size_t(y) * std::size_t(raster.width) + std::size_t(x)) * 3;
    return {raster.pixels[i], raster.pixels[i + 1], raster.pixels[i + 2]};
}

std::ptrdiff_t count(const Raster& raster, std::array<int, 3> colour) {
    std::ptrdiff_t found = 0;
    for (int y = 0; y < raster.height; ++y)
        for (int x = 0; x < raster.width; ++x)
            found += pixelAt(raster, x, y) == colour;
    return found;
}

/// Red above, blue below.
RgbPicture flag(int width, int height) {
    RgbPicture picture(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture.planes[y >= height / 2 ? 0 : 2][picture.index(x, y)] = 1.0f;
    return picture;
}

TEST(ContactSheet, SmallPicturesKeepTheirSizeAndStandUpright) {
    const Raster sheet = drawContactSheet({{{"one", flag(20, 10)}, {"two", flag(20, 10)}}, {{"three", flag(20, 10)}}});
    EXPECT_EQ(sheet.pixels.size(), std::size_t(sheet.width) * std::size_t(sheet.height) * 3);
    EXPECT_EQ(count(sheet, {255, 0, 0}), 3 * 20 * 5);
    EXPECT_EQ(count(sheet, {0, 0, 255}), 3 * 20 * 5);
    const auto first = std::find(sheet.pixels.begin(), sheet.pixels.end(), 255) - sheet.pixels.begin();
    EXPECT_EQ(sheet.pixels[std::size_t(first) + 1], 0);  // red comes first from the top
}

TEST(ContactSheet, LargePicturesAreShrunkToTheWidthAndKeepTheirShape) {
    const Raster sheet = drawContactSheet({{{"", flag(3000, 600)}, {"", flag(3000, 600)}, {"", flag(3000, 600)}}});
    EXPECT_LE(sheet.width, sheetMaximumWidth);
    EXPECT_GT(sheet.width, sheetMaximumWidth - 50);
    const double tileWidth = (sheet.width - 4 * 12) / 3.0;
    EXPECT_NEAR(double(count(sheet, {255, 0, 0})), 3 * tileWidth * tileWidth * 0.1, 0.02 * tileWidth * tileWidth);
}

TEST(ContactSheet, CaptionsAreDrawnAndBrokenPixelsAreBlack) {
    RgbPicture broken = flag(8, 8);
    broken.planes[1][0] = std::numeric_limits<float>::quiet_NaN();
    const Raster silent = drawContactSheet({{{"", broken}}});
    const Raster spoken = drawContactSheet({{{"left, before: 12.3 dB", broken}}});
    EXPECT_EQ(count(silent, {230, 230, 230}), 0);
    EXPECT_GT(count(spoken, {230, 230, 230}), 100);
    EXPECT_EQ(count(silent, {0, 0, 0}), 1);
    // A caption that fits on no line at once goes on below, inside the sheet.
    EXPECT_GT(drawContactSheet({{{std::string(300, 'x'), broken}}}).height, spoken.height);
}

TEST(SmallFont, EveryPrintableLetterHasItsOwnShape) {
    auto shape = [](char letter) {
        std::string pixels;
        for (int y = 0; y < smallFontHeight; ++y)
            for (int x = 0; x < smallFontWidth; ++x)
                pixels += smallFontPixel(letter, x, y) ? '#' : '.';
        return pixels;
    };
    std::vector<std::string> shapes;
    for (char letter = ' '; letter <= '~'; ++letter)
        shapes.push_back(shape(letter));
    std::sort(shapes.begin(), shapes.end());
    EXPECT_EQ(std::adjacent_find(shapes.begin(), shapes.end()), shapes.end());
    EXPECT_EQ(shape('\xe9'), shape('?'));
    EXPECT_EQ(shape('L'), "#....#....#....#....#....#....#####");
}

TEST(WrapText, BreaksAtSpacesAndCutsLongWords) {
    EXPECT_EQ(wrapText("one two three", 7), (std::vector<std::string>{"one two", "three"}));
    EXPECT_EQ(wrapText("abcdefgh ij", 3), (std::vector<std::string>{"abc", "def", "gh", "ij"}));
    EXPECT_TRUE(wrapText("", 5).empty());
}

}  // namespace
}  // namespace ViewTint::Host
