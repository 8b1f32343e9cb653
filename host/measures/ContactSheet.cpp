#include "host/measures/ContactSheet.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "host/files/Picture.h"
#include "host/measures/ColourDifference.h"
#include "host/measures/SmallFont.h"

namespace ViewTint::Host {

namespace {

constexpr int margin = 12;
constexpr int smallestTileWidth = 180;  // keeps captions under tiny pictures readable
constexpr std::uint8_t background = 32;
constexpr std::uint8_t ink = 230;

RgbPicture withoutNonFinite(RgbPicture picture) {
    for (std::size_t i = 0; i < picture.pixels(); ++i)
        if (!picture.finite(i))
            for (auto& plane : picture.planes)
                plane[i] = 0.0f;
    return picture;
}

RgbPicture shrink(const RgbPicture& picture, int width, int height) {
    if (picture.width == width && picture.height == height) return picture;
    std::vector<float> values(picture.pixels() * 3);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = picture.planes[i % 3][i / 3];
    values = resizeRgb(values, picture.width, picture.height, width, height);
    RgbPicture result(width, height);
    for (std::size_t i = 0; i < values.size(); ++i)
        result.planes[i % 3][i / 3] = values[i];
    return result;
}

/// Where the tiles go. All sizes in pixels of the sheet.
struct SheetPlan {
    double shrinkFactor = 1.0;
    int tileWidth = 0;
    int fontScale = 1;

    int shrunk(int size) const { return std::max(1, int(std::lround(size * shrinkFactor))); }
    int lineHeight() const { return fontScale * (smallFontHeight + 3); }
};

SheetPlan planSheet(const std::vector<std::vector<SheetTile>>& rows, int maximumWidth) {
    std::size_t columns = 1;
    int widest = 1;
    for (const auto& row : rows) {
        columns = std::max(columns, row.size());
        for (const SheetTile& tile : row)
            widest = std::max(widest, tile.picture.width);
    }
    const int room = std::max((maximumWidth - margin) / int(columns) - margin, 1);
    SheetPlan plan;
    plan.shrinkFactor = std::min(1.0, double(room) / widest);
    plan.tileWidth = std::max(plan.shrunk(widest), std::min(room, smallestTileWidth));
    plan.fontScale = plan.tileWidth >= 400 ? 2 : 1;
    return plan;
}

class Canvas {
public:
    Canvas(int width, int height) {
        raster_.width = width;
        raster_.height = height;
        raster_.pixels.assign(std::size_t(width) * std::size_t(height) * 3, background);
    }

    void drawPicture(const RgbPicture& picture, int left, int top) {
        for (int y = 0; y < picture.height; ++y)
            for (int x = 0; x < picture.width; ++x)
                for (std::size_t c = 0; c < 3; ++c) {
                    const double code = encodeSrgb(picture.planes[c][picture.index(x, picture.height - 1 - y)]);
                    at(left + x, top + y)[c] = std::uint8_t(std::lround(code * 255.0));
                }
    }

    void drawLine(const std::string& text, int left, int top, int scale) {
        for (char letter : text) {
            drawLetter(letter, left, top, scale);
            left += scale * smallFontAdvance;
        }
    }

    Raster take() { return std::move(raster_); }

private:
    std::uint8_t* at(int x, int y) {
        return &raster_.pixels[(std::size_t(y) * std::size_t(raster_.width) + std::size_t(x)) * 3];
    }

    void drawLetter(char letter, int left, int top, int scale) {
        for (int y = 0; y < smallFontHeight * scale; ++y)
            for (int x = 0; x < smallFontWidth * scale; ++x)
                if (smallFontPixel(letter, x / scale, y / scale) && left + x < raster_.width)
                    std::fill_n(at(left + x, top + y), 3, ink);
    }

    Raster raster_;
};

}  // namespace

Raster drawContactSheet(const std::vector<std::vector<SheetTile>>& rows, int maximumWidth) {
    const SheetPlan plan = planSheet(rows, maximumWidth);

    struct PlacedTile {
        RgbPicture picture;
        std::vector<std::string> lines;
        int left;
        int top;
    };
    std::vector<PlacedTile> placed;
    int width = 0;
    int top = margin;
    for (const auto& row : rows) {
        int left = margin;
        int rowHeight = 0;
        for (const SheetTile& tile : row) {
            const int pictureHeight = plan.shrunk(tile.picture.height);
            PlacedTile place{shrink(withoutNonFinite(tile.picture), plan.shrunk(tile.picture.width), pictureHeight),
                             wrapText(tile.caption, plan.tileWidth / (plan.fontScale * smallFontAdvance)), left, top};
            rowHeight = std::max(rowHeight, pictureHeight + margin / 2 + int(place.lines.size()) * plan.lineHeight());
            placed.push_back(std::move(place));
            left += plan.tileWidth + margin;
        }
        width = std::max(width, left);
        top += rowHeight + margin;
    }

    Canvas canvas(std::max(width, 1), top);
    for (const PlacedTile& tile : placed) {
        canvas.drawPicture(tile.picture, tile.left, tile.top);
        int lineTop = tile.top + tile.picture.height + margin / 2;
        for (const std::string& line : tile.lines) {
            canvas.drawLine(line, tile.left, lineTop, plan.fontScale);
            lineTop += plan.lineHeight();
        }
    }
    return canvas.take();
}

}  // namespace ViewTint::Host
