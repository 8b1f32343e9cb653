#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

using Info = CommandTest;

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
