#include <cmath>
#include <limits>

#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

using boost::property_tree::ptree;

class Compare : public CommandTest {
protected:
    ptree json(std::vector<std::string> words) const {
        words.insert(words.begin(), "compare");
        words.push_back("--json");
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        return parseJson(outcome.output);
    }

    static std::vector<ptree> rows(const ptree& tree, const char* list) {
        std::vector<ptree> result;
        for (const auto& [key, row] : tree.get_child(list))
            result.push_back(row);
        return result;
    }
};

TEST_F(Compare, PlainPictures) {
    writePair();
    const double step = 50.0 / 255.0;
    const auto measured = rows(json({"left.png", "right.png"}), "views");
    ASSERT_EQ(measured.size(), 1u);
    EXPECT_NEAR(measured[0].get<double>("psnr"), -20.0 * std::log10(step), 1e-4);
    EXPECT_EQ(measured[0].get<int>("pixels"), 16 * 12);
    const auto same = rows(json({"left.png", "left.png"}), "views");
    EXPECT_EQ(same[0].get<std::string>("psnr"), "inf");
    EXPECT_EQ(same[0].get<double>("ssim"), 1.0);
    EXPECT_EQ(same[0].get<double>("ciede2000_p99"), 0.0);
    EXPECT_NE(run({"compare", "left.png", "left.png"}).output.find(" inf "), std::string::npos);
}

TEST_F(Compare, BeforeAndAfterAgainstATruthAndBetweenTheViews) {
    writePair();
    writePng("right.png", 16, 12, {100, 100, 100});  // both views alike
    ASSERT_EQ(pack("truth.exr").exitCode, 0);
    ASSERT_EQ(pack("cast.exr", {"--cast-view", "right", "--cast-gain", "2,2,2"}).exitCode, 0);
    const ptree tree = json({"cast.exr", "truth.exr", "--truth", "truth.exr", "--sheet", "sheet.png"});
    const auto views = rows(tree, "views");
    ASSERT_EQ(views.size(), 4u);
    EXPECT_EQ(views[0].get<std::string>("psnr"), "inf");  // left, untouched
    EXPECT_EQ(views[2].get<std::string>("view"), "right");
    EXPECT_EQ(views[2].get<std::string>("first"), "A");
    EXPECT_LT(views[2].get<double>("psnr"), 20.0);
    EXPECT_EQ(views[3].get<std::string>("psnr"), "inf");

    const auto pairs = rows(tree, "between_views");
    ASSERT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs[0].get<std::string>("file"), "A");
    EXPECT_EQ(pairs[0].get<std::string>("other_view"), "right");
    EXPECT_EQ(pairs[0].get<int>("pixels"), 14 * 12);  // two columns are hidden
    EXPECT_NEAR(pairs[0].get<double>("psnr"), views[2].get<double>("psnr"), 1e-4);
    EXPECT_EQ(pairs[1].get<std::string>("psnr"), "inf");

    const auto sheet = OIIO::ImageInput::open(file("sheet.png").string());
    ASSERT_TRUE(sheet);
    EXPECT_EQ(sheet->spec().nchannels, 3);
    EXPECT_GT(sheet->spec().width, 3 * 16);
    EXPECT_LE(sheet->spec().width, 2400);
}

TEST_F(Compare, ChoosesViews) {
    writePair();
    ASSERT_EQ(pack("pair.exr").exitCode, 0);
    const auto one = rows(json({"pair.exr", "pair.exr", "--view", "right"}), "views");
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].get<std::string>("view"), "right");
    // A plain picture stands for the chosen view, and for none without a choice.
    const auto plain = rows(json({"pair.exr", "right.png", "--view", "right"}), "views");
    EXPECT_EQ(plain[0].get<std::string>("psnr"), "inf");
    const Outcome undecided = run({"compare", "pair.exr", "right.png"});
    EXPECT_EQ(undecided.exitCode, 2);
    EXPECT_NE(undecided.errors.find("--view"), std::string::npos);
}

TEST_F(Compare, BrokenPixelsAreLeftOutAndCounted) {
    std::vector<float> plane(20 * 20, 0.5f);
    const std::vector<float> whole = plane;
    plane[7] = std::numeric_limits<float>::quiet_NaN();
    plane[8] = std::numeric_limits<float>::infinity();
    const Host::NewView broken{"main", {{"R", plane}, {"G", whole}, {"B", whole}}};
    const Host::NewView clean{"main", {{"R", whole}, {"G", whole}, {"B", whole}}};
    Host::writeMultiView(file("broken.exr"), 20, 20, std::span(&broken, 1), Host::PixelStorage::single);
    Host::writeMultiView(file("clean.exr"), 20, 20, std::span(&clean, 1), Host::PixelStorage::single);
    const Outcome outcome = run({"compare", "broken.exr", "clean.exr"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.output.find("2 pixels left out: NaN or infinity"), std::string::npos) << outcome.output;
    const auto measured = rows(json({"broken.exr", "clean.exr", "--sheet", "sheet.png"}), "views");
    EXPECT_EQ(measured[0].get<int>("excluded"), 2);
    EXPECT_EQ(measured[0].get<std::string>("psnr"), "inf");
    EXPECT_TRUE(exists("sheet.png"));
}

}  // namespace
}  // namespace ViewTint::Cli
