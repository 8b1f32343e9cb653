#include "host/graph/RenderJob.h"

#include <ImfStandardAttributes.h>

#include <algorithm>
#include <atomic>
#include <map>

#include "host/graph/SettingError.h"
#include "tests/host/files/RawExr.h"
#include "tests/host/graph/ProbeOp.h"

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
using Fresco::Image::ImagePlane;
using Names = std::vector<std::string>;

constexpr int width = 6;
constexpr int height = 4;

/// Sequences in memory.
class MapSource : public FrameSource {
public:
    std::map<int, std::shared_ptr<MultiViewFile>> pictures;
    std::shared_ptr<MultiViewFile> frame(int number) override {
        const auto found = pictures.find(number);
        return found == pictures.end() ? nullptr : found->second;
    }
};

class RenderJobTest : public FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        ProbeOp::render = [](ProbeOp&, ImagePlane& plane) { fill(plane, 0.5f); };
    }
    void TearDown() override {
        ProbeOp::render = nullptr;
        FolderTest::TearDown();
    }

    static void fill(ImagePlane& plane, float value) {
        const auto count = static_cast<std::size_t>(plane.box().pixels()) * plane.components();
        std::fill_n(plane.writableBuffer().data(), count, value);
    }

    static NewView flatView(const std::string& name, const Names& channels, float value) {
        NewView view{name, {}};
        for (const std::string& channel : channels) {
            view.planes.push_back({channel, std::vector<float>(width * height, value)});
        }
        return view;
    }
    /// A file whose left view holds `value`, its right view `value + 1`.
    std::shared_ptr<MultiViewFile> pair(const std::string& name, float value,
                                        const Names& channels = {"R", "G"}) const {
        const std::vector<NewView> views = {flatView("left", channels, value), flatView("right", channels, value + 1)};
        writeMultiView(file(name), width, height, views, PixelStorage::single);
        return std::make_shared<MultiViewFile>(MultiViewFile::open(file(name)));
    }
    void use(const std::shared_ptr<MultiViewFile>& picture) { source_.pictures[10] = picture; }

    RenderJob job() {
        ControlValues controls(probeClass);
        for (const auto& [name, value] : controls_)
            controls.set(name, value);
        return RenderJob(source_, std::move(controls), roles_, services_);
    }
    std::string renderError() {
        try {
            job().render(10, file("out.exr"));
        } catch (const RenderError& error) {
            EXPECT_FALSE(fs::exists(file("out.exr")));
            return error.what();
        }
        ADD_FAILURE() << "no RenderError was thrown";
        return "";
    }
    static float firstPixel(const MultiViewFile& picture, const std::string& view, const std::string& channel) {
        float value = -1;
        picture.read(view, channel, {0, 0, 1, 1}, &value, 1);
        return value;
    }

    MapSource source_;
    std::vector<std::pair<std::string, std::string>> controls_;
    ChannelRoles roles_;
    RenderServices services_;
};

TEST_F(RenderJobTest, replacesTheChangedChannelsOfTheChangedViewOnly) {
    use(pair("in.exr", 1, {"R", "G", "extra"}));
    controls_ = {{"corrected", "right"}};
    job().render(10, file("out.exr"));
    const auto out = MultiViewFile::open(file("out.exr"));
    EXPECT_EQ(firstPixel(out, "right", "R"), 0.5f);
    EXPECT_EQ(firstPixel(out, "right", "G"), 2.0f);
    EXPECT_EQ(firstPixel(out, "right", "extra"), 2.0f);
    EXPECT_EQ(firstPixel(out, "left", "R"), 1.0f);
    EXPECT_FALSE(out.hasChannel("right", "A"));  // the file has none, so none is added
    EXPECT_EQ(filesThere(), (Names{"in.exr", "out.exr"}));
}

TEST_F(RenderJobTest, givesTheOperatorItsControlsContextsAndInputs) {
    use(pair("in.exr", 1));
    source_.pictures[9] = pair("before.exr", 5);
    controls_ = {{"count", "7"}, {"gain", "200"}, {"mode", "Plain"}};
    int renders = 0;
    ProbeOp::render = [&](ProbeOp& op, ImagePlane& plane) {
        ++renders;
        EXPECT_EQ(op.count, 7);
        EXPECT_EQ(op.gain, 100.0f);  // the operator itself mended it when it changed
        EXPECT_EQ(op.mode, 0);
        EXPECT_EQ(op.outputContext(), (Fresco::Image::OutputContext{10, 1}));
        EXPECT_EQ(Fresco::Image::OutputContext::viewcount(), 3);
        EXPECT_EQ(Fresco::Image::OutputContext::lookup_view("right"), 2);
        EXPECT_EQ(op.inputs(), 4);
        EXPECT_EQ(op.inputNumber(1, 0), 3);
        EXPECT_EQ(op.inputNumber(0, 3), -1);
        EXPECT_EQ(op.input(3), nullptr);
        EXPECT_EQ(op.input(-1), nullptr);
        EXPECT_EQ(op.pixelOf(0, 0, 1, 2, 2), 1.0f);
        EXPECT_EQ(op.pixelOf(0, 1, 1, 2, 2), 5.0f);
        EXPECT_EQ(op.pixelOf(0, 2, 1, 2, 2), 2.0f);
        EXPECT_EQ(plane.box(), (Box{0, 0, width, height}));
        EXPECT_EQ(plane.channels(), (Fresco::Image::ChannelSet{1, 4}));
        fill(plane, 0);
    };
    job().render(10);
    EXPECT_EQ(renders, 1);
    EXPECT_EQ(Fresco::Image::OutputContext::viewcount(), 2);  // the project is gone
}

TEST_F(RenderJobTest, framesBeyondTheEndsAreEmpty) {
    use(pair("in.exr", 1));
    float before = -1;
    Fresco::Image::Info info;
    ProbeOp::render = [&](ProbeOp& op, ImagePlane& plane) {
        before = op.pixelOf(0, 1, 1, 2, 2);
        info = dynamic_cast<const Fresco::Image::Iop*>(op.input(0, 1))->info();
        fill(plane, 0);
    };
    job().render(10);
    EXPECT_EQ(before, 0.0f);
    EXPECT_EQ(info.box, (Box{0, 0, width, height}));

    StillSource held(pair("in.exr", 1), 10, StillSource::Outside::hold);
    RenderJob(held, ControlValues(probeClass), roles_).render(10);
    EXPECT_EQ(before, 1.0f);
    StillSource still(pair("in.exr", 1), 10);
    RenderJob(still, ControlValues(probeClass), roles_).render(10);
    EXPECT_EQ(before, 0.0f);
    EXPECT_THROW(RenderJob(still, ControlValues(probeClass), roles_).render(11), RenderError);
}

TEST_F(RenderJobTest, theMaskIsTheSecondInput) {
    use(pair("in.exr", 1));
    const std::vector<NewView> onlyRight = {flatView("right", {"R"}, 8)};
    writeMultiView(file("mask.exr"), width, height, onlyRight, PixelStorage::half);
    float fetched = 0;
    ProbeOp::render = [&](ProbeOp& op, ImagePlane& plane) {
        fetched = op.pixelOf(1, 0, 1, 0, 0);
        fill(plane, 0);
    };
    RenderJob withMask = job();
    withMask.setMask(std::make_shared<MultiViewFile>(MultiViewFile::open(file("mask.exr"))));
    withMask.render(10);
    EXPECT_EQ(fetched, 8);
}

TEST_F(RenderJobTest, leftAndRightComeFirstWhateverTheFilesOrder) {
    const std::vector<NewView> views = {flatView("centre", {"R"}, 1), flatView("right", {"R"}, 2),
                                        flatView("left", {"R"}, 3)};
    writeMultiView(file("in.exr"), width, height, views, PixelStorage::single);
    use(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))));
    job().render(10);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "R"), 0.5f);
    controls_ = {{"corrected", "3"}};
    job().render(10);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "centre", "R"), 0.5f);
    controls_ = {{"corrected", "upper"}};
    EXPECT_THROW(job().render(10), SettingError);
}

TEST_F(RenderJobTest, chosenChannelsAreReadAndReplaced) {
    use(pair("in.exr", 1, {"R", "beauty.red", "A"}));
    roles_.assign("red=beauty.red");
    job().render(10);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "beauty.red"), 0.5f);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "R"), 1.0f);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "A"), 0.5f);
    roles_.assign("green=beauty.green");
    EXPECT_NE(renderError().find("has no channel 'beauty.green', which was chosen for green; its channels are: "),
              std::string::npos);
}

TEST_F(RenderJobTest, theFirstOfSeveralErrorsIsTold) {
    use(pair("in.exr", 1));
    ProbeOp::render = [](ProbeOp& op, ImagePlane& plane) {
        fill(plane, 0);
        op.error("The cause.");
        op.error("What followed.");
    };
    EXPECT_EQ(renderError(), "The cause.");
    ProbeOp::render = [](ProbeOp&, ImagePlane&) {};
    EXPECT_EQ(renderError(), "'" + file("in.exr").string() + "': HostProbe delivered no pixels for the view 'left'.");
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "R"), 1.0f);
    ProbeOp::render = [](ProbeOp&, ImagePlane&) {
        Cobalt::Base::raise(Cobalt::Base::Exception("The device is gone."));
    };
    EXPECT_EQ(renderError(), "The device is gone.");
}

TEST_F(RenderJobTest, anAbortEndsTheRenderAndLeavesNothing) {
    use(pair("in.exr", 1));
    std::atomic<bool> abort = false;
    std::vector<std::pair<double, std::string>> reports;
    services_.abort = &abort;
    services_.progress = [&](double done, const std::string& message) {
        reports.emplace_back(done, message);
        abort = true;
    };
    ProbeOp::render = [](ProbeOp& op, ImagePlane& plane) {
        EXPECT_FALSE(op.aborted());
        op.progressMessage("Working");
        op.progressFraction(0.25, 1);  // an inner operator's
        op.progressFraction(0.5, 0);
        EXPECT_TRUE(op.aborted());
        op.error("An aborted operator may complain.");
        fill(plane, 0.5f);
    };
    EXPECT_THROW(job().render(10, file("out.exr")), RenderInterrupted);
    EXPECT_EQ(reports, (std::vector<std::pair<double, std::string>>{{0.5, "Working"}}));
    EXPECT_EQ(filesThere(), Names{"in.exr"});
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "R"), 1.0f);
}

TEST_F(RenderJobTest, theOutputIsCheckedBeforeTheWork) {
    use(pair("in.exr", 1));
    ProbeOp::render = [](ProbeOp&, ImagePlane&) { ADD_FAILURE() << "rendered in vain"; };
    const auto errorFor = [&](const fs::path& output) { return fileErrorOf([&] { job().render(10, output); }); };
    fs::create_directory(file("folder"));
    fs::create_symlink("../in.exr", file("folder/link.exr"));
    fs::create_hard_link(file("in.exr"), file("hard.exr"));
    const std::string was = bytesOfFile(file("in.exr"));
    for (const fs::path& same : {file("in.exr"), file("folder/../in.exr"), file("folder/link.exr"), file("hard.exr")}) {
        EXPECT_NE(errorFor(same).find("it is the picture that is read"), std::string::npos) << same;
    }
    EXPECT_NE(errorFor(file("none/out.exr")).find("there is no folder"), std::string::npos);
    EXPECT_NE(errorFor(file("folder")).find("it is a folder"), std::string::npos);
    EXPECT_EQ(bytesOfFile(file("in.exr")), was);
    EXPECT_EQ(filesThere(), (Names{"folder", "hard.exr", "in.exr"}));
}

TEST_F(RenderJobTest, picturesWithoutAPairAreRefused) {
    const std::string name = "'" + file("in.exr").string() + "'";
    const std::vector<NewView> one = {flatView("left", {"R"}, 1)};
    writeMultiView(file("in.exr"), width, height, one, PixelStorage::single);
    use(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))));
    EXPECT_EQ(renderError(), name + " has only one view, 'left'; a left and a right view are needed.");

    for (const auto& [w, h] : {std::pair{1, 9}, std::pair{9, 1}, std::pair{1, 1}}) {
        Imf::Header header(w, h);
        Imf::addMultiView(header, {"left", "right"});
        writeRaw(file("in.exr"), {randomPart(header, {{"R", Imf::HALF}, {"right.R", Imf::HALF}}, 1)});
        use(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))));
        EXPECT_EQ(renderError(), name + ": the view 'left' is " + std::to_string(w) + " by " + std::to_string(h) +
                                     " pixels; at least 2 by 2 are needed.");
    }
}

TEST_F(RenderJobTest, viewsOfDifferentSizeAreRefusedButCroppedOnesAreNot) {
    const auto part = [](const std::string& view, const Imath::Box2i& data) {
        Imf::Header header(Imath::Box2i({0, 0}, {19, 9}), data);
        header.setName(view);
        header.setView(view);
        header.setType("scanlineimage");
        return randomPart(header, {{"R", Imf::HALF}}, 1);
    };
    const auto open = [&](const Imath::Box2i& left, const Imath::Box2i& right) {
        writeRaw(file("in.exr"), {part("left", left), part("right", right)});
        use(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))));
    };
    open({{0, 0}, {19, 9}}, {{0, 0}, {15, 7}});
    EXPECT_NE(renderError().find("the views 'left' (20 by 10 pixels) and 'right' (16 by 8 pixels) differ in size"),
              std::string::npos);
    open({{0, 0}, {19, 9}}, {{3, 2}, {15, 7}});
    job().render(10);
    EXPECT_EQ(firstPixel(*source_.pictures[10], "left", "R"), 0.5f);
}

}  // namespace
}  // namespace ViewTint::Host::Testing
