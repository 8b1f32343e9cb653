#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

class Info : public CommandTest {
protected:
    /// Two views of which the right one lacks green and its disparity.
    void writeIncomplete() const {
        const std::vector<float> plane(6, 0.5f);
        std::vector<Host::NewView> views(2);
        views[0].name = "left";
        for (const char* channel :
             {"R", "G", "B", "disparityL.x", "disparityL.y", "disparityR.x", "disparityR.y", "mask_occlusion.alpha"})
            views[0].planes.push_back({channel, plane});
        views[1].name = "right";
        for (const char* channel : {"R", "B", "disparityL.x", "mask_occlusion.alpha"})
            views[1].planes.push_back({channel, plane});
        Host::writeMultiView(file("incomplete.exr"), 3, 2, views, Host::PixelStorage::half);
    }
};

TEST_F(Info, TellsWhatACompleteFileHolds) {
    writePair();
    ASSERT_EQ(pack("out.exr", {"--half"}).exitCode, 0);
    const Outcome outcome = run({"info", "out.exr"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output.rfind("out.exr: 16 x 12 pixels, 2 views, 1 part, ", 0), 0u) << outcome.output;
    EXPECT_NE(outcome.output.find("view right: data window (0, 0)-(16, 12)\n"
                                  "  colour           R G B A  half\n"
                                  "  disparityL       x y  float\n"),
              std::string::npos)
        << outcome.output;
    EXPECT_EQ(outcome.output.find("missing to correct this view:"), std::string::npos);
}

TEST_F(Info, TellsForEachViewWhatARenderMisses) {
    writeIncomplete();
    const auto tree = parseJson(run({"info", "incomplete.exr", "--json"}).output);
    EXPECT_EQ(tree.get<int>("width"), 3);
    std::vector<std::vector<std::string>> missing;
    for (const auto& [key, view] : tree.get_child("views")) {
        missing.emplace_back();
        for (const auto& [index, thing] : view.get_child("missing_for_render"))
            missing.back().push_back(thing.data());
    }
    ASSERT_EQ(missing.size(), 2u);
    EXPECT_EQ(missing[0], (std::vector<std::string>{"red, green and blue of view 'right' (channel G)"}));
    EXPECT_EQ(missing[1], (std::vector<std::string>{"red, green and blue (channel G)",
                                                    "disparity (channels disparityL.y, disparityR.x, disparityR.y)"}));
}

TEST_F(Info, OcclusionMayBeAbsent) {
    writePair();
    ASSERT_EQ(pack("whole.exr").exitCode, 0);
    const auto whole = Host::MultiViewFile::open(file("whole.exr"));
    std::vector<Host::NewView> views;
    for (const std::string& name : whole.views()) {
        views.push_back({name, {}});
        for (const std::string& channel : whole.channels(name))
            if (channel != "mask_occlusion.alpha")
                views.back().planes.push_back({channel, std::vector<float>(16 * 12)});
    }
    Host::writeMultiView(file("bare.exr"), 16, 12, views, Host::PixelStorage::half);
    const std::string text = run({"info", "bare.exr"}).output;
    EXPECT_NE(text.find("  nothing is missing to correct this view\n"
                        "  absent, read as 0: occlusion (channel mask_occlusion.alpha)\n"),
              std::string::npos)
        << text;
    const auto tree = parseJson(run({"info", "bare.exr", "--json"}).output);
    for (const auto& [key, view] : tree.get_child("views")) {
        EXPECT_TRUE(view.get_child("missing_for_render").empty());
        EXPECT_EQ(view.get_child("absent_read_as_zero").front().second.data(),
                  "occlusion (channel mask_occlusion.alpha)");
    }
    EXPECT_EQ(run({"render", "bare.exr", "-o", "out.exr", "--matchingMode", "Basic"}).exitCode, 0);
}

TEST_F(Info, OneViewIsNotEnough) {
    const std::vector<float> plane(6, 0.5f);
    const Host::NewView view{"main", {{"R", plane}, {"G", plane}, {"B", plane}}};
    Host::writeMultiView(file("one.exr"), 3, 2, std::span(&view, 1), Host::PixelStorage::single);
    const Outcome outcome = run({"info", "one.exr"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.output.find("1 view,"), std::string::npos);
    EXPECT_NE(outcome.output.find("missing to correct this view: a second view"), std::string::npos);
}

}  // namespace
}  // namespace ViewTint::Cli
