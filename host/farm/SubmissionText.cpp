#include "host/farm/SubmissionText.h"

#include <fmt/format.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "host/farm/JobScript.h"

namespace ViewTint::Host {

namespace {

using boost::property_tree::ptree;

constexpr int formatVersion = 1;
constexpr int deepest = 8;  // the library reads with a call for each level
constexpr int largestChunk = 1'000'000;
constexpr std::size_t mostFramesOfJobs = 10'000'000;

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument(what);
}

void checkDepth(const std::string& text) {
    int depth = 0;
    bool inText = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inText && c == '\\')
            ++i;
        else if (c == '"')
            inText = !inText;
        else if (!inText && (c == '{' || c == '['))
            ++depth;
        else if (!inText && (c == '}' || c == ']'))
            --depth;
        if (depth > deepest) refuse("its lists are nested too deeply");
    }
}

ptree treeOf(const std::string& text) {
    if (text.size() > longestSubmission) refuse(fmt::format("it is larger than {} MB", longestSubmission >> 20));
    checkDepth(text);
    std::istringstream stream(text);
    ptree tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

const ptree& memberOf(const ptree& tree, const char* name) {
    const auto member = tree.find(name);
    if (member == tree.not_found()) refuse(fmt::format("it has no '{}'", name));
    return member->second;
}

std::string textIn(const ptree& tree, const char* name) {
    const ptree& member = memberOf(tree, name);
    if (!member.empty()) refuse(fmt::format("its '{}' is no text", name));
    return member.data();
}

long numberIn(const ptree& tree, const char* name, long largest) {
    const auto number = memberOf(tree, name).get_value_optional<long>();
    if (!number || *number < 1 || *number > largest)
        refuse(fmt::format("its '{}' is no number from 1 to {}", name, largest));
    return *number;
}

std::vector<std::string> textsIn(const ptree& tree, const char* name) {
    const ptree& list = memberOf(tree, name);
    std::vector<std::string> texts;
    for (const auto& [key, item] : list) {
        if (!key.empty() || !item.empty()) refuse(fmt::format("its '{}' is no list of texts", name));
        texts.push_back(item.data());
    }
    if (!list.data().empty()) refuse(fmt::format("its '{}' is no list", name));
    return texts;
}

std::string absolutePathIn(const ptree& tree, const char* name) {
    std::string path = textIn(tree, name);
    if (!path.starts_with('/')) refuse(fmt::format("its '{}' is no absolute path", name));
    return path;
}

ptree listOf(const std::vector<std::string>& texts) {
    ptree list;
    for (const std::string& text : texts)
        list.push_back({"", ptree(text)});
    return list;
}

}  // namespace

std::string textOf(const Submission& submission) {
    ptree tree, list;
    tree.put("format", formatVersion);
    tree.put("version", submission.record.version);
    tree.put("controls", submission.record.controls);
    tree.put("options", submission.record.options);
    tree.put("program", submission.program);
    tree.put("folder", submission.folder.string());
    tree.put("output", submission.output);
    tree.put_child("render", listOf(submission.words));
    tree.put("frames", formatFrames(submission.frames));
    tree.put("chunk", submission.chunk);
    tree.put_child("slurm", listOf(submission.slurmOptions));
    for (const Submission::Job& job : submission.jobs) {
        ptree item;
        item.put("id", job.id);
        item.put_child("chunks", listOf(job.chunks));
        list.push_back({"", item});
    }
    tree.put_child("jobs", list);
    std::ostringstream stream;
    boost::property_tree::write_json(stream, tree);
    std::string text = stream.str();
    submissionFromText(text);
    return text;
}

Submission submissionFromText(const std::string& text) try {
    const ptree tree = treeOf(text);
    if (textIn(tree, "format") != std::to_string(formatVersion)) refuse("it is of another version of this program");
    Submission submission;
    submission.record = {textIn(tree, "version"), textIn(tree, "controls"), textIn(tree, "options")};
    submission.program = absolutePathIn(tree, "program");
    submission.folder = absolutePathIn(tree, "folder");
    submission.output = absolutePathIn(tree, "output");
    if (!FramePattern::parse(submission.output)) refuse("its 'output' has no place for the frame number");
    submission.words = textsIn(tree, "render");
    if (submission.words.empty()) refuse("its 'render' names no pictures");
    submission.frames = parseFrames(textIn(tree, "frames"));
    submission.chunk = static_cast<int>(numberIn(tree, "chunk", largestChunk));
    submission.slurmOptions = textsIn(tree, "slurm");
    std::size_t frames = 0;
    for (const auto& [key, job] : memberOf(tree, "jobs")) {
        submission.jobs.push_back({numberIn(job, "id", std::numeric_limits<long>::max()), textsIn(job, "chunks")});
        for (const std::string& chunk : submission.jobs.back().chunks)
            if ((frames += parseFrames(chunk).size()) > mostFramesOfJobs) refuse("its 'jobs' have too many frames");
    }
    checkWords(submission);
    return submission;
} catch (const boost::property_tree::json_parser_error& error) {
    throw std::invalid_argument(fmt::format("{} in line {}", error.message(), error.line()));
}

}  // namespace ViewTint::Host
