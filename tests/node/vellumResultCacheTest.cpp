#include "framework/ResultCache.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "host/files/ImageCacheDirectory.h"
#include "host/files/MultiViewFile.h"
#include "tests/node/NodeTest.h"

namespace ViewTint::Tests {

namespace {

namespace fs = std::filesystem;
namespace ResultCache = Cobalt::Research::ResultCache;
using Host::ImageCacheDirectory;

constexpr std::size_t headerBytes = 8;
constexpr std::size_t oneFile = headerBytes + 6 * 4 * sizeof(float) + ImageCacheDirectory::sealBytes;

/// A render of 6 by 4 pixels; the cache lies in a folder of the test's own.
class Results : public Render {
protected:
    Results() {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        folder = fs::path(testing::TempDir()) / (std::string("viewtint_results_") + test->name());
        fs::remove_all(folder);
    }
    ~Results() override { fs::remove_all(folder); }

    std::size_t files(const std::string& suffix = ".vlm") const {
        std::size_t count = 0;
        for (const auto& entry : fs::directory_iterator(folder))
            count += entry.path().extension() == suffix;
        return count;
    }
    int fetches() const {
        std::size_t count = 0;
        for (const TestSource* source : {&left, &right, &frames[0], &frames[1], &frames[2], &frames[3]})
            count += source->fetched.size();
        return static_cast<int>(count);
    }
    /// Renders RGBA into a fresh plane; returns how many planes were fetched for it.
    int renderAgain() {
        const int before = fetches();
        fresh.emplace(box, false, ChannelSet::fromMask(rgbaMask));
        op.renderStripe(*fresh);
        EXPECT_TRUE(host.errors.empty());
        return fetches() - before;
    }
    void expectRendered() const {
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(*fresh->at(3, 2, c), (std::array{0.4f, 0.3f, 0.2f, 0.5f})[c], 1e-5f);
    }
    fs::path firstFile() const { return fs::directory_iterator(folder)->path(); }

    fs::path folder;
    std::optional<ImagePlane> fresh;
};

}  // namespace

TEST_F(Results, AreReadBackWithoutFetchingAnything) {
    const ImageCacheDirectory cache(folder, 1 << 20);
    EXPECT_EQ(renderAgain(), 8);
    EXPECT_EQ(files(), 4u);
    EXPECT_EQ(files(".part"), 0u);
    EXPECT_EQ(fs::file_size(firstFile()), oneFile);
    host.progress.clear();
    EXPECT_EQ(renderAgain(), 0);
    EXPECT_TRUE(host.progress.empty()) << "no progress is shown";
    expectRendered();
    // A plane with fewer channels is served too, a packed one is rendered.
    ImagePlane red(box, false, {redChannel});
    op.renderStripe(red);
    EXPECT_NEAR(*red.at(0, 0, 0), 0.4f, 1e-5f);
    ImagePlane packed(box, true, ChannelSet::fromMask(rgbaMask));
    const int before = fetches();
    op.renderStripe(packed);
    EXPECT_GT(fetches(), before);
}

TEST_F(Results, MissingOnesAreRenderedAndOnlyTheyAreStored) {
    const ImageCacheDirectory cache(folder, 1 << 20);
    renderAgain();
    const fs::path missing = firstFile();
    fs::remove(missing);
    const auto kept = fs::last_write_time(firstFile());
    EXPECT_EQ(renderAgain(), 8);
    EXPECT_EQ(files(), 4u);
    EXPECT_TRUE(fs::exists(missing));
    EXPECT_GE(fs::last_write_time(firstFile()), kept);
}

TEST_F(Results, WithoutAnArtistTheDiskIsLeftAlone) {
    EXPECT_FALSE(IsGUIActive());
    EXPECT_EQ(renderAgain(), 8);
    EXPECT_EQ(renderAgain(), 8);
    Hash hash;
    EXPECT_FALSE(ResultCache::hasChannels({redChannel}, hash));
    EXPECT_TRUE(ResultCache::storePlane(*fresh, hash).empty());
    EXPECT_FALSE(fs::exists(folder));
    {
        const ImageCacheDirectory cache(folder, 1 << 20);
        EXPECT_TRUE(IsGUIActive());
        EXPECT_TRUE(ResultCache::hasChannels({}, hash));
        EXPECT_EQ(ResultCache::storePlane(*fresh, hash).size(), 4u);
        EXPECT_EQ(ResultCache::storePlane(*fresh, hash).size(), 0u) << "they are there";
    }
    EXPECT_FALSE(IsGUIActive());
}

TEST_F(Results, AFullCacheGivesUpWhatWasNotReadForLongest) {
    const ImageCacheDirectory cache(folder, 9 * oneFile);
    renderAgain();
    ImagePlane plane(box, false, ChannelSet::fromMask(rgbaMask));
    plane.writableBuffer();
    std::memset(plane.buffer().data(), 0, 4 * 24 * sizeof(float));
    for (int number = 0; number < 5; ++number) {
        Hash hash;
        hash.append(number);
        EXPECT_EQ(ResultCache::storePlane(plane, hash).size(), 4u);
        EXPECT_LE(files(), 9u);
        EXPECT_EQ(renderAgain(), 0) << "it was read, so it stays";
    }
    // One that is too large for the whole budget is not kept.
    ImagePlane large({0, 0, 600, 4}, false, {redChannel});
    large.writableBuffer();
    EXPECT_TRUE(ResultCache::storePlane(large, Hash()).empty());
}

TEST_F(Results, AFolderThatFailsIsNoFailureOfTheRender) {
    std::ofstream(folder) << "no folder";
    EXPECT_THROW(ImageCacheDirectory(folder, 1000), Host::FileError);
    fs::remove(folder);
    const ImageCacheDirectory cache(folder, 1 << 20);
    fs::remove_all(folder);  // somebody cleaned up
    EXPECT_EQ(renderAgain(), 8);
    expectRendered();
    fs::create_directory(folder);
    std::ofstream(folder / "notes.txt") << "not ours";
    EXPECT_EQ(renderAgain(), 8);
    EXPECT_EQ(renderAgain(), 0);
    EXPECT_TRUE(fs::exists(folder / "notes.txt"));
}

TEST_F(Results, TwoProcessesShareAFolder) {
    const ImageCacheDirectory cache(folder, 8 * oneFile);
    const auto work = [&] {
        bool right = true;
        for (int turn = 0; turn < 200; ++turn) {
            ImagePlane plane(box, false, ChannelSet::fromMask(rgbaMask));
            plane.writableBuffer();
            Hash hash;
            hash.append(turn % 5);
            const auto loaded = ResultCache::load(plane, hash);
            int component = 0;
            for (const Channel channel : plane.channels()) {
                right =
                    right && (!loaded.contains(channel) || *plane.at(5, 3, component) == static_cast<float>(turn % 5));
                std::fill_n(plane.at(0, 0, component++), 24, static_cast<float>(turn % 5));
            }
            ResultCache::storePlane(plane, hash);
        }
        return right;
    };
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    EXPECT_TRUE(work());
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(files(".part"), 0u);
}

}  // namespace ViewTint::Tests
