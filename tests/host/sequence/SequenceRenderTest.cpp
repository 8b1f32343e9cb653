#include "host/sequence/SequenceRender.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <map>

#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
using Frames = std::vector<int>;
using Plane = std::vector<float>;

constexpr int width = 32;
constexpr int height = 20;

/// A shot of eight frames whose cast and occlusion change, and the colour matching node.
class SequenceRenderTest : public FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        input = pattern("in.####.exr");
        output = pattern("out.####.exr");
    }
    FramePattern pattern(const std::string& name) const {
        return *FramePattern::parse(name.empty() ? "#" : file(name).string());
    }
    static NewView view(const std::string& name, int frame) {
        const bool left = name == "left";
        const auto plane = [&](auto&& value) {
            Plane pixels(width * height);
            for (int i = 0; i < width * height; ++i)
                pixels[static_cast<std::size_t>(i)] = value(i % width, i / width);
            return pixels;
        };
        const float gain = left ? 1.0f + 0.04f * static_cast<float>(frame) : 1.0f;
        const auto texture = [&](float phase) {
            return plane([&](int x, int y) {
                return gain *
                       (0.4f + 0.2f * std::sin(static_cast<float>(x) * 0.7f + phase) * std::cos(static_cast<float>(y)));
            });
        };
        const Plane zero(width * height, 0.0f);
        return {name,
                {{"R", texture(0)},
                 {"G", texture(1)},
                 {"B", texture(2)},
                 {"A", Plane(width * height, 1.0f)},
                 {"disparityL.x", zero},
                 {"disparityL.y", zero},
                 {"disparityR.x", zero},
                 {"disparityR.y", zero},
                 {"mask_occlusion.alpha", plane([&](int x, int) { return x == 3 * frame ? 1.0f : 0.0f; })}}};
    }
    void writeFrames(const Frames& frames) const {
        for (const int frame : frames) {
            const std::vector<NewView> views = {view("left", frame), view("right", frame)};
            writeMultiView(input.path(frame), width, height, views, PixelStorage::single);
        }
    }
    ControlValues controls() const {
        ControlValues values(viewTintClass);
        values.set("matchingMode", "Basic");
        values.set("stabiliseOcclusions", stabilises ? "on" : "off");
        return values;
    }
    using Source = SequenceSource;
    /// What became of each frame; `expected` says which are written.
    std::map<int, FrameResult> run(SequenceSettings settings, Source::Outside outside = Source::Outside::empty,
                                   Source::Missing missing = Source::Missing::fail) {
        Source source(input, outside, missing);
        settings.neighbours = neighbourRequests(controls(), ChannelRoles(), std::vector<std::string>{"left", "right"});
        RenderJob job(source, controls(), ChannelRoles(), services);
        SequenceRender render(source, job, output, settings);
        std::map<int, FrameResult> results;
        render.begin = begin;
        render.report = [&](const FrameResult& result) { results[result.frame] = result; };
        render.run();
        filesRead = source.filesRead();
        return results;
    }
    static int count(const std::map<int, FrameResult>& results, FrameResult::Status status) {
        int number = 0;
        for (const auto& [frame, result] : results)
            number += result.status == status;
        return number;
    }
    Plane red(const fs::path& path) const {
        Plane pixels(width * height);
        MultiViewFile::open(path).read("left", "R", {0, 0, width, height}, pixels.data(), width);
        return pixels;
    }

    static constexpr auto written = FrameResult::Status::written;
    static constexpr auto skipped = FrameResult::Status::skipped;
    static constexpr auto failed = FrameResult::Status::failed;
    static constexpr std::size_t plenty = std::size_t{1} << 30;
    const Frames all{1, 2, 3, 4, 5, 6, 7, 8};
    FramePattern input = pattern(""), output = pattern("");
    RenderServices services;
    bool stabilises = true;  ///< looks at two frames on either side
    std::function<void(int, std::size_t)> begin;
    int filesRead = 0;
};

/// Reads every frame anew, without threads.
class PlainSource : public FrameSource {
public:
    explicit PlainSource(FramePattern pattern) : pattern_(std::move(pattern)) {}
    std::shared_ptr<MultiViewFile> frame(int number) override {
        if (!fs::exists(pattern_.path(number))) return nullptr;
        return std::make_shared<MultiViewFile>(MultiViewFile::open(pattern_.path(number)));
    }

private:
    FramePattern pattern_;
};

}  // namespace

TEST_F(SequenceRenderTest, givesTheFramesThatSingleRendersGiveAndReadsEachFileOnce) {
    writeFrames(all);
    for (const std::size_t memory : {std::size_t{1}, plenty}) {
        const auto results = run({.frames = all, .memory = memory});
        EXPECT_EQ(count(results, written), 8);
        EXPECT_EQ(filesRead, 8) << memory;
        PlainSource plain(input);
        RenderJob job(plain, controls(), ChannelRoles());
        for (const int frame : all) {
            job.render(frame, file("single.exr"));
            EXPECT_EQ(red(output.path(frame)), red(file("single.exr"))) << frame;
            EXPECT_GT(results.at(frame).seconds, 0);
        }
    }
    // Occlusion of neighbours counts, so a frame by itself comes out otherwise.
    StillSource still(std::make_shared<MultiViewFile>(MultiViewFile::open(input.path(4))), 4);
    RenderJob(still, controls(), ChannelRoles()).render(4, file("still.exr"));
    EXPECT_NE(red(file("still.exr")), red(output.path(4)));
}

TEST_F(SequenceRenderTest, ofNeighboursOnlyTheOcclusionIsRead) {
    const std::vector<std::string> views{"left", "right"};
    ControlValues values(viewTintClass);
    ChannelRoles roles;
    roles.assign("mask_occlusion.alpha=hidden");
    values.set("stabiliseOcclusionsNumberOfFrames", "3");
    EXPECT_EQ(neighbourRequests(values, roles, views).reach, 1);
    values.set("stabiliseOcclusionsNumberOfFrames", "5");
    EXPECT_EQ(neighbourRequests(values, roles, views).reach, 2);
    EXPECT_EQ(neighbourRequests(values, roles, views).channels, std::set<std::string>{"hidden"});
    values.set("occlusionCorrection", "None");
    EXPECT_EQ(neighbourRequests(values, roles, views).reach, 0);

    writeFrames(all);
    run({.frames = all, .memory = plenty});
    const Plane together = red(output.path(5));
    run({.frames = {1, 5}, .memory = plenty});
    EXPECT_EQ(filesRead, 7) << "each once";
    EXPECT_EQ(red(output.path(5)), together);
    Source source(input, Source::Outside::empty, Source::Missing::fail);
    source.plan({5}, neighbourRequests(controls(), ChannelRoles(), views), 0);
    constexpr std::size_t plane = width * height * sizeof(float);
    EXPECT_EQ(source.frame(5)->bytes(), 18 * plane);
    const auto neighbour = source.frame(4);
    EXPECT_EQ(neighbour->bytes(), 2 * plane) << "of each view";
    Plane pixels(width * height);
    EXPECT_NO_THROW(neighbour->read("left", "mask_occlusion.alpha", {0, 0, width, height}, pixels.data(), width));
    EXPECT_EQ(pixels[12], 1);
}

TEST_F(SequenceRenderTest, aFrameThatFailsDoesNotStopTheOthers) {
    writeFrames(all);
    fs::remove(input.path(5));
    fs::resize_file(input.path(2), 1000);
    fs::create_directory(output.path(7));
    stabilises = false;
    const auto results = run({.frames = {1, 2, 3, 4, 5, 6, 7, 8, 20}, .memory = plenty});
    EXPECT_EQ(results.size(), 9u);
    for (const int frame : {2, 5, 7, 20})
        EXPECT_EQ(results.at(frame).status, failed) << frame;
    EXPECT_NE(results.at(5).message.find("in.0005.exr' is missing; --missing hold"), std::string::npos);
    EXPECT_NE(results.at(2).message.find("in.0002.exr"), std::string::npos);
    EXPECT_NE(results.at(7).message.find("out.0007.exr"), std::string::npos);
    EXPECT_NE(results.at(20).message.find("the sequence goes from 1 to 8"), std::string::npos);
    EXPECT_EQ(count(results, written), 5);
    // A neighbour that can't be read fails every frame that looks at it, by its own name.
    stabilises = true;
    const auto beside = run({.frames = {1, 3, 4, 8}, .memory = plenty});
    EXPECT_EQ(count(beside, failed), 3);
    EXPECT_NE(beside.at(4).message.find("in.000"), std::string::npos);
}

TEST_F(SequenceRenderTest, missingFramesAreHeldWhenAsked) {
    writeFrames({1, 2, 3, 5, 6});
    const auto results =
        run({.frames = {1, 2, 3, 4, 5, 6}, .memory = plenty}, Source::Outside::hold, Source::Missing::hold);
    EXPECT_EQ(count(results, written), 6);
    EXPECT_EQ(results.at(4).message, "");
    const Plane third = red(output.path(3)), fourth = red(output.path(4));
    double difference = 0;
    for (std::size_t i = 0; i < third.size(); ++i)
        difference = std::max(difference, std::abs(double{third[i]} - fourth[i]));
    EXPECT_LT(difference, 0.05) << "the third, corrected once and not twice";
}

TEST_F(SequenceRenderTest, whatIsWholeIsSkipped) {
    writeFrames(all);
    run({.frames = {1, 2, 3}, .memory = plenty});
    fs::resize_file(output.path(2), fs::file_size(output.path(2)) / 2);
    const auto before = fs::last_write_time(output.path(1));
    const fs::path abandoned = file(".viewtint-1-1.partial"), current = file(".viewtint-1-2.partial");
    for (const fs::path& path : {abandoned, current})
        fs::copy_file(output.path(1), path);
    fs::last_write_time(abandoned, fs::file_time_type::clock::now() - std::chrono::hours(2));
    const auto results = run({.frames = {1, 2, 3, 4}, .skip = SkipFrames::whole, .memory = plenty});
    EXPECT_FALSE(fs::exists(abandoned)) << "a killed run left it";
    EXPECT_TRUE(fs::exists(current)) << "somebody may be writing it";
    EXPECT_EQ(results.at(1).status, skipped);
    EXPECT_EQ(results.at(2).status, written);
    EXPECT_EQ(results.at(4).status, written);
    EXPECT_EQ(fs::last_write_time(output.path(1)), before);
}

TEST_F(SequenceRenderTest, anInterruptionKeepsWhatIsRenderedAndLeavesNothingElse) {
    writeFrames(all);
    std::atomic<bool> abort = false;
    services.abort = &abort;
    begin = [&](int frame, std::size_t) {
        if (frame == 4) abort = true;
    };
    EXPECT_THROW(run({.frames = all, .memory = plenty}), RenderInterrupted);
    for (const int frame : all)
        EXPECT_EQ(fs::exists(output.path(frame)), frame < 4) << frame;
    for (const auto& entry : fs::directory_iterator(output.path(1).parent_path()))
        EXPECT_EQ(entry.path().extension(), ".exr") << entry.path();
    for (const int frame : {1, 2, 3})
        EXPECT_NO_THROW(MultiViewFile::open(output.path(frame)));
}

}  // namespace ViewTint::Host::Testing
