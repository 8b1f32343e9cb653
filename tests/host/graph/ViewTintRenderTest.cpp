#include <atomic>
#include <cmath>
#include <random>

#include "host/graph/RenderJob.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

using Names = std::vector<std::string>;

constexpr int width = 40;
constexpr int height = 24;

/// The colour matching node itself, on small pictures.
class ViewTintRenderTest : public FolderTest {
protected:
    static std::vector<float> texture(unsigned seed, float gain, float offset) {
        std::mt19937 random(seed);
        std::vector<float> pixels(width * height);
        for (float& pixel : pixels)
            pixel = gain * (0.2f + 0.6f * static_cast<float>(random() % 1024) / 1024.0f) + offset;
        return pixels;
    }

    static NewView view(const std::string& name, float gain, float offset, const Names& without) {
        const std::vector<float> zero(width * height, 0.0f);
        NewView all{name,
                    {{"R", texture(1, gain, offset)},
                     {"G", texture(2, gain, offset)},
                     {"B", texture(3, gain, offset)},
                     {"A", std::vector<float>(width * height, 0.75f)},
                     {"disparityL.x", zero},
                     {"disparityL.y", zero},
                     {"disparityR.x", zero},
                     {"disparityR.y", zero},
                     {"mask_occlusion.alpha", zero}}};
        std::erase_if(all.planes, [&](const NewView::Plane& plane) {
            return std::ranges::find(without, plane.channel) != without.end();
        });
        return all;
    }

    /// The left view has a cast; apart from that the views agree.
    void writePair(const Names& withoutInLeft = {}, const Names& withoutInRight = {}) const {
        const std::vector<NewView> views = {view("left", 0.6f, 0.1f, withoutInLeft),
                                            view("right", 1.0f, 0.0f, withoutInRight)};
        writeMultiView(file("in.exr"), width, height, views, PixelStorage::single);
    }

    void render(const std::vector<std::pair<std::string, std::string>>& settings = {},
                const RenderServices& services = {}) const {
        StillSource still(std::make_shared<MultiViewFile>(MultiViewFile::open(file("in.exr"))), 1);
        ControlValues controls(viewTintClass);
        controls.set("matchingMode", "Basic");
        for (const auto& [name, value] : settings)
            controls.set(name, value);
        RenderJob(still, std::move(controls), ChannelRoles(), services).render(1, file("out.exr"));
    }
    std::string renderError() const {
        try {
            render();
        } catch (const RenderError& error) {
            EXPECT_EQ(filesThere(), Names{"in.exr"});
            return error.what();
        }
        ADD_FAILURE() << "no RenderError was thrown";
        return "";
    }

    static double meanDifference(const MultiViewFile& picture, const std::string& channel) {
        const Box box{0, 0, width, height};
        std::vector<float> left(width * height), right(width * height);
        picture.read("left", channel, box, left.data(), width);
        picture.read("right", channel, box, right.data(), width);
        double sum = 0;
        for (std::size_t i = 0; i < left.size(); ++i)
            sum += std::abs(left[i] - right[i]);
        return sum / static_cast<double>(left.size());
    }
};

TEST_F(ViewTintRenderTest, theCastGoesAndEverythingElseStays) {
    writePair();
    render();
    const auto was = MultiViewFile::open(file("in.exr"));
    const auto is = MultiViewFile::open(file("out.exr"));
    for (const char* channel : {"R", "G", "B"}) {
        EXPECT_LT(meanDifference(is, channel), 0.35 * meanDifference(was, channel)) << channel;
    }
    const auto before = readRaw(file("in.exr"));
    const auto after = readRaw(file("out.exr"));
    auto attributes = attributesOf(after[0].header);
    const auto addedCount =
        std::erase_if(attributes, [](const auto& attribute) { return attribute.first.starts_with("viewtint"); });
    EXPECT_EQ(addedCount, 3u) << "how it was made";
    EXPECT_EQ(attributesOf(before[0].header), attributes);
    for (const auto& [name, bytes] : before[0].channels) {
        const bool corrected = name == "R" || name == "G" || name == "B";
        EXPECT_EQ(bytes != after[0].channels.at(name), corrected) << name;
    }
}

TEST_F(ViewTintRenderTest, theOtherViewIsCorrectedOnDemand) {
    writePair();
    render({{"matchWhat", "Right to left"}});
    const auto before = readRaw(file("in.exr"));
    const auto after = readRaw(file("out.exr"));
    EXPECT_TRUE(before[0].channels.at("R") == after[0].channels.at("R"));
    EXPECT_FALSE(before[0].channels.at("right.R") == after[0].channels.at("right.R"));
}

TEST_F(ViewTintRenderTest, missingChannelsAreNamedByTheNode) {
    writePair({"disparityR.y"});
    EXPECT_EQ(renderError(), "Input Source missing disparity. Please add an upstream Q_ParallaxField node.");
    writePair({}, {"G"});
    EXPECT_EQ(renderError(), "Input Source missing rgb");
    writePair({"R", "G", "B"});
    EXPECT_EQ(renderError(), "Input Source missing rgb");
    writePair({"mask_occlusion.alpha", "A"}, {"disparityL.x", "mask_occlusion.alpha"});
    render();  // only the corrected view's disparity is needed, occlusion may be absent
}

TEST_F(ViewTintRenderTest, anAbortInTheMiddleLeavesNothing) {
    writePair();
    std::atomic<bool> abort = false;
    int reports = 0;
    RenderServices services;
    services.progress = [&](double, const std::string&) {
        if (++reports == 2) abort = true;
    };
    services.abort = &abort;
    EXPECT_THROW(render({}, services), RenderInterrupted);
    EXPECT_LT(reports, 7);  // the whole render has seven
    EXPECT_EQ(filesThere(), Names{"in.exr"});
}

}  // namespace
}  // namespace ViewTint::Host::Testing
