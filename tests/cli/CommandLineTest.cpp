#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

using CommandLine = CommandTest;

TEST_F(CommandLine, HelpAndVersion) {
    const Outcome help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* command : {"info", "pack", "compare"})
        EXPECT_NE(help.output.find(command), std::string::npos) << command;
    EXPECT_EQ(run({"--version"}).output.rfind("viewtint ", 0), 0u);
    const Outcome packHelp = run({"pack", "--help"});
    EXPECT_EQ(packHelp.exitCode, 0);
    EXPECT_NE(packHelp.output.find("--disparity-left"), std::string::npos);
    EXPECT_EQ(packHelp.errors, "");
}

TEST_F(CommandLine, WrongCallsSayWhatIsWrongAndLeaveNothing) {
    writePair();
    const std::vector<std::string> before = files();
    const std::vector<std::string> pair = {"pack", "--left", "left.png", "--right", "right.png"};
    const auto packing = [&](std::vector<std::string> more) {
        std::vector<std::string> words = pair;
        words.insert(words.end(), more.begin(), more.end());
        return words;
    };
    struct Case {
        std::vector<std::string> words;
        std::string told;  ///< must be in the message
    };
    const Case cases[] = {
        {{}, "the commands are"},
        {{"fly"}, "fly"},
        {{"info"}, "FILE"},
        {{"info", "left.png", "--colour"}, "--colour"},
        {{"info", "absent.exr"}, "absent.exr"},
        {{"info", "."}, "folder"},
        {{"--threads", "0", "info", "left.png"}, "--threads"},
        {{"--threads", "many", "info", "left.png"}, "--threads"},
        {{"compare", "left.png"}, "B"},
        {{"compare", "left.png", "right.png", "--sheet", "sheet.exr"}, "--sheet"},
        {{"compare", "left.png", "right.png", "--sheet", "left.png"}, "also an input"},
        {{"compare", "left.png", "right.png", "--truth", "absent.png"}, "absent.png"},
        {{"compare", "left.png", "right.png", "--view", "middle"}, "middle"},
        {packing({"-o", "out.exr"}), "--disparity-left"},
        {packing({"--disparity-left", "map.png"}), "--output"},
        {packing({"--disparity-left", "map.png", "-o", "out.tif"}), ".exr"},
        {packing({"--disparity-left", "map.png", "-o", "out.exr", "--disparity-scale", "0"}), "--disparity-scale"},
        {packing({"--disparity-left", "map.png", "-o", "out.exr", "--disparity-y", "left"}), "--disparity-y"},
        {packing({"--disparity-left", "map.png", "-o", "out.exr", "--cast-gain", "1,2,3"}), "--cast-view"},
        {packing({"--disparity-left", "map.png", "-o", "out.exr", "--cast-view", "left", "--cast-gain", "1,2"}),
         "--cast-gain"},
        {packing({"--disparity-left", "map.png", "-o", "out.exr", "--cast-view", "left", "--cast-gamma", "1,0,1"}),
         "--cast-gamma"},
    };
    for (const Case& wrong : cases) {
        const Outcome outcome = run(wrong.words);
        SCOPED_TRACE(testing::PrintToString(wrong.words) + " said: " + outcome.errors);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.rfind("viewtint: ", 0), 0u);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
        EXPECT_NE(outcome.errors.find(wrong.told), std::string::npos);
        EXPECT_EQ(files(), before);
    }
}

TEST_F(CommandLine, UnusableFilesFailWithTheirNameAndLeaveNothing) {
    writePair();
    writePng("small.png", 5, 4, {1, 2, 3});
    writeText("text.exr", "no picture");
    ASSERT_EQ(pack("whole.exr").exitCode, 0);
    writeText("cut.exr", contents("whole.exr").substr(0, contents("whole.exr").size() / 2));
    const std::vector<std::string> before = files();
    struct Case {
        std::vector<std::string> words;
        std::string told;
    };
    const Case cases[] = {
        {{"info", "text.exr"}, "text.exr"},
        {{"info", "cut.exr"}, "cut.exr"},
        {{"compare", "whole.exr", "cut.exr", "--sheet", "sheet.png"}, "cut.exr"},
        {{"compare", "left.png", "small.png", "--sheet", "sheet.png"}, "small.png"},
        {{"pack", "--left", "text.exr", "--right", "right.png", "--disparity-left", "map.png", "-o", "out.exr"},
         "text.exr"},
        {{"pack", "--left", "left.png", "--right", "small.png", "--disparity-left", "map.png", "-o", "out.exr"},
         "small.png"},
        {{"pack", "--left", "left.png", "--right", "right.png", "--disparity-left", "small.png", "-o", "out.exr"},
         "small.png"},
    };
    for (const Case& wrong : cases) {
        const Outcome outcome = run(wrong.words);
        SCOPED_TRACE(testing::PrintToString(wrong.words) + " said: " + outcome.errors);
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.rfind("viewtint: ", 0), 0u);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
        EXPECT_NE(outcome.errors.find(wrong.told), std::string::npos);
        EXPECT_EQ(files(), before);
    }
}

TEST_F(CommandLine, InterruptedWorkLeavesNothing) {
    writePair();
    const std::vector<std::string> before = files();
    const std::vector<std::string> packing = {
        "pack", "--left", "left.png", "--right", "right.png", "--disparity-left", "map.png", "-o", "out.exr"};
    const std::vector<std::string> comparing = {"compare", "left.png", "right.png", "--sheet", "sheet.png"};
    for (const auto& words : {packing, comparing}) {
        const Outcome outcome = run(words, Start::interrupted);
        EXPECT_EQ(outcome.exitCode, 130) << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        EXPECT_NE(outcome.errors.find("interrupted"), std::string::npos);
        EXPECT_EQ(files(), before);
    }
}

}  // namespace
}  // namespace ViewTint::Cli
