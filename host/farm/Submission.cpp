#include "host/farm/Submission.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <span>
#include <stdexcept>
#include <system_error>

#include "base/Failure.h"
#include "base/Text.h"
#include "host/farm/FarmError.h"
#include "host/farm/JobScript.h"
#include "host/farm/SubmissionText.h"
#include "host/files/AtomicFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;

namespace {

using Cobalt::Base::systemText;

constexpr const char* fileName = "submission.json";

/// The program and its folder out of a record are run as jobs of whoever submits them: it has to be his own.
void requireTrusted(const fs::path& path, const struct ::stat& status, Submission::Use use) {
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw FarmError(fmt::format(
            "'{}' says what the jobs run, and others may write to it. If you trust what it holds: chmod go-w {}",
            path.string(), shellWord(path.string())));
    if (use == Submission::Use::submit && status.st_uid != ::geteuid() && status.st_uid != 0)
        throw FarmError(fmt::format(
            "'{}' belongs to another user ({}), and only they can submit this again; give the frames another name.",
            path.string(), status.st_uid));
}

void requireTrustedFolder(const fs::path& folder, Submission::Use use) {
    struct ::stat status {};
    if (::stat(folder.c_str(), &status) != 0)
        throw FarmError(fmt::format("Cannot look at the folder '{}' ({}).", folder.string(), systemText(errno)));
    requireTrusted(folder, status, use);
}

/// A file's text, from a file that is no link, no device and no larger than a submission.
std::string readTrusted(const fs::path& path, Submission::Use use) {
    requireTrustedFolder(path.parent_path(), use);
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct ::stat status {};
    if (!file || ::fstat(file.value(), &status) != 0)
        throw FarmError(fmt::format("Cannot read '{}' ({}).", path.string(), systemText(errno)));
    if (!S_ISREG(status.st_mode)) throw FarmError(fmt::format("'{}' is no file.", path.string()));
    requireTrusted(path, status, use);
    std::string text;
    std::array<char, 65536> buffer;
    for (ssize_t count;
         text.size() <= longestSubmission && (count = ::read(file.value(), buffer.data(), buffer.size()));)
        if (count > 0)
            text.append(buffer.data(), static_cast<std::size_t>(count));
        else if (errno != EINTR)
            throw FarmError(fmt::format("Cannot read '{}' ({}).", path.string(), systemText(errno)));
    return text;
}

/// Others may not write to what is made here, whatever the user's mask says.
void keepToOwner(const fs::path& path) {
    fs::permissions(path, fs::perms::group_write | fs::perms::others_write, fs::perm_options::remove);
}

void makeFolder(const fs::path& folder) {
    std::error_code failed;
    if (fs::create_directories(folder, failed)) keepToOwner(folder);
    if (failed) throw FarmError(fmt::format("Cannot make the folder '{}' ({}).", folder.string(), failed.message()));
}

}  // namespace

FramePattern Submission::pattern() const {
    return *FramePattern::parse(output);
}

fs::path Submission::farmFolderOf(const FramePattern& output) {
    return fs::absolute(output.canonicalText() + ".farm");
}

bool Submission::exists(const FramePattern& output) {
    std::error_code ignored;
    return fs::exists(farmFolderOf(output) / fileName, ignored);
}

Submission Submission::load(const FramePattern& output, Use use) {
    const fs::path path = farmFolderOf(output) / fileName;
    if (!exists(output))
        throw FarmError(
            fmt::format("'{}' was not submitted: there is no '{}'. Give the name of the frames as they were submitted.",
                        output.text(), path.string()));
    const std::string text = readTrusted(path, use);
    try {
        Submission submission = submissionFromText(text);
        std::error_code failed;
        if (!fs::equivalent(submission.farmFolder(), path.parent_path(), failed))
            throw FarmError(
                fmt::format("'{}' tells of '{}', not of these frames: their folder was moved or copied. Submit "
                            "the shot again; frames that are fine are kept.",
                            path.string(), submission.output));
        return submission;
    } catch (const std::invalid_argument& error) {
        throw FarmError(
            fmt::format("Cannot use '{}': {}. Remove it and submit the shot again; frames that are fine are kept.",
                        path.string(), Cobalt::Base::withoutFullStop(error.what())));
    }
}

void Submission::makeFolders() const {
    makeFolder(logFolder());
}

void Submission::save() const {
    const fs::path path = farmFolder() / fileName;
    std::string text;
    try {
        text = textOf(*this);
    } catch (const std::invalid_argument& error) {
        throw FarmError(
            fmt::format("'{}' can't be written so that it could be read again: {}.", path.string(), error.what()));
    }
    AtomicFile file(path);
    std::ofstream stream(file.temporaryPath());
    stream << text;
    stream.close();
    if (!stream) throw FarmError(fmt::format("Cannot write '{}'; is the disk full?", path.string()));
    keepToOwner(file.temporaryPath());
    file.commit();
}

Submission::Lock::Lock(const FramePattern& output) {
    const fs::path folder = farmFolderOf(output);
    makeFolder(folder);
    requireTrustedFolder(folder, Use::submit);
    file_ = Descriptor(::open((folder / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!file_ || ::flock(file_.value(), LOCK_EX) != 0)
        throw FarmError(fmt::format("The folder '{}' can't be locked ({}).", folder.string(), systemText(errno)));
}

std::vector<std::string> chunksOf(const std::vector<int>& frames, int size) {
    std::vector<std::string> chunks;
    std::span<const int> left = frames;
    while (!left.empty()) {
        const std::size_t count = std::min(left.size(), static_cast<std::size_t>(size));
        chunks.push_back(formatFrames(left.first(count)));
        left = left.subspan(count);
    }
    return chunks;
}

}  // namespace ViewTint::Host
