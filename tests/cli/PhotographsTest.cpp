// The command on real light: photographs with a known truth.
#include <cmath>
#include <functional>

#include "CommandTest.h"
#include "host/files/Picture.h"

namespace ViewTint::Cli {
namespace {

using Plane = std::vector<float>;

class Photographs : public CommandTest {
protected:
    static fs::path shared(const std::string& name) { return fs::path(VIEWTINT_SHARED_DATA) / name; }

    static Plane planeOf(const fs::path& path, const std::string& view, const std::string& channel) {
        const auto picture = Host::MultiViewFile::open(path);
        Plane plane(std::size_t(picture.width()) * std::size_t(picture.height()));
        picture.read(view, channel, {0, 0, picture.width(), picture.height()}, plane.data(), picture.width());
        return plane;
    }
    /// The piecewise sRGB curve, limited to what a screen shows.
    static double code(double linear) {
        const double v = std::min(1.0, std::max(0.0, linear));
        return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    }
    /// Of a view in `path` against the truth, in sRGB codes, over the pixels where counts(pixel).
    static double psnr(const fs::path& path, const std::string& view, const Host::Picture& truth,
                       const std::function<bool(std::size_t)>& counts) {
        double sum = 0;
        double values = 0;
        const std::string channels[] = {"R", "G", "B"};
        for (std::size_t c = 0; c < 3; ++c) {
            const Plane plane = planeOf(path, view, channels[c]);
            for (std::size_t i = 0; i < plane.size(); ++i)
                if (counts(i)) sum += std::pow(code(plane[i]) - code(truth.planes[c][i]), 2), ++values;
        }
        return -10 * std::log10(sum / values);
    }
    static bool everywhere(std::size_t) { return true; }
};

TEST_F(Photographs, ALampThatIsOnInOneViewOnlyIsMatchedLocally) {
    const fs::path input = shared("piano_lighting/piano_lighting.exr");
    if (!fs::exists(input)) GTEST_SKIP() << "the photographs are not here: " << input;
    const auto truth = Host::readPicture(shared("piano_lighting/im1.png"), Host::Colourspace::sRGB);
    const Plane occlusion = planeOf(input, "right", "mask_occlusion.alpha");
    const auto visible = [&](std::size_t i) { return occlusion[i] < 0.5f; };
    EXPECT_LT(psnr(input, "right", truth, everywhere), 15);
    const Outcome outcome = run({"render", input, "-o", "out.exr", "--matchWhat", "Right to left"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_GT(psnr(file("out.exr"), "right", truth, everywhere), 26.5);
    EXPECT_GT(psnr(file("out.exr"), "right", truth, visible), 29);
}

TEST_F(Photographs, ABeamSplittersCastIsMatchedBetterLocally) {
    const fs::path left = shared("aloe/aloeL.jpg");
    if (!fs::exists(left)) GTEST_SKIP() << "the photographs are not here: " << left;
    const auto truth = Host::readPicture(left, Host::Colourspace::sRGB);
    ASSERT_EQ(
        run({"pack", "--left", left, "--right", shared("aloe/aloeR.jpg"), "--disparity-left", shared("aloe/aloeGT.png"),
             "-o", "in.exr", "--cast-view", "left", "--cast-gain", "1.3,1,0.8", "--cast-gain-right-edge", "0.8,1,1.3"})
            .exitCode,
        0);
    const auto corrected = [&](const std::string& mode) {
        EXPECT_EQ(run({"render", "in.exr", "-o", "out.exr", "--matchingMode", mode}).exitCode, 0);
        return psnr(file("out.exr"), "left", truth, everywhere);
    };
    const double basic = corrected("Basic");
    EXPECT_GT(corrected("Local Matching"), basic + 3);
}

}  // namespace
}  // namespace ViewTint::Cli
