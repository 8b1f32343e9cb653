#include "host/sequence/FramePattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <random>

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
using Frames = std::vector<int>;

TEST(FramePatternTest, findsItsFilesOnly) {
    const fs::path folder = fs::path(testing::TempDir()) / "viewtint_frames";
    fs::remove_all(folder);
    fs::create_directory(folder);
    for (const char* name : {"a.0010.exr", "a.0009.exr", "a.10000.exr", "a.009.exr", "a.0011.exr.bak", "b.0012.exr",
                             ".a.0013.exr", "a.001x.exr", "a..exr", "a.-0002.exr"})
        std::ofstream(folder / name) << "x";
    EXPECT_EQ(FramePattern::parse((folder / "a.####.exr").string())->existing(), (Frames{-2, 9, 10, 10000}));
    EXPECT_EQ(FramePattern::parse((folder / "a.%d.exr").string())->existing(), (Frames{10000}));
    EXPECT_EQ(FramePattern::parse((folder / "none" / "a.#.exr").string())->existing(), Frames{});
    fs::remove_all(folder);
}

TEST(FramePatternTest, namesOfViews) {
    EXPECT_EQ(nameForView("a.%V.####.exr", "left"), "a.left.####.exr");
    EXPECT_EQ(nameForView("%v/%V.exr", "right"), "r/right.exr");
    EXPECT_EQ(nameForView("a.%04d.exr", "left"), std::nullopt);
}

TEST(FramesTest, asTheyAreTyped) {
    EXPECT_EQ(parseFrames("7"), Frames{7});
    EXPECT_EQ(parseFrames("5-8"), (Frames{5, 6, 7, 8}));
    EXPECT_EQ(parseFrames("1001-1009x3"), (Frames{1001, 1004, 1007}));
    EXPECT_EQ(parseFrames("8-5"), (Frames{8, 7, 6, 5}));
    EXPECT_EQ(parseFrames("-2-1"), (Frames{-2, -1, 0, 1}));
    EXPECT_EQ(parseFrames("9,5-7,6,9"), (Frames{9, 5, 6, 7}));
}

TEST(FramesTest, areToldShortlyAndReadBack) {
    EXPECT_EQ(formatFrames(Frames{}), "");
    EXPECT_EQ(formatFrames(Frames{7}), "7");
    EXPECT_EQ(formatFrames(Frames{5, 6}), "5-6");
    EXPECT_EQ(formatFrames(Frames{1, 4, 7, 8, 9, 20}), "1-7x3,8-9,20");
    EXPECT_EQ(formatFrames(Frames{3, 1, -1, -2}), "3--1x2,-2");
    std::mt19937 random(1);
    for (int turn = 0; turn < 300; ++turn) {
        Frames frames(20);
        std::iota(frames.begin(), frames.end(), -8);
        if (turn % 2) std::ranges::shuffle(frames, random);
        std::erase_if(frames, [&](int) { return random() % 3 == 0; });
        if (frames.empty()) continue;
        EXPECT_EQ(parseFrames(formatFrames(frames)), frames);
    }
}

}  // namespace
}  // namespace ViewTint::Host::Testing
