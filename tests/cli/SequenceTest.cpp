#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

using boost::property_tree::ptree;
using Host::NewView;
using Plane = std::vector<float>;
using Words = std::vector<std::string>;

constexpr int width = 48;
constexpr int height = 30;
constexpr int firstFrame = 1001;

/// A shot of twelve frames whose cast changes from frame to frame.
class Sequence : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        for (int frame = firstFrame; frame < firstFrame + 12; ++frame)
            Host::writeMultiView(file(name("shot", frame)), width, height,
                                 std::vector{view("left", frame), view("right", frame)}, Host::PixelStorage::half);
    }
    static std::string name(const std::string& shot, int frame) { return shot + "." + std::to_string(frame) + ".exr"; }

    static NewView view(const std::string& name, int frame) {
        const float gain = name == "left" ? 1 + 0.2f * std::sin(static_cast<float>(frame)) : 1;
        NewView result{name, {}};
        for (const char* channel : {"R", "G", "B", "A", "disparityL.x", "disparityL.y", "disparityR.x", "disparityR.y",
                                    "mask_occlusion.alpha"}) {
            Plane pixels(width * height, channel[0] == 'A' ? 1.0f : 0.0f);
            const bool colour = std::string("RGB").find(channel[0]) != std::string::npos;
            for (int i = 0; colour && i < width * height; ++i)
                pixels[static_cast<std::size_t>(i)] =
                    gain *
                    (0.4f + 0.2f * std::sin(0.3f * static_cast<float>(i % width) + static_cast<float>(channel[0])) *
                                std::cos(0.4f * static_cast<float>(i / width)));
            result.planes.push_back({channel, std::move(pixels)});
        }
        return result;
    }
    Plane red(const std::string& path, const std::string& view) const {
        Plane pixels(width * height);
        Host::MultiViewFile::open(file(path)).read(view, "R", {0, 0, width, height}, pixels.data(), width);
        return pixels;
    }
    /// Between the views, in the mean.
    double difference(const std::string& path) const {
        const Plane left = red(path, "left"), right = red(path, "right");
        double sum = 0;
        for (std::size_t i = 0; i < left.size(); ++i)
            sum += std::abs(left[i] - right[i]);
        return sum / static_cast<double>(left.size());
    }
    Outcome render(const Words& more = {}) const {
        Words words{"render", "shot.####.exr", "-o", "out.####.exr", "--matchingMode", "Basic"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }
    std::vector<ptree> events(const Outcome& outcome) const {
        std::vector<ptree> lines;
        std::istringstream stream(outcome.output);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(parseJson(line));
        return lines;
    }
    bool isWhole(const std::string& name) const {
        try {
            Host::MultiViewFile::open(file(name));
            return true;
        } catch (const Host::FileError&) {
            return false;
        }
    }
    int outputs() const {
        int count = 0;
        for (const std::string& name : files())
            count += name.starts_with("out.");
        return count;
    }
};

TEST_F(Sequence, EveryFrameIsCorrected) {
    const Outcome outcome = render();
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_EQ(outcome.output.rfind("12 frames: 12 written, 0 skipped, 0 failed in ", 0), 0u) << outcome.output;
    for (int frame = firstFrame; frame < firstFrame + 12; ++frame)
        EXPECT_LT(difference(name("out", frame)), 0.01) << frame;
    EXPECT_GT(difference(name("shot", firstFrame + 3)), 0.02);
    EXPECT_EQ(outputs(), 12);
    // Another way of writing the names, some of the frames, the other view, one thread.
    ASSERT_EQ(run({"render", "shot.%04d.exr", "-o", "other.@@@@@.exr", "--frames", "1003-1007x2", "--matchWhat", "1",
                   "--threads", "1", "--quiet"})
                  .exitCode,
              0);
    EXPECT_TRUE(exists("other.01003.exr") && exists("other.01005.exr") && exists("other.01007.exr"));
    EXPECT_FALSE(exists("other.01004.exr"));
}

/// A photographed pair as a shot: its cast changes, and each frame has grain of its own.
TEST_F(Sequence, OfPhotographsComesNearerToTheTruthInEveryFrame) {
    const fs::path cones = fs::path(VIEWTINT_SHARED_DATA) / "cones" / "cones.exr";
    if (!fs::exists(cones)) GTEST_SKIP() << "the photographs are not here: " << cones;
    const auto still = Host::MultiViewFile::open(cones);
    const Host::Box box{0, 0, still.width(), still.height()};
    const auto planeOf = [&](const Host::MultiViewFile& file, const std::string& view, const std::string& channel) {
        Plane plane(static_cast<std::size_t>(box.pixels()));
        file.read(view, channel, box, plane.data(), box.width());
        return plane;
    };
    for (const auto& [view, matchWhat] : {std::pair{"left", "0"}, std::pair{"right", "1"}}) {
        for (int frame = 1; frame <= 12; ++frame) {
            std::mt19937 random(static_cast<unsigned>(frame));
            std::uniform_real_distribution<float> grain(-0.004f, 0.004f);
            auto picture = Host::MultiViewFile::open(cones);
            for (int c = 0; c < 3; ++c) {
                const std::string channel(1, "RGB"[c]);
                Plane plane = planeOf(still, view, channel);
                const float gain = 1.25f + 0.1f * std::sin(static_cast<float>(frame + 2 * c));
                for (float& value : plane)
                    value = value * gain + grain(random);
                picture.replace(view, channel, box, plane.data(), box.width());
            }
            picture.save(file(name("cones", frame)));
        }
        ASSERT_EQ(run({"render", "cones.%d.exr", "-o", "matched.%d.exr", "--matchingMode", "Basic", "--matchWhat",
                       matchWhat, "--quiet"})
                      .exitCode,
                  0);
        const Plane truth = planeOf(still, view, "G");
        const auto distance = [&](const std::string& shot, int frame) {
            const Plane plane = planeOf(Host::MultiViewFile::open(file(name(shot, frame))), view, "G");
            double sum = 0;
            for (std::size_t i = 0; i < plane.size(); ++i)
                sum += std::abs(plane[i] - truth[i]);
            return sum;
        };
        for (int frame = 1; frame <= 12; ++frame)
            EXPECT_LT(distance("matched", frame), 0.6 * distance("cones", frame)) << view << ' ' << frame;
    }
}

TEST_F(Sequence, EachViewMayHaveAFileOfItsOwn) {
    for (int frame = firstFrame; frame < firstFrame + 3; ++frame)
        for (const char* side : {"left", "right"}) {
            const NewView one{"main", view(side, frame).planes};
            Host::writeMultiView(file(name(side, frame)), width, height, {&one, 1}, Host::PixelStorage::half);
        }
    const std::string rightBefore = contents(name("right", 1002));
    ASSERT_EQ(run({"render", "%V.####.exr", "-o", "per_%V.####.exr", "--quiet", "--matchingMode", "Basic"}).exitCode,
              0);
    ASSERT_EQ(render({"--frames", "1001-1003", "--quiet"}).exitCode, 0);
    for (int frame = firstFrame + 1; frame < firstFrame + 3; ++frame)
        EXPECT_EQ(red(name("per_left", frame), "main"), red(name("out", frame), "left")) << "as from one file";
    EXPECT_FALSE(exists(name("per_right", 1002)));
    EXPECT_EQ(contents(name("right", 1002)), rightBefore);
    // One picture, the other view, named by its first letter.
    ASSERT_EQ(run({"render", "%V.1001.exr", "-o", "still_%v.exr", "--matchWhat", "1", "--quiet"}).exitCode, 0);
    EXPECT_TRUE(exists("still_r.exr"));
    EXPECT_FALSE(exists("still_l.exr"));

    fs::remove(file(name("right", 1002)));
    const Outcome missing = run({"render", "%V.####.exr", "-o", "per_%V.####.exr", "--frames", "1002"});
    EXPECT_NE(missing.errors.find("'right.1002.exr' is missing"), std::string::npos) << missing.errors;
    EXPECT_NE(run({"render", "%V.1001.exr", "-o", "%V.1001.exr"}).errors.find("it is the picture that is read"),
              std::string::npos);
    EXPECT_NE(run({"render", "%V.1009.exr", "-o", "x.exr"}).errors.find("'left.1009.exr'"), std::string::npos);
    EXPECT_NE(run({"render", "%Vot.1001.exr", "--views", "sh,sh", "-o", "x.exr"}).errors.find("holds several views"),
              std::string::npos);
}

TEST_F(Sequence, AMaskMayBeASequenceToo) {
    for (int frame = firstFrame; frame < firstFrame + 3; ++frame)
        Host::writeMultiView(
            file(name("mask", frame)), width, height,
            std::vector{NewView{"main", {{"A", Plane(width * height, frame == firstFrame ? 0.0f : 1.0f)}}}},
            Host::PixelStorage::half);
    const Outcome outcome = render({"--frames", "1001-1004", "--mask", "mask.####.exr", "--maskWith", "Mask Alpha"});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.errors.find("frame 1004: "), std::string::npos);
    EXPECT_NE(outcome.errors.find("mask.1004.exr"), std::string::npos) << outcome.errors;
    EXPECT_EQ(red(name("out", 1001), "left"), red(name("shot", 1001), "left")) << "nothing was selected";
    EXPECT_LT(difference(name("out", 1002)), 0.01);
}

/// However the program ends, what stands under a frame's name is whole, and the rest follows when it is started again.
TEST_F(Sequence, AKilledOneIsResumed) {
    const Words words{"render", "shot.####.exr", "-o", "out.####.exr", "--skip-existing", "--quiet"};
    int killed = 0;
    for (int turn = 0; turn < 8 && outputs() < 12; ++turn) {
        const int before = outputs();
        killed += runAndKillWhen(words, [&] { return outputs() > before; });
        for (int frame = firstFrame; frame < firstFrame + 12; ++frame)
            EXPECT_TRUE(!exists(name("out", frame)) || isWhole(name("out", frame))) << frame;
    }
    EXPECT_GT(killed, 0);
    const Outcome outcome = render({"--skip-existing", "--json"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_GT(events(outcome).back().get<int>("skipped"), 0);
    EXPECT_EQ(outputs(), 12);
}

TEST_F(Sequence, AnInterruptionLeavesWholeFramesOnly) {
    const Outcome outcome =
        runAndInterruptAfter("viewtint: frame 1001\n", {"render", "shot.####.exr", "-o", "out.####.exr"});
    EXPECT_EQ(outcome.exitCode, 130);
    EXPECT_NE(outcome.output.find("left in "), std::string::npos) << outcome.output;
    EXPECT_LT(outputs(), 12);
    for (const std::string& name : files())
        EXPECT_TRUE(isWhole(name)) << name;
}

TEST_F(Sequence, GoesOnWhenNobodyReadsItsEventsAnyMore) {
    const std::string command =
        fmt::format("cd '{}' && '{}' render shot.####.exr -o out.####.exr --json 2>&1 | head -1", file("").string(),
                    VIEWTINT_COMMAND);
    EXPECT_EQ(std::system((command + " | grep -q event").c_str()), 0);
    for (int waits = 0; waits < 6000 && outputs() < 12; ++waits)
        usleep(10000);
    EXPECT_EQ(outputs(), 12);
}

TEST_F(Sequence, WrongCallsSayWhatWouldDo) {
    struct Case {
        Words words;
        std::string told;
    };
    const Case cases[] = {
        {{"render", "shot.####.exr", "-o", "out.exr"}, "'out.exr' has no place for the frame number"},
        {{"render", "shot.####.exr", "-o", "shot.####.exr"}, "it is the picture that is read"},
        {{"render", "none.####.exr", "-o", "out.####.exr"}, "There are no files 'none.####.exr'"},
        {{"render", "shot.####.exr", "-o", "out.####.exr", "--write-stages", "st"},
         "--write-stages is for one picture"},
        {{"render", name("shot", 1001), "-o", "out.exr", "--frames", "1-2"}, "--frames is for sequences"},
    };
    const Words before = files();
    for (const Case& one : cases) {
        const Outcome outcome = run(one.words);
        EXPECT_NE(outcome.exitCode, 0);
        EXPECT_NE(outcome.errors.find(one.told), std::string::npos) << outcome.errors;
        EXPECT_EQ(files(), before);
    }
}

}  // namespace
}  // namespace ViewTint::Cli
