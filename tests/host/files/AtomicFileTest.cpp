#include "host/files/AtomicFile.h"

#include <unistd.h>

#include "host/files/MultiViewFile.h"
#include "tests/host/files/RawExr.h"

namespace ViewTint::Host::Testing {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class AtomicFileTest : public FolderTest {};

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

}  // namespace
}  // namespace ViewTint::Host::Testing
