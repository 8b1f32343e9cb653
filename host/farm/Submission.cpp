#include "host/farm/Submission.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <span>
#include <system_error>

#include "host/farm/FarmError.h"
#include "host/files/AtomicFile.h"

namespace ViewTint::Host {

namespace fs = std::filesystem;
using boost::property_tree::ptree;

namespace {

constexpr const char* fileName = "submission.json";
constexpr int formatVersion = 1;

ptree listOf(const std::vector<std::string>& texts) {
    ptree list;
    for (const std::string& text : texts)
        list.push_back({"", ptree(text)});
    return list;
}

std::vector<std::string> textsIn(const ptree& list) {
    std::vector<std::string> texts;
    for (const auto& [name, item] : list)
        texts.push_back(item.data());
    return texts;
}

void makeFolder(const fs::path& folder) {
    std::error_code failed;
    fs::create_directories(folder, failed);
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

Submission Submission::load(const FramePattern& output) {
    const fs::path path = farmFolderOf(output) / fileName;
    if (!exists(output))
        throw FarmError(
            fmt::format("'{}' was not submitted: there is no '{}'. Give the name of the frames as they were submitted.",
                        output.text(), path.string()));
    try {
        ptree tree;
        boost::property_tree::read_json(path.string(), tree);
        if (tree.get<int>("format") != formatVersion)
            throw FarmError(fmt::format("'{}' is of another version of this program.", path.string()));
        Submission submission;
        submission.record = {tree.get<std::string>("version"), tree.get<std::string>("controls"),
                             tree.get<std::string>("options")};
        submission.program = tree.get<std::string>("program");
        submission.folder = tree.get<std::string>("folder");
        submission.output = tree.get<std::string>("output");
        submission.words = textsIn(tree.get_child("render"));
        submission.frames = parseFrames(tree.get<std::string>("frames"));
        submission.chunk = tree.get<int>("chunk");
        submission.slurmOptions = textsIn(tree.get_child("slurm"));
        for (const auto& [name, job] : tree.get_child("jobs"))
            submission.jobs.push_back({job.get<long>("id"), textsIn(job.get_child("chunks"))});
        return submission;
    } catch (const boost::property_tree::ptree_error& error) {
        throw FarmError(fmt::format("Cannot read '{}': {}. Submit the shot again; frames that are fine are kept.",
                                    path.string(), error.what()));
    }
}

void Submission::makeFolders() const {
    makeFolder(logFolder());
}

void Submission::save() const {
    ptree tree, list;
    tree.put("format", formatVersion);
    tree.put("version", record.version);
    tree.put("controls", record.controls);
    tree.put("options", record.options);
    tree.put("program", program);
    tree.put("folder", folder.string());
    tree.put("output", output);
    tree.put_child("render", listOf(words));
    tree.put("frames", formatFrames(frames));
    tree.put("chunk", chunk);
    tree.put_child("slurm", listOf(slurmOptions));
    for (const Job& job : jobs) {
        ptree item;
        item.put("id", job.id);
        item.put_child("chunks", listOf(job.chunks));
        list.push_back({"", item});
    }
    tree.put_child("jobs", list);
    AtomicFile file(farmFolder() / fileName);
    std::ofstream stream(file.temporaryPath());
    boost::property_tree::write_json(stream, tree);
    stream.close();
    if (!stream)
        throw FarmError(fmt::format("Cannot write '{}'; is the disk full?", (farmFolder() / fileName).string()));
    file.commit();
}

Submission::Lock::Lock(const FramePattern& output) {
    const fs::path folder = farmFolderOf(output);
    makeFolder(folder);
    descriptor_ = ::open((folder / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor_ < 0 || ::flock(descriptor_, LOCK_EX) != 0) {
        const std::string reason = std::generic_category().message(errno);
        if (descriptor_ >= 0) ::close(descriptor_);
        throw FarmError(fmt::format("The folder '{}' can't be locked ({}).", folder.string(), reason));
    }
}

Submission::Lock::~Lock() {
    ::close(descriptor_);
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
