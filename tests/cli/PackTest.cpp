#include <cmath>

#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

class Pack : public CommandTest {
protected:
    std::vector<float> read(const std::string& name, const std::string& view, const std::string& channel) const {
        const auto opened = Host::MultiViewFile::open(file(name));
        std::vector<float> values(16 * 12);
        opened.read(view, channel, {0, 0, 16, 12}, values.data(), 16);
        return values;
    }
};

TEST_F(Pack, WritesBothViewsAndReportsThem) {
    writePair();
    const Outcome outcome = pack("out.exr");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output,
              "out.exr: 16 x 12 pixels\n"
              "  left   disparity known for 100.0%, 12.5% occluded\n"
              "  right  disparity known for 87.5%, 12.5% occluded\n");
    EXPECT_EQ(read("out.exr", "left", "disparityR.x"), std::vector<float>(16 * 12, -2.0f));
    EXPECT_EQ(read("out.exr", "right", "disparityL.x"), std::vector<float>(16 * 12, 2.0f));
    EXPECT_NEAR(read("out.exr", "right", "R")[0], 0.3049873f, 1e-6f);  // code 150 of sRGB
}

TEST_F(Pack, OptionsReachTheFile) {
    writePair();
    writePng("occlusion.png", 16, 12, {255});
    const Outcome outcome =
        pack("out.exr", {"--disparity-scale", "4", "--input-colourspace", "linear", "--occlusion-right",
                         "occlusion.png", "--cast-view", "right", "--cast-gain", "0.5,1,1", "--cast-gain-right-edge",
                         "2,1,1", "--cast-gamma", "1,2,1", "--cast-offset", "0,0,-0.125", "--half", "--threads", "2"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_EQ(read("out.exr", "left", "disparityR.x")[0], -0.5f);
    EXPECT_EQ(read("out.exr", "right", "mask_occlusion.alpha")[100], 1.0f);
    const double code = 150.0 / 255.0;
    EXPECT_NEAR(read("out.exr", "left", "R")[0], 100.0 / 255.0, 2e-4);
    EXPECT_NEAR(read("out.exr", "right", "R")[0], 0.5 * code, 2e-4);
    EXPECT_NEAR(read("out.exr", "right", "R")[15], 2.0 * code, 1e-3);
    EXPECT_NEAR(read("out.exr", "right", "G")[0], code * code, 2e-4);
    EXPECT_NEAR(read("out.exr", "right", "B")[0], code - 0.125, 4e-4);
    EXPECT_NE(run({"info", "out.exr"}).output.find("half"), std::string::npos);
}

}  // namespace
}  // namespace ViewTint::Cli
