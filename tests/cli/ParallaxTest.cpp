#include <cmath>

#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

constexpr int width = 160, height = 100, shift = 7;

/// Two pictures and nothing else: the right one shows everything 7 pixels further left, darker and reddish.
class Parallax : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        writeView("left.png", 0, {1.0, 1.0, 1.0});
        writeView("right.png", shift, {0.8, 0.6, 0.5});
    }
    void writeView(const std::string& name, int offset, std::array<double, 3> gain) const {
        std::vector<std::uint8_t> pixels;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (const double factor : gain) {
                    const double u = x + offset;
                    const double value = 130 + 55 * std::sin(u * 0.9 + y * 0.31) +
                                         55 * std::sin(u * 0.37 - y * 0.83) * std::sin(u * 0.11 + y * 0.05);
                    pixels.push_back(static_cast<std::uint8_t>(factor * value));
                }
        const auto output = OIIO::ImageOutput::create("png");
        ASSERT_TRUE(output->open(file(name).string(), OIIO::ImageSpec(width, height, 3, OIIO::TypeUInt8)));
        ASSERT_TRUE(output->write_image(OIIO::TypeUInt8, pixels.data()) && output->close());
    }
    static constexpr const char* found = "disparity estimated; found in the other view: left ";
};

}  // namespace

TEST_F(Parallax, TwoPicturesAreAllThatARenderNeeds) {
    const Outcome outcome = run({"render", "left.png", "right.png", "-o", "out.exr", "--matchingMode", "Basic"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_NE(outcome.errors.find(found), std::string::npos) << outcome.errors;
    const auto picture = Host::MultiViewFile::open(file("out.exr"));
    EXPECT_EQ(picture.views(), (std::vector<std::string>{"left", "right"}));
    EXPECT_EQ(picture.channels("left"), (std::vector<std::string>{"A", "B", "G", "R"}));
    // Left is matched to right: their means are close now.
    const auto mean = [&](const std::string& view, const std::string& channel) {
        std::vector<float> pixels(width * height);
        picture.read(view, channel, {0, 0, width, height}, pixels.data(), width);
        double sum = 0;
        for (const float value : pixels)
            sum += value;
        return sum / (width * height);
    };
    double apart = 0;
    for (const std::string channel : {"R", "G", "B"})
        apart += std::abs(mean("left", channel) - mean("right", channel));
    EXPECT_LT(apart, 0.15) << "0.4 before";
    EXPECT_EQ(run({"render", "left.png", "right.png", "-o", "with.exr", "--write-disparity", "--quiet"}).errors, "");
    EXPECT_TRUE(Host::MultiViewFile::open(file("with.exr")).hasChannel("right", "disparityL.x"));
}

TEST_F(Parallax, ItsCommandWritesChannelsForUseElsewhere) {
    EXPECT_EQ(run({"parallax", "left.png", "right.png", "-o", "both.exr"}).exitCode, 0);
    EXPECT_NE(run({"info", "both.exr"}).output.find("nothing is missing to correct this view"), std::string::npos);
    const Outcome own = run({"render", "both.exr", "-o", "own.exr", "--matchingMode", "Basic"});
    EXPECT_EQ(own.exitCode, 0);
    EXPECT_EQ(own.errors.find(found), std::string::npos) << "the file has its own";
    // Estimated twice, kept, and read from another file: the same picture.
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--disparity", "estimate"}, {"--disparity", "both.exr"}, {"--cache", "kept"}}) {
        std::vector<std::string> words{"render", "left.png", "right.png", "-o", "again.exr", "--matchingMode", "Basic"};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_EQ(run(words).exitCode, 0) << more.front();
        const auto compared = parseJson(run({"compare", "own.exr", "again.exr", "--json"}).output);
        for (const auto& [key, view] : compared.get_child("views"))
            EXPECT_EQ(view.get<std::string>("psnr"), "inf") << more.back();
    }
    const auto measured = parseJson(run({"compare", "both.exr", "both.exr", "--json"}).output);
    EXPECT_TRUE(measured.get_child("disparity").empty()) << "the same";
}

TEST_F(Parallax, WithoutAnEstimateTheNodeSaysWhatIsMissing) {
    EXPECT_EQ(run({"render", "left.png", "right.png", "-o", "plain.exr", "--quiet"}).exitCode, 0);
    const Outcome off = run({"render", "plain.exr", "-o", "out.exr", "--disparity", "file"});
    EXPECT_EQ(off.exitCode, 1);
    EXPECT_NE(off.errors.find("isparity"), std::string::npos) << off.errors;
    EXPECT_FALSE(exists("out.exr"));
    const Outcome black = [&] {
        writePng("black.png", width, height, {0, 0, 0});
        return run({"render", "left.png", "black.png", "-o", "out.exr", "--matchingMode", "Basic"});
    }();
    EXPECT_NE(black.errors.find("less than half of the picture was found in the other view"), std::string::npos);
    writePng("small.png", 20, 20, {9, 9, 9});
    EXPECT_NE(run({"render", "left.png", "small.png", "-o", "o.exr"}).errors.find("give both views one size"),
              std::string::npos);
    EXPECT_EQ(run({"render", "left.png", "-o", "o.exr"}).exitCode, 1);
}

}  // namespace ViewTint::Cli
