#include <ImfStandardAttributes.h>
#include <half.h>

#include <cstring>

#include "host/files/MultiViewFile.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

class NewMultiViewFileTest : public FolderTest {
protected:
    /// 3 by 2 pixels; the value tells view, channel and place.
    static NewView viewOf(const std::string& name, float base) {
        NewView view{name, {}};
        for (const char* channel : {"R", "disparityL.x", "mask_occlusion.alpha"}) {
            view.planes.push_back({channel, {base, base + 1, base + 2, base + 3, base + 4, base + 5}});
            base += 10;
        }
        return view;
    }
};

TEST_F(NewMultiViewFileTest, writesWhatOtherReadersUnderstand) {
    const std::vector<NewView> views = {viewOf("left", 100), viewOf("right", 200)};
    writeMultiView(file("new.exr"), 3, 2, views, PixelStorage::half);

    const auto parts = readRaw(file("new.exr"));
    ASSERT_EQ(parts.size(), 1u);
    const Imf::Header& header = parts[0].header;
    EXPECT_EQ(Imf::multiView(header), (Imf::StringVector{"left", "right"}));
    EXPECT_EQ(header.dataWindow(), Imath::Box2i({0, 0}, {2, 1}));
    ASSERT_EQ(parts[0].channels.size(), 6u);
    EXPECT_EQ(header.channels()["right.R"].type, Imf::HALF);
    EXPECT_EQ(header.channels()["mask_occlusion.right.alpha"].type, Imf::HALF);
    EXPECT_EQ(header.channels()["disparityL.x"].type, Imf::FLOAT);
    // The file's first row is the picture's top, the planes' last row.
    std::vector<float> disparity(6);
    std::memcpy(disparity.data(), parts[0].channels.at("disparityL.right.x").data(), 6 * sizeof(float));
    EXPECT_EQ(disparity, (std::vector<float>{213, 214, 215, 210, 211, 212}));
    half topLeft;
    std::memcpy(&topLeft, parts[0].channels.at("R").data(), sizeof topLeft);
    EXPECT_EQ(topLeft, half(103.0f));
}

TEST_F(NewMultiViewFileTest, comesBackAsItWasPacked) {
    const std::vector<NewView> views = {viewOf("left", 0.125f), viewOf("right", 1e6f)};
    writeMultiView(file("new.exr"), 3, 2, views, PixelStorage::single);
    const auto picture = MultiViewFile::open(file("new.exr"));
    EXPECT_EQ(picture.views(), (std::vector<std::string>{"left", "right"}));
    for (const NewView& view : views) {
        for (const NewView::Plane& plane : view.planes) {
            std::vector<float> back(6);
            picture.read(view.name, plane.channel, {0, 0, 3, 2}, back.data(), 3);
            EXPECT_EQ(back, plane.pixels) << view.name << " " << plane.channel;
        }
    }
}

TEST_F(NewMultiViewFileTest, refusesWhatDoesNotFit) {
    std::vector<NewView> views = {viewOf("left", 0)};
    const auto write = [&](int width) {
        return fileErrorOf([&] { writeMultiView(file("new.exr"), width, 2, views, PixelStorage::half); });
    };
    EXPECT_NE(write(4).find("channel 'R' of view 'left' is not 4 by 2 pixels"), std::string::npos);
    views[0].planes.push_back(views[0].planes[0]);
    EXPECT_NE(write(3).find("view 'left' has channel 'R' twice"), std::string::npos);
    EXPECT_TRUE(filesThere().empty());
}

}  // namespace
}  // namespace ViewTint::Host::Testing
