#include "host/files/AtomicFile.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "host/files/MultiViewFile.h"
#include "host/files/Picture.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class AtomicFileTest : public FolderTest {};

/// Lets no file grow beyond a size, as a full disk would, for the life of the object.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &old_);
        const rlimit limit{bytes, old_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }

private:
    rlimit old_{};
    void (*oldHandler_)(int) = SIG_DFL;
};

TEST_F(AtomicFileTest, theTargetChangesOnlyWithTheCommit) {
    writeBytes(file("target"), "old");
    {
        AtomicFile unfinished(file("target"));
        writeBytes(unfinished.temporaryPath(), "half of it");
        EXPECT_EQ(unfinished.temporaryPath().parent_path(), fs::canonical(folder_));
        EXPECT_EQ(bytesOfFile(file("target")), "old");
    }
    EXPECT_EQ(filesThere(), Names{"target"});
    AtomicFile finished(file("target"));
    writeBytes(finished.temporaryPath(), "new");
    finished.commit();
    EXPECT_EQ(bytesOfFile(file("target")), "new");
    EXPECT_EQ(filesThere(), Names{"target"});
}

TEST_F(AtomicFileTest, anExceptionLeavesNothing) {
    try {
        const AtomicFile file(this->file("target"));
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(filesThere(), Names{});
}

TEST_F(AtomicFileTest, interruptionRemovesAllUnfinishedFiles) {
    AtomicFile first(file("a"));
    AtomicFile second(file("b"));
    EXPECT_EQ(filesThere().size(), 2u);
    removeUnfinishedFiles();
    EXPECT_EQ(filesThere(), Names{});
    EXPECT_THROW(first.commit(), FileError);
}

TEST_F(AtomicFileTest, aLinkIsWrittenThrough) {
    fs::create_directory(file("elsewhere"));
    writeBytes(file("elsewhere/real"), "old");
    fs::create_symlink("elsewhere/real", file("link"));
    AtomicFile atomic(file("link"));
    writeBytes(atomic.temporaryPath(), "new");
    atomic.commit();
    EXPECT_TRUE(fs::is_symlink(file("link")));
    EXPECT_EQ(bytesOfFile(file("elsewhere/real")), "new");
}

TEST_F(AtomicFileTest, targetsThatCannotBeWrittenAreNamed) {
    const auto errorFor = [](const fs::path& target) { return fileErrorOf([&] { checkWritable(target); }); };
    EXPECT_EQ(errorFor(file("no/such/out.exr")), "Cannot write '" + file("no/such/out.exr").string() +
                                                     "': there is no folder '" + fs::canonical(folder_).string() +
                                                     "/no/such'; create it first.");
    writeBytes(file("plain"), "");
    EXPECT_NE(errorFor(file("plain/out.exr")).find("there is no folder"), std::string::npos);
    EXPECT_NE(errorFor(folder_).find("it is a folder"), std::string::npos);
    EXPECT_NE(errorFor("/dev/null").find("it is not an ordinary file"), std::string::npos);
    EXPECT_EQ(filesThere(), Names{"plain"});
    checkWritable(file("fine.exr"));
    EXPECT_EQ(filesThere(), Names{"plain"});
}

TEST_F(AtomicFileTest, protectedFoldersAndFilesAreNamed) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may write everywhere";
    writeBytes(file("protected"), "kept");
    fs::permissions(file("protected"), fs::perms::owner_read);
    EXPECT_NE(fileErrorOf([&] { checkWritable(file("protected")); }).find("write-protected"), std::string::npos);
    fs::permissions(folder_, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_NE(fileErrorOf([&] { checkWritable(file("new")); }).find("takes no new file"), std::string::npos);
    fs::permissions(folder_, fs::perms::owner_all);
}

TEST_F(AtomicFileTest, aFullDiskLeavesTheOldFileAndNothingElse) {
    const RawPart part = randomPart(Imf::Header(64, 64), {{"R", Imf::FLOAT}}, 1);
    writeRaw(file("in.exr"), {part});
    auto picture = MultiViewFile::open(file("in.exr"));
    const std::vector<NewView> views = {{"left", {{"R", std::vector<float>(64 * 64, 0.5f)}}}};
    const std::vector<std::uint8_t> pixels(256 * 256 * 3, 200);
    for (const bool replaced : {false, true}) {
        if (replaced) picture.replace("main", "R", {0, 0, 64, 64}, views[0].planes[0].pixels.data(), 64);
        picture.save(file("whole.exr"));
        const auto size = fs::file_size(file("whole.exr"));
        for (rlim_t limit = 0; limit < size; limit += size / 20) {
            writeBytes(file("out.exr"), "old");
            const FileSizeLimit full(limit);
            EXPECT_THROW(picture.save(file("out.exr")), FileError) << limit << " of " << size;
            EXPECT_EQ(bytesOfFile(file("out.exr")), "old");
            EXPECT_EQ(filesThere(), (Names{"in.exr", "out.exr", "whole.exr"}));
        }
    }
    const FileSizeLimit full(100);
    EXPECT_THROW(writeMultiView(file("new.exr"), 64, 64, views, PixelStorage::single), FileError);
    EXPECT_THROW(writeRgb8(file("new.png"), 256, 256, pixels), FileError);
    EXPECT_EQ(filesThere(), (Names{"in.exr", "out.exr", "whole.exr"}));
}

}  // namespace
}  // namespace ViewTint::Host::Testing
