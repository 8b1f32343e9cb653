#include <cmath>
#include <random>

#include "CommandTest.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Cli {
namespace {

using Words = std::vector<std::string>;
using Plane = std::vector<float>;
using Host::NewView;

constexpr int width = 40;
constexpr int height = 24;
const Words colours = {"R", "G", "B"};
const Words rightColours = {"right.R", "right.G", "right.B"};

class Render : public CommandTest {
protected:
    static Plane texture(unsigned seed, float gain, float offset) {
        std::mt19937 random(seed);
        Plane pixels(width * height);
        for (float& pixel : pixels)
            pixel = gain * (0.2f + 0.6f * float(random() % 1024) / 1024.0f) + offset;
        return pixels;
    }

    static NewView view(const std::string& name, float gain, float offset) {
        NewView all{name,
                    {{"R", texture(1, gain, offset)},
                     {"G", texture(2, gain, offset)},
                     {"B", texture(3, gain, offset)},
                     {"A", Plane(width * height, 1.0f)},
                     {"depth.Z", texture(4, 100, 0)}}};
        for (const char* channel :
             {"disparityL.x", "disparityL.y", "disparityR.x", "disparityR.y", "mask_occlusion.alpha"})
            all.planes.push_back({channel, Plane(width * height, 0.0f)});
        return all;
    }
    /// The left view has a cast; apart from that the views agree.
    static std::vector<NewView> pair() { return {view("left", 0.6f, 0.1f), view("right", 1.0f, 0.0f)}; }
    static void drop(NewView& view, const std::string& channel) {
        std::erase_if(view.planes, [&](const NewView::Plane& plane) { return plane.channel == channel; });
    }
    static Plane& plane(NewView& view, const std::string& channel) {
        for (NewView::Plane& plane : view.planes)
            if (plane.channel == channel) return plane.pixels;
        throw std::out_of_range(channel);
    }

    void write(const std::string& name, const std::vector<NewView>& views) const {
        Host::writeMultiView(file(name), width, height, views, Host::PixelStorage::single);
    }

    Outcome render(const Words& more = {}, const std::string& input = "in.exr") const {
        Words words = {"render", input, "-o", "out.exr", "--matchingMode", "Basic"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }

    using Channels = std::map<std::string, std::vector<char>>;
    Channels channelsOf(const std::string& name) const { return Host::Testing::readRaw(file(name)).front().channels; }
    /// The channels of out.exr, by their names in the file, that differ from the input's in any bit.
    Words changed(const std::string& input = "in.exr") const {
        const Channels before = channelsOf(input);
        const Channels after = channelsOf("out.exr");
        EXPECT_EQ(before.size(), after.size());
        Words names;
        for (const char* order : {"R", "G", "B"})
            for (const auto& [name, bytes] : before)
                if (name.ends_with(order) && bytes != after.at(name)) names.push_back(name);
        for (const auto& [name, bytes] : before)
            if (bytes != after.at(name) && std::count(names.begin(), names.end(), name) == 0) names.push_back(name);
        return names;
    }
    Plane values(const std::string& name, const std::string& view, const std::string& channel) const {
        Plane pixels(width * height);
        Host::MultiViewFile::open(file(name)).read(view, channel, {0, 0, width, height}, pixels.data(), width);
        return pixels;
    }
    /// Over the pixels that are finite in both.
    static double meanDifference(const Plane& a, const Plane& b) {
        double sum = 0;
        int count = 0;
        for (std::size_t i = 0; i < a.size(); ++i)
            if (std::isfinite(a[i]) && std::isfinite(b[i])) sum += std::abs(a[i] - b[i]), ++count;
        return sum / count;
    }
    double betweenViews(const std::string& name) const {
        return meanDifference(values(name, "left", "G"), values(name, "right", "G"));
    }

    /// The command failed with this exit code and this end of its error stream, and left nothing.
    void expectRefusal(const Outcome& outcome, int exitCode, const std::string& told, const Words& before) const {
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_EQ(outcome.output, "");
        ASSERT_TRUE(outcome.errors.ends_with(".\n")) << outcome.errors;
        const std::string lastLine = outcome.errors.substr(outcome.errors.rfind('\n', outcome.errors.size() - 2) + 1);
        EXPECT_TRUE(lastLine.starts_with("viewtint: " + told)) << lastLine;
        EXPECT_EQ(files(), before);
    }
};

TEST_F(Render, CorrectsTheChosenViewAndNothingElse) {
    write("in.exr", pair());
    struct Case {
        Words words;
        Words corrected;
    };
    const Case cases[] = {{{}, colours},
                          {{"--matchWhat", "left to right"}, colours},
                          {{"--matchWhat", "Right to left"}, rightColours},
                          {{"--matchWhat=1"}, rightColours},
                          {{"--leftView", "right", "--rightView", "1"}, rightColours}};
    for (const Case& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.words));
        const Outcome outcome = render(one.words);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
        EXPECT_EQ(outcome.output.rfind("out.exr: written in ", 0), 0u);
        EXPECT_EQ(outcome.errors.rfind("viewtint: Adjusting colours\n", 0), 0u) << outcome.errors;
        EXPECT_EQ(changed(), one.corrected);
        EXPECT_LT(betweenViews("out.exr"), 0.1 * betweenViews("in.exr"));
    }
    EXPECT_EQ(files(), (Words{"in.exr", "out.exr"}));
}

TEST_F(Render, APackedPairKeepsItsLayout) {
    writePair();
    ASSERT_EQ(pack("packed.exr", {"--half"}).exitCode, 0);
    const Outcome outcome = render({"--quiet"}, "packed.exr");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
    EXPECT_EQ(changed("packed.exr"), colours);
    const auto header = [&](const char* name) {
        return Host::Testing::attributesOf(Host::Testing::readRaw(file(name))[0].header);
    };
    auto made = header("out.exr");
    EXPECT_EQ(made["viewtintVersion"].second, run({"--version"}).output.substr(9, 26));
    EXPECT_NE(made["viewtintControls"].second.find("--matchingMode \"Basic\""), std::string::npos);
    std::erase_if(made, [](const auto& attribute) { return attribute.first.starts_with("viewtint"); });
    EXPECT_EQ(made, header("packed.exr"));
}

TEST_F(Render, StatsTellWhereTheTimeGoes) {
    write("in.exr", pair());
    const Outcome plain = render();
    const Outcome outcome = render({"--stats"});
    EXPECT_EQ(outcome.exitCode, 0);
    for (const char* stage : {"read", "rebuild the other view", "match", "write", "all stages"}) {
        EXPECT_NE(outcome.output.find(stage), std::string::npos) << outcome.output;
        EXPECT_EQ(plain.output.find("GB/s"), std::string::npos);
    }
}

TEST_F(Render, LocalMatchingCorrectsWhatBasicCannotAndShowsItsStages) {
    auto views = pair();
    Plane& red = plane(views[0], "R");  // the cast grows from left to right
    for (std::size_t i = 0; i < red.size(); ++i)
        red[i] *= 1.0f + 0.6f * float(i % width) / float(width);
    write("in.exr", views);
    const auto difference = [&] {
        return meanDifference(values("out.exr", "left", "R"), values("out.exr", "right", "R"));
    };
    ASSERT_EQ(render().exitCode, 0);
    const double basic = difference();
    const auto renderLocal = [&](const Words& more) {
        Words words = {"render", "in.exr", "-o", "out.exr", "--maxBlockSize", "8"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    };
    ASSERT_EQ(renderLocal({}).exitCode, 0);
    EXPECT_EQ(changed(), colours);
    const double local = difference();
    EXPECT_LT(local, 0.5 * basic);
    const std::string hint = "choose --samples 2 or more, or --occlusionCorrection None.\n";
    EXPECT_NE(renderLocal({"--samples", "1"}).errors.find(hint), std::string::npos);
    EXPECT_EQ(renderLocal({"--samples", "1", "--occlusionCorrection", "None"}).errors.find(hint), std::string::npos);
    const Outcome outcome = renderLocal({"--samples", "2", "--write-stages", "new/stages"});
    EXPECT_EQ(outcome.errors.find(hint), std::string::npos);
    const std::string inVain = "viewtint: intervalType has no effect together with the other values";
    EXPECT_EQ(outcome.errors.find(inVain), std::string::npos);
    EXPECT_NE(renderLocal({"--samples", "2", "--intervalType", "1"}).errors.find(inVain), std::string::npos);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    for (const char* stage :
         {"V", "N", "T", "noise", "E0", "E1", "merged", "O", "delta", "refilled", "average", "limited", "smoothed"}) {
        const auto file = Host::MultiViewFile::open(this->file("new/stages") / (std::string(stage) + ".exr"));
        EXPECT_EQ(file.width(), width) << stage;
    }
    writeText("new/taken", "");
    const Outcome blocked = renderLocal({"--write-stages", "new/taken"});
    EXPECT_NE(blocked.exitCode, 0);
    EXPECT_NE(blocked.errors.find("Cannot make the folder 'new/taken' for --write-stages"), std::string::npos)
        << blocked.errors;
}

TEST_F(Render, ThreadsDoNotChangeTheFile) {
    write("in.exr", pair());
    ASSERT_EQ(render({"--threads", "1"}).exitCode, 0);
    const std::string one = contents("out.exr");
    for (const char* threads : {"2", "3"}) {
        ASSERT_EQ(render({"--threads", threads}).exitCode, 0);
        EXPECT_TRUE(contents("out.exr") == one) << threads;
    }
}

TEST_F(Render, MasksSelectWhatIsCorrected) {
    write("in.exr", pair());
    // White without alpha, on the left half only.
    NewView mask = view("left", 0, 0);
    for (int i = 0; i < width * height; ++i)
        for (const std::string& channel : colours)
            plane(mask, channel)[std::size_t(i)] = i % width < width / 2 ? 1.0f : 0.0f;
    plane(mask, "A").assign(width * height, 0.0f);
    write("mask.exr", {mask});
    ASSERT_EQ(render().exitCode, 0);
    const Plane source = values("in.exr", "left", "G");
    const Plane whole = values("out.exr", "left", "G");

    struct Case {
        std::string mode;
        bool leftHalf;
        bool rightHalf;
    };
    const Case cases[] = {{"None", true, true},
                          {"Source Alpha", true, true},
                          {"Source Inverted Alpha", false, false},
                          {"mask luminance", true, false},
                          {"Mask Inverted Luminance", false, true},
                          {"5", false, false},
                          {"Mask Inverted Alpha", true, true}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.mode);
        ASSERT_EQ(render({"--mask", "mask.exr", "--maskWith", one.mode}).exitCode, 0);
        const Plane corrected = values("out.exr", "left", "G");
        for (int i = 0; i < width * height; ++i) {
            const bool selected = i % width < width / 2 ? one.leftHalf : one.rightHalf;
            const auto at = std::size_t(i);
            if (selected)
                // Half a picture has slightly other statistics than the whole.
                ASSERT_NEAR(corrected[at], whole[at], one.leftHalf == one.rightHalf ? 0.0 : 0.05) << i;
            else
                ASSERT_EQ(corrected[at], source[at]) << i;
        }
    }
}

TEST_F(Render, MasksOfOtherSizesAreZeroOutside) {
    write("in.exr", pair());
    const auto writeMask = [&](int w, int h) {
        const NewView mask{"main", {{"A", Plane(std::size_t(w * h), 1.0f)}}};
        Host::writeMultiView(file("mask.exr"), w, h, {&mask, 1}, Host::PixelStorage::half);
    };
    const Plane source = values("in.exr", "left", "G");
    for (const auto& [w, h] : {std::pair{width / 2, height / 3}, std::pair{2 * width, 3 * height}})
        for (const bool inverted : {false, true}) {
            writeMask(w, h);
            const Outcome outcome =
                render({"--mask", "mask.exr", "--maskWith", inverted ? "Mask Inverted Alpha" : "Mask Alpha"});
            ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
            const Plane corrected = values("out.exr", "left", "G");
            for (int i = 0; i < width * height; ++i) {
                const bool covered = i % width < w && i / width < h;  // from the lower left corner
                ASSERT_EQ(corrected[std::size_t(i)] != source[std::size_t(i)], covered != inverted) << i << ' ' << w;
            }
        }
}

TEST_F(Render, AnInterruptionLeavesNothing) {
    write("in.exr", pair());
    const Words words = {"render", "in.exr", "-o", "out.exr", "--matchingMode", "Basic"};
    for (const bool atOnce : {true, false}) {
        const Outcome outcome =
            atOnce ? run(words, Start::interrupted) : runAndInterruptAfter("viewtint: Adjusting colours\n", words);
        EXPECT_EQ(outcome.exitCode, 130) << outcome.errors;
        EXPECT_EQ(outcome.output, "");
        EXPECT_TRUE(outcome.errors.ends_with("viewtint: interrupted; unfinished files were taken back.\n"))
            << outcome.errors;
        EXPECT_EQ(files(), Words{"in.exr"});
    }
}

TEST_F(Render, UnusablePicturesAreNamedAndLeaveNothing) {
    const auto without = [&](const std::string& name, int viewIndex, const std::string& channel) {
        std::vector<NewView> views = pair();
        drop(views[std::size_t(viewIndex)], channel);
        write(name, views);
    };
    write("in.exr", pair());
    without("grey.exr", 1, "G");
    without("flat.exr", 0, "disparityR.y");
    writeText("text.exr", "no picture");
    writeText("cut.exr", contents("in.exr").substr(0, contents("in.exr").size() * 3 / 4));
    fs::create_directory(file("folder.exr"));
    const Words before = files();

    struct Case {
        Words words;  ///< behind "render", before "-o out.exr --matchingMode Basic"
        std::string told;
    };
    const std::string packing = "it is not an OpenEXR picture; separate pictures can be packed into one first.";
    const Case cases[] = {
        {{"text.exr"}, "Cannot read 'text.exr': " + packing},
        {{"in.exr", "--mask", "text.exr", "--maskWith", "3"}, "Cannot read 'text.exr': " + packing},
        {{"cut.exr"}, "Cannot read 'cut.exr': it is truncated or damaged"},
        {{"grey.exr"},
         "grey.exr: Input Source missing rgb. There is no 'G' in view 'right'; add it, or choose others with "
         "--channel ROLE=NAME."},
        {{"in.exr", "--channel", "green=beauty.G"},
         "'in.exr' has no channel 'beauty.G', which was chosen for green; its channels are: A, B, G, R, depth.Z, "},
        {{"flat.exr"}, "flat.exr: Input Source missing disparity. Please add an upstream Q_ParallaxField node.\n"},
        {{"in.exr", "--maskWith", "Mask Alpha"},
         "in.exr: Channel selected as Mask is missing. Please connect the correct input. Name a mask file with --mask, "
         "or choose another maskWith."},
        {{"in.exr", "--rightView", "left"},
         "in.exr: leftView and rightView are both view 1. Choose two different views."},
        {{"in.exr", "-o", "nowhere/out.exr"},
         "Cannot write 'nowhere/out.exr': there is no folder 'nowhere'; create it first."},
        {{"in.exr", "-o", "folder.exr"}, "Cannot write 'folder.exr': it is a folder; give the name of a file."},
        {{"in.exr", "-o", "/proc/out.exr"},
         "Cannot write '/proc/out.exr': the folder '/proc' takes no new file (No such file or directory)."},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.words));
        Words words = one.words;
        words.insert(words.begin(), "render");
        const auto add = [&](const std::string& option, const std::string& value) {
            if (std::count(words.begin(), words.end(), option) == 0) words.insert(words.end(), {option, value});
        };
        add("-o", "out.exr");
        add("--matchingMode", "Basic");
        expectRefusal(run(words), 1, one.told, before);
    }
}

TEST_F(Render, WrongCallsSayWhatWouldDoAndLeaveNothing) {
    write("in.exr", pair());
    fs::create_symlink("in.exr", file("link.exr"));
    fs::create_directory(file("folder"));
    const std::string bytes = contents("in.exr");
    const Words before = files();
    struct Case {
        Words words;  ///< behind "render in.exr -o out.exr"
        std::string told;
    };
    const auto alsoInput = [](const std::string& name) {
        return "--output: '" + name + "' is also an input; give the output another name.";
    };
    const Case cases[] = {
        {{"--blocksize", "5"}, "There is no control 'blocksize'; the nearest are blockSize, maxBlockSize, "},
        {{"--blockSize", "500"}, "500 is out of range for the control blockSize: it goes from 2 to 100."},
        {{"--noiseLevel", "2"}, "2 is out of range for the control noiseLevel: it goes from 0 to 1."},
        {{"--maskWith", "9"}, "'9' is no value for the control maskWith: choose \"None\" (0), \"Source Alpha\" (1), "},
        {{"--matchingMode", "Bsic"},
         "'Bsic' is no value for the control matchingMode: choose \"Basic\" (0), \"Local Matching\" (1)."},
        {{"--noiseLevel", "loud"}, "'loud' is no value for the control noiseLevel: it needs a number."},
        {{"--blockSize", "5.5"}, "'5.5' is no value for the control blockSize: it needs a whole number."},
        {{"--blockSize", ""}, "'' is no value for the control blockSize: it needs a whole number."},
        {{"--previewCorrection", "maybe"},
         "'maybe' is no value for the control previewCorrection: it is switched on or off."},
        {{"--leftView", "middle"}, "'middle' is no value for the control leftView: the views are left, right."},
        {{"--blockSize"}, "--blockSize"},
        {{"more.exr"}, "RIGHT: there is no file 'more.exr'; check its name and folder."},
        {{"--channel", "G"}, "'G' assigns no channel; write ROLE=NAME, for example red=beauty.R."},
        {{"--channel", "grün=G"}, "There is no channel role 'grün'; the roles are: red, green, blue, alpha, "},
        {{"--mask", "absent.exr", "--maskWith", "3"}, "there is no file 'absent.exr'; check its name and folder"},
        {{"--mask", "in.exr"},
         "--mask: the file isn't used while maskWith is None; add for example --maskWith \"Mask Alpha\"."},
        {{"-o", "out.png"}, "--output: 'out.png' must end in .exr."},
        {{"-o", "in.exr"}, alsoInput("in.exr")},
        {{"-o", "folder/.././in.exr"}, alsoInput("folder/.././in.exr")},
        {{"-o", "link.exr"}, alsoInput("link.exr")},
    };
    const auto refusal = [&](const Words& words, const std::string& told) {
        SCOPED_TRACE(testing::PrintToString(words));
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.rfind("viewtint: ", 0), 0u);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
        EXPECT_NE(outcome.errors.find(told), std::string::npos) << outcome.errors;
        EXPECT_EQ(files(), before);
    };
    for (const Case& one : cases) {
        Words words = {"render", "in.exr"};
        words.insert(words.end(), one.words.begin(), one.words.end());
        if (one.words.front() != "-o") words.insert(words.begin() + 2, {"-o", "out.exr"});
        refusal(words, one.told);
    }
    refusal({"render", "in.exr"}, "--output");
    refusal({"render", "-o", "out.exr"}, "FILE");
    refusal({"render", "absent.exr", "-o", "out.exr"}, "there is no file 'absent.exr'; check its name and folder");
    refusal({"render", "folder", "-o", "out.exr"}, "'folder' is a folder; give the name of a picture");
    EXPECT_EQ(contents("in.exr"), bytes);
}

}  // namespace
}  // namespace ViewTint::Cli
