#include "host/files/MultiViewFile.h"

#include <ImfChromaticitiesAttribute.h>
#include <ImfDeepScanLineOutputPart.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOpaqueAttribute.h>
#include <ImfPartType.h>
#include <ImfStandardAttributes.h>
#include <ImfStdIO.h>
#include <ImfStringAttribute.h>
#include <ImfVersion.h>
#include <fmt/format.h>
#include <half.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

using Names = std::vector<std::string>;

const Imath::Box2i displayWindow({10, 20}, {59, 49});     // 50 by 30
const Imath::Box2i overhangingWindow({3, -4}, {70, 44});  // beyond the display window at three sides
const Imath::Box2i innerWindow({15, 25}, {40, 40});

Imf::Header headerOf(const Imath::Box2i& display, const Imath::Box2i& data,
                     Imf::Compression compression = Imf::ZIP_COMPRESSION) {
    Imf::Header header(display, data);
    header.compression() = compression;
    return header;
}

const ChannelTypes onePartChannels = {
    {"R", Imf::HALF},
    {"G", Imf::HALF},
    {"B", Imf::HALF},
    {"A", Imf::HALF},
    {"right.R", Imf::FLOAT},
    {"right.G", Imf::HALF},
    {"right.B", Imf::FLOAT},
    {"id", Imf::UINT},
    {"disparityR.x", Imf::FLOAT},
    {"disparityL.right.x", Imf::FLOAT},
    {"mask_occlusion.right.alpha", Imf::UINT},
};

/// An attribute of a type that no library knows, as another program may have left it.
Imf::OpaqueAttribute unknownAttribute() {
    const std::string value = "any\0bytes\xff";
    Imf::StdISStream stream;
    stream.str(value);
    Imf::OpaqueAttribute attribute("studio.tracker");
    attribute.readValueFrom(stream, static_cast<int>(value.size()), Imf::EXR_VERSION);
    return attribute;
}

void addAttributes(Imf::Header& header) {
    header.insert("shot", Imf::StringAttribute("A017 take 3"));
    header.insert("tracker", unknownAttribute());
    Imf::addChromaticities(header, Imf::Chromaticities(Imath::V2f(0.7f, 0.3f)));
    Imf::addTimeCode(header, Imf::TimeCode(1, 2, 3, 4));
    header.pixelAspectRatio() = 2.0f;
}

/// One part with both views.
std::vector<RawPart> onePart(Imf::Compression compression, bool tiled, Imf::LineOrder order,
                             const Imath::Box2i& data = overhangingWindow) {
    Imf::Header header = headerOf(displayWindow, data, compression);
    header.lineOrder() = order;
    if (tiled) header.setTileDescription(Imf::TileDescription(16, 32));
    Imf::addMultiView(header, {"left", "right"});
    addAttributes(header);
    return {randomPart(header, onePartChannels, 7)};
}

Imf::Header partHeader(const std::string& name, const std::string& view, const Imath::Box2i& data,
                       Imf::Compression compression, bool tiled = false) {
    Imf::Header header = headerOf(displayWindow, data, compression);
    header.setName(name);
    header.setType(tiled ? Imf::TILEDIMAGE : Imf::SCANLINEIMAGE);
    if (!view.empty()) header.setView(view);
    if (tiled) header.setTileDescription(Imf::TileDescription(16, 16));
    return header;
}

/// A part for the colour of each view, with unlike data windows, and one for the right view's disparity.
std::vector<RawPart> severalParts(Imf::Compression compression, bool tiled) {
    const ChannelTypes colour = {{"R", Imf::HALF}, {"G", Imf::FLOAT}, {"B", Imf::HALF}};
    std::vector<Imf::Header> headers = {
        partHeader("rgba.left", "left", overhangingWindow, compression, tiled),
        partHeader("rgba.right", "right", innerWindow, compression, tiled),
        partHeader("disparityL.right", "right", displayWindow, Imf::ZIPS_COMPRESSION),
    };
    for (Imf::Header& header : headers)
        addAttributes(header);
    return {randomPart(headers[0], colour, 1), randomPart(headers[1], colour, 2),
            randomPart(headers[2], {{"disparityL.x", Imf::FLOAT}, {"disparityL.y", Imf::FLOAT}}, 3)};
}

void expectSameExcept(const std::vector<RawPart>& was, const std::vector<RawPart>& is, std::size_t part,
                      const std::string& channel) {
    ASSERT_EQ(was.size(), is.size());
    for (std::size_t i = 0; i < was.size(); ++i) {
        EXPECT_EQ(attributesOf(was[i].header), attributesOf(is[i].header)) << "part " << i;
        for (const auto& [name, bytes] : was[i].channels) {
            if (i == part && name == channel) continue;
            EXPECT_TRUE(bytes == is[i].channels.at(name)) << "part " << i << ", channel " << name;
        }
    }
}

struct Layout {
    std::string name;
    std::vector<RawPart> parts;
    bool lossless;
    std::size_t rightPart;
    std::string rightGreen;  ///< the name in the file
};

void PrintTo(const Layout& layout, std::ostream* stream) {
    *stream << layout.name;
}

std::vector<Layout> allLayouts() {
    const std::vector<std::pair<Imf::Compression, bool>> compressions = {
        {Imf::NO_COMPRESSION, true},   {Imf::RLE_COMPRESSION, true},   {Imf::ZIPS_COMPRESSION, true},
        {Imf::ZIP_COMPRESSION, true},  {Imf::PIZ_COMPRESSION, true},   {Imf::PXR24_COMPRESSION, false},
        {Imf::B44_COMPRESSION, false}, {Imf::DWAA_COMPRESSION, false}, {Imf::DWAB_COMPRESSION, false},
    };
    std::vector<Layout> layouts;
    for (const auto& [compression, lossless] : compressions) {
        for (const bool tiled : {false, true}) {
            const std::string name = fmt::format("{}{}", tiled ? "tiles" : "lines", static_cast<int>(compression));
            for (const auto order : {Imf::INCREASING_Y, Imf::DECREASING_Y, Imf::RANDOM_Y}) {
                if (order == Imf::RANDOM_Y && !tiled) continue;
                layouts.push_back({fmt::format("{}_one_order{}", name, static_cast<int>(order)),
                                   onePart(compression, tiled, order), lossless, 0, "right.G"});
            }
            layouts.push_back({name + "_several", severalParts(compression, tiled), lossless, 1, "G"});
        }
    }
    return layouts;
}

class EveryLayout : public FolderTest, public testing::WithParamInterface<Layout> {};

TEST_P(EveryLayout, savesTheSameBitsWhenNothingIsReplaced) {
    writeRaw(file("in.exr"), GetParam().parts);
    MultiViewFile::open(file("in.exr")).save(file("out.exr"));

    expectSameExcept(readRaw(file("in.exr")), readRaw(file("out.exr")), 99, "");
    EXPECT_EQ(bytesOfFile(file("in.exr")).size(), bytesOfFile(file("out.exr")).size());
    EXPECT_EQ(filesThere(), (Names{"in.exr", "out.exr"}));
}

TEST_P(EveryLayout, changesOneChannelAndNothingElse) {
    writeRaw(file("in.exr"), GetParam().parts);
    const auto was = readRaw(file("in.exr"));
    MultiViewFile picture = MultiViewFile::open(file("in.exr"));
    const Box box = picture.dataBox("right");
    std::vector<float> values(static_cast<std::size_t>(box.pixels()), 0.25f);
    picture.replace("right", "G", box, values.data(), box.width());
    picture.save(file("in.exr"));  // over the file that was read

    const auto is = readRaw(file("in.exr"));
    const std::size_t part = GetParam().rightPart;
    if (GetParam().lossless) {
        expectSameExcept(was, is, part, GetParam().rightGreen);
    } else {  // what stands in another part is not encoded a second time
        ASSERT_EQ(was.size(), is.size());
        for (std::size_t i = 0; i < was.size(); ++i) {
            EXPECT_EQ(attributesOf(was[i].header), attributesOf(is[i].header));
            EXPECT_TRUE(i == part || was[i].channels == is[i].channels) << "part " << i;
        }
    }
    MultiViewFile again = MultiViewFile::open(file("in.exr"));
    std::vector<float> back(values.size());
    again.read("right", "G", box, back.data(), box.width());
    const Box own = GetParam().parts.size() > 1 ? Box{5, 9, 31, 25} : box;  // innerWindow, turned over
    for (std::int32_t y = own.y0; y < own.y1; ++y) {
        for (std::int32_t x = own.x0; x < own.x1; ++x) {
            const auto index = static_cast<std::size_t>((y - box.y0) * box.width() + x - box.x0);
            ASSERT_NEAR(back[index], 0.25f, GetParam().lossless ? 0.0f : 0.01f) << x << ", " << y;
        }
    }
}

TEST_P(EveryLayout, readsOneChannelAsItReadsAll) {
    writeRaw(file("in.exr"), GetParam().parts);
    EXPECT_NO_THROW(MultiViewFile::check(file("in.exr")));
    const MultiViewFile all = MultiViewFile::open(file("in.exr"));
    for (const std::string& view : all.views())
        for (const std::string& channel : all.channels(view)) {
            const Box box = all.dataBox(view);
            std::vector<float> expected(static_cast<std::size_t>(box.pixels())), alone(expected.size(), -1.0f);
            all.read(view, channel, box, expected.data(), box.width());
            const auto few = MultiViewFile::open(file("in.exr"), std::set{channel});
            few.read(view, channel, box, alone.data(), box.width());
            EXPECT_EQ(alone, expected) << view << ' ' << channel;
            EXPECT_LT(few.bytes(), all.bytes());
            EXPECT_EQ(few.allBytes(), all.bytes());
        }
}

INSTANTIATE_TEST_SUITE_P(MultiViewFile, EveryLayout, testing::ValuesIn(allLayouts()),
                         [](const auto& info) { return info.param.name; });

class MultiViewFileTest : public FolderTest {
protected:
    MultiViewFile written(const std::vector<RawPart>& parts) const {
        writeRaw(file("in.exr"), parts);
        return MultiViewFile::open(file("in.exr"));
    }

    std::vector<float> readAll(const MultiViewFile& picture, const std::string& view, const std::string& channel,
                               const Box& box) const {
        std::vector<float> values(static_cast<std::size_t>(box.pixels()), -1.0f);
        picture.read(view, channel, box, values.data(), box.width());
        return values;
    }
};

TEST_F(MultiViewFileTest, placesPixelsInThePlaneWithRowsUpward) {
    const auto valueAt = [](const std::string&, int x, int y) { return static_cast<float>(1000 * y + x); };
    const auto picture = written({functionPart(headerOf(displayWindow, overhangingWindow), {"R"}, valueAt)});

    EXPECT_EQ(picture.width(), 50);
    EXPECT_EQ(picture.height(), 30);
    EXPECT_EQ(picture.dataBox("main"), (Box{-7, 5, 61, 54}));
    // Plane (0, 0) is the display window's lower left corner: x 10 and the lowest row, 49, of the file; the data
    // ends at row 44, five rows above it.
    const Box box{-9, 3, 63, 56};
    const auto values = readAll(picture, "main", "R", box);
    for (std::int32_t y = box.y0; y < box.y1; ++y) {
        for (std::int32_t x = box.x0; x < box.x1; ++x) {
            const bool inside = x >= -7 && x < 61 && y >= 5 && y < 54;
            const float expected = inside ? valueAt("", x + 10, 49 - y) : 0.0f;
            ASSERT_EQ(values[static_cast<std::size_t>((y - box.y0) * box.width() + x - box.x0)], expected)
                << x << ", " << y;
        }
    }
}

TEST_F(MultiViewFileTest, readsAndReplacesPartsOfTheDataWithAnyRowStride) {
    const auto zero = [](const std::string&, int, int) { return 0.0f; };
    auto picture = written({functionPart(headerOf(displayWindow, innerWindow), {"R"}, zero)});
    const Box box{0, 20, 8, 40};  // the data are (5, 9)-(31, 25)
    const std::ptrdiff_t stride = 11;
    std::vector<float> source(20 * 11);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = static_cast<float>(i + 1);
    picture.replace("main", "R", box, source.data(), stride);

    std::vector<float> back(source.size(), -1.0f);
    picture.read("main", "R", box, back.data(), stride);
    for (std::int32_t row = 0; row < 20; ++row) {
        for (std::int32_t column = 0; column < 11; ++column) {
            const auto index = static_cast<std::size_t>(row * stride + column);
            const bool inData = row < 5 && column >= 5;
            const float expected = column >= 8 ? -1.0f : inData ? source[index] : 0.0f;
            ASSERT_EQ(back[index], expected) << row << ", " << column;
        }
    }
    const auto everything = readAll(picture, "main", "R", picture.dataBox("main"));
    EXPECT_EQ(std::ranges::count_if(everything, [](float value) { return value != 0.0f; }), 15);
}

TEST_F(MultiViewFileTest, convertsToTheChannelsOwnType) {
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> source = {0.1f, 65519.0f, 1e9f, -1e9f, inf, -inf, NAN, -3.0f, 2.5f, 7e9f};
    const int count = static_cast<int>(source.size());
    auto picture =
        written({randomPart(Imf::Header(count, 1), {{"h", Imf::HALF}, {"f", Imf::FLOAT}, {"u", Imf::UINT}}, 1)});
    const Box box{0, 0, count, 1};
    for (const char* channel : {"h", "f", "u"})
        picture.replace("main", channel, box, source.data(), count);
    picture.save(file("out.exr"));
    const auto back = MultiViewFile::open(file("out.exr"));

    auto half = readAll(back, "main", "h", box);
    EXPECT_TRUE(std::isnan(half[6]));
    half[6] = 0.0f;
    EXPECT_EQ(half, (std::vector<float>{0.0999755859375f, 65504, 65504, -65504, inf, -inf, 0, -3, 2.5, 65504}));
    const auto single = readAll(back, "main", "f", box);
    EXPECT_EQ(std::memcmp(single.data(), source.data(), source.size() * sizeof(float)), 0);
    EXPECT_EQ(readAll(back, "main", "u", box),
              (std::vector<float>{0, 65519, 1e9f, 0, 4294967295.0f, 0, 0, 0, 2, 4294967295.0f}));
}

TEST_F(MultiViewFileTest, sortsChannelsIntoViews) {
    const auto zero = [](const std::string&, int, int) { return 0.0f; };
    Imf::Header header(4, 4);
    Imf::addMultiView(header, {"right", "left"});
    const auto onePart = written({functionPart(
        header, {"R", "left.R", "disparityL.x", "disparityL.left.x", "a.b.left.c", "right.G", "left.odd.Q"}, zero)});
    EXPECT_EQ(onePart.views(), (Names{"right", "left"}));
    auto right = onePart.channels("right");
    auto left = onePart.channels("left");
    std::ranges::sort(right);
    std::ranges::sort(left);
    EXPECT_EQ(right, (Names{"G", "R", "disparityL.x", "left.odd.Q"}));
    EXPECT_EQ(left, (Names{"R", "a.b.c", "disparityL.x"}));
    EXPECT_FALSE(onePart.hasChannel("left", "G"));

    const auto plain = written({functionPart(Imf::Header(4, 4), {"R", "left.R"}, zero)});
    EXPECT_EQ(plain.views(), Names{"main"});
    EXPECT_TRUE(plain.hasChannel("main", "left.R"));
}

TEST_F(MultiViewFileTest, keepsChannelsOfOneNameApart) {
    Imf::Header header(2, 1);
    Imf::addMultiView(header, {"left", "right"});
    const auto byName = [](const std::string& name, int, int) { return name == "R" ? 1.0f : 2.0f; };
    const auto picture = written({functionPart(header, {"R", "left.R"}, byName)});
    EXPECT_EQ(readAll(picture, "left", "R", {0, 0, 2, 1}), (std::vector<float>{1, 1}));
    EXPECT_EQ(readAll(picture, "left", "left.R", {0, 0, 2, 1}), (std::vector<float>{2, 2}));
}

TEST_F(MultiViewFileTest, takesLayersFromTheNamesOfParts) {
    const auto header = [](const std::string& name, const std::string& view) {
        return partHeader(name, view, displayWindow, Imf::ZIP_COMPRESSION);
    };
    const auto number = [](float value) { return [value](const std::string&, int, int) { return value; }; };
    const auto picture = written({
        functionPart(header("rgba.left", "left"), {"R"}, number(1)),
        functionPart(header("right.rgba", "right"), {"R"}, number(2)),
        functionPart(header("disparityL.right", "right"), {"x", "y"}, number(3)),
        functionPart(header("disparityR.right", "right"), {"x", "y"}, number(4)),
        functionPart(header("mask", "right"), {"mask_occlusion.alpha"}, number(5)),
        functionPart(header("notes", ""), {"Z"}, number(6)),
    });
    EXPECT_EQ(picture.views(), (Names{"left", "right"}));
    EXPECT_EQ(picture.channels("right"),
              (Names{"R", "disparityL.x", "disparityL.y", "disparityR.x", "disparityR.y", "mask_occlusion.alpha"}));
    EXPECT_EQ(picture.channels("left"), (Names{"R", "notes.Z"}));
    const std::vector<std::pair<std::string, float>> expected = {
        {"R", 2}, {"disparityL.x", 3}, {"disparityR.y", 4}, {"mask_occlusion.alpha", 5}};
    for (const auto& [channel, value] : expected) {
        EXPECT_EQ(readAll(picture, "right", channel, {0, 0, 1, 1}).front(), value) << channel;
    }
    EXPECT_TRUE(picture.hasChannel("left", "Z"));
}

TEST_F(MultiViewFileTest, keepsTexts) {
    MultiViewFile picture = written(severalParts(Imf::ZIP_COMPRESSION, false));
    EXPECT_EQ(picture.text("shot"), "A017 take 3");
    EXPECT_EQ(picture.text("pixelAspectRatio") + picture.text("none"), "");
    picture.setText("shot", "B001");
    picture.setText("tracker", "in place of another type");
    picture.save(file("out.exr"));
    const MultiViewFile again = MultiViewFile::check(file("out.exr"));
    EXPECT_EQ(again.text("shot") + again.text("tracker"), "B001in place of another type");
}

TEST_F(MultiViewFileTest, namesWhatIsMissing) {
    auto picture = written(onePart(Imf::ZIP_COMPRESSION, false, Imf::INCREASING_Y));
    float value = 0;
    EXPECT_FALSE(picture.hasChannel("right", "A"));
    EXPECT_EQ(fileErrorOf([&] { picture.channels("middle"); }),
              "'" + file("in.exr").string() + "' has no view 'middle'; its views are: left, right.");
    EXPECT_EQ(fileErrorOf([&] {
                  picture.read("right", "A", {0, 0, 1, 1}, &value, 1);
              }),
              "'" + file("in.exr").string() + "': the view 'right' has no channel 'A'.");
    EXPECT_THROW(picture.replace("right", "A", {0, 0, 1, 1}, &value, 1), FileError);
}

TEST_F(MultiViewFileTest, refusesViewsOfDifferentSize) {
    writeRaw(file("in.exr"), severalParts(Imf::ZIP_COMPRESSION, false));
    std::string bytes = bytesOfFile(file("in.exr"));
    const std::string attribute("displayWindow\0box2i\0\x10\0\0\0", 24);
    const std::size_t last = bytes.rfind(attribute);
    ASSERT_NE(last, std::string::npos);
    bytes[last + attribute.size() + 8] -= 1;  // the right edge
    writeBytes(file("in.exr"), bytes);
    EXPECT_NE(fileErrorOf([&] { MultiViewFile::open(file("in.exr")); }).find("its parts differ in size"),
              std::string::npos);
}

TEST_F(MultiViewFileTest, refusesToCopyFromAFileThatHasChanged) {
    const auto picture = written(onePart(Imf::ZIP_COMPRESSION, false, Imf::INCREASING_Y));
    const auto later = std::filesystem::last_write_time(file("in.exr")) + std::chrono::seconds(5);
    std::filesystem::last_write_time(file("in.exr"), later);
    EXPECT_NE(fileErrorOf([&] { picture.save(file("out.exr")); }).find("was changed meanwhile"), std::string::npos);
    std::filesystem::remove(file("in.exr"));
    EXPECT_NE(fileErrorOf([&] { picture.save(file("out.exr")); }).find("cannot be read again"), std::string::npos);
    EXPECT_EQ(filesThere(), Names{});
}

TEST_F(MultiViewFileTest, readsTheSharedScene) {
    const std::filesystem::path scene = VIEWTINT_SHARED_DATA "/cones/cones.exr";
    if (!std::filesystem::exists(scene)) GTEST_SKIP() << "no test picture at " << scene;
    const auto picture = MultiViewFile::open(scene);
    EXPECT_EQ(picture.views(), (Names{"left", "right"}));
    EXPECT_EQ(picture.channels("right").size(), 9u);
    const Box box = picture.dataBox("right");
    EXPECT_EQ(box, (Box{0, 0, 450, 375}));
    const auto disparity = readAll(picture, "right", "disparityL.x", box);
    EXPECT_GT(*std::ranges::min_element(disparity), 0.0f);
    // What is nearer shifts more, and the nearest things of this scene are at the lower edge of the picture.
    const auto mean = [&](std::size_t begin) {
        double sum = 0;
        for (std::size_t i = begin; i < begin + 450 * 50; ++i)
            sum += disparity[i];
        return sum / (450 * 50);
    };
    EXPECT_GT(mean(0), mean(450 * 325));
    picture.save(file("copy.exr"));
    expectSameExcept(readRaw(scene), readRaw(file("copy.exr")), 99, "");
}

}  // namespace
}  // namespace ViewTint::Host::Testing
