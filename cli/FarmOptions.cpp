#include "cli/FarmOptions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <optional>
#include <ranges>
#include <regex>
#include <set>
#include <stdexcept>

#include "cli/CallError.h"
#include "cli/Printing.h"
#include "cli/Shot.h"
#include "host/farm/JobScript.h"
#include "host/files/PictureLimits.h"
#include "host/graph/NeighbourRequests.h"
#include "host/sequence/SequenceRender.h"

namespace ViewTint::Cli {

namespace fs = std::filesystem;

namespace {

constexpr const char* farmGroup = "Farm";

std::string absolute(const std::string& path) {
    return fs::absolute(path).lexically_normal().string();
}

/// What a render is told by this option, with files' whole names: jobs may run elsewhere.
std::vector<std::string> wordsOf(const CLI::Option& option) {
    const std::string name = option.get_single_name();
    const std::vector<std::string>& values = option.results();
    if (option.get_expected_min() == 0) return {"--" + name};  // a flag
    if (option.get_delimiter() != '\0')
        return Host::optionWords("--" + name,
                                 fmt::format("{}", fmt::join(values, std::string(1, option.get_delimiter()))));
    std::vector<std::string> words;
    for (const std::string& value : values) {
        const bool isFile =
            name == "mask" || name == "cache" || (name == "disparity" && value != "estimate" && value != "file");
        std::ranges::copy(Host::optionWords("--" + name, isFile ? absolute(value) : value), std::back_inserter(words));
    }
    return words;
}

/// FILE and the options of a render that are alike for all its frames.
std::vector<std::string> wordsOf(const CLI::App& command, const std::string& input) {
    std::vector<std::string> words{absolute(input)};
    for (const CLI::Option* option :
         command.get_options([](const CLI::Option* option) { return option->count() > 0; })) {
        if (option->get_positional() || option->get_group() == farmGroup) continue;
        const std::string name = option->get_single_name();
        if (name == "output" || name == "frames") continue;
        std::ranges::copy(wordsOf(*option), std::back_inserter(words));
    }
    return words;
}

/// Megabytes of a size as Slurm takes it: `4096`, `4096M`, `4G`; 0 stands for all of a node's memory.
std::optional<std::size_t> megabytesOf(const std::string& text) {
    std::smatch match;
    if (!std::regex_match(text, match, std::regex("([0-9]{1,12})([KMGT]?)B?", std::regex::icase))) return std::nullopt;
    const std::size_t number = std::stoull(match[1]);
    switch (match[2].str().empty() ? 'M' : std::toupper(match[2].str().front())) {
        case 'K':
            return number >> 10;
        case 'G':
            return number << 10;
        case 'T':
            return number << 20;
        default:
            return number;
    }
}

const CLI::Validator slurmMemory(
    [](std::string& text) {
        if (!megabytesOf(text)) return fmt::format("'{}' is no size; write for example 4G or 4096M", text);
        if (text.back() == 'B' || text.back() == 'b') text.pop_back();
        return std::string();
    },
    "");

}  // namespace

void FarmOptions::addTo(CLI::App& command, Names names) {
    command_ = &command;
    addShotOptions(command, render);
    CLI::Option* file = command.get_option("FILE");
    if (names == Names::shot) {
        file->description("The sequence, as shot.####.exr, shot.@@@.exr or shot.%04d.exr");
        return;
    }
    file->description("The frames' names as they were submitted, out.####.exr; or, with -o, the sequence");
    command.get_option("--output")->required(false);
}

void FarmOptions::addChunkTo(CLI::App& command) {
    command.add_option("--chunk", chunk_, "So many frames are one task")
        ->check(CLI::Range(1, 1'000'000))
        ->type_name("N")
        ->capture_default_str()
        ->group(farmGroup);
}

void FarmOptions::addSlurmTo(CLI::App& command) {
    command.add_option("--partition", partition_, "Slurm's partition, or several with commas")
        ->check(notEmpty)
        ->type_name("NAME")
        ->group(farmGroup);
    command.add_option("--cpus-per-task", cpusPerTask_, "Processors of each task; it renders with as many threads")
        ->check(CLI::Range(1, 1024))
        ->type_name("N")
        ->group(farmGroup);
    command
        .add_option("--mem", memory_, "Memory of each task, for example 4G; frames are read ahead as far as it goes")
        ->transform(slurmMemory)
        ->type_name("SIZE")
        ->group(farmGroup);
    command.add_option("--time", time_, "How long a task may take, for example 30 (minutes) or 2:00:00")
        ->check(notEmpty)
        ->type_name("TIME")
        ->group(farmGroup);
    command
        .add_option("--sbatch", otherOptions_,
                    "Another option for sbatch, for example --sbatch=--account=film; may be repeated")
        ->check(notEmpty)
        ->type_name("OPTION")
        ->allow_extra_args(false)
        ->group(farmGroup);
    command.add_flag("--dry-run", dryRun, "Prints the batch scripts and submits nothing")->group(farmGroup);
}

void FarmOptions::addJsonTo(CLI::App& command) {
    command.add_flag("--json", json, "Prints JSON")->group(farmGroup);
}

Host::FramePattern FarmOptions::framesPattern() const {
    const std::string& name = tellsShot() ? render.output : render.input;
    try {
        std::optional<Host::FramePattern> pattern;
        for (const std::string& view : render.views) {
            pattern = Host::FramePattern::parse(Host::nameForView(name, view).value_or(name));
            if (pattern && Host::Submission::exists(*pattern)) break;
        }
        if (pattern) return *pattern;
    } catch (const std::invalid_argument& error) {
        throw CallError(error.what());
    }
    throw CallError(fmt::format("'{}' has no place for the frame number; write for example out.####.exr.", name));
}

std::vector<std::string> FarmOptions::slurmOptions() const {
    std::vector<std::string> options;
    if (!partition_.empty()) options.push_back("--partition=" + partition_);
    if (cpusPerTask_ > 0) options.push_back(fmt::format("--cpus-per-task={}", cpusPerTask_));
    if (!memory_.empty()) options.push_back("--mem=" + memory_);
    if (!time_.empty()) options.push_back("--time=" + time_);
    options.insert(options.end(), otherOptions_.begin(), otherOptions_.end());
    return options;
}

void FarmOptions::warnOfSmallMemory(std::size_t needed) const {
    if (memory_.empty()) return;
    const std::size_t wanted = (needed >> 20) * 10 / 9, given = *megabytesOf(memory_);
    if (given > 0 && given < wanted)
        complain(
            fmt::format("--mem {}: a frame of this shot with its neighbours takes about {} MB; tasks may be killed "
                        "for want of memory.",
                        memory_, wanted));
}

Host::Submission FarmOptions::submission(Purpose purpose) {
    Host::Submission submission;
    try {
        const std::string name = Host::nameForView(render.input, render.views.front()).value_or(render.input);
        if (!Host::FramePattern::parse(name))
            throw CallError(fmt::format(
                "A farm renders sequences; '{}' is one picture. Write for example shot.####.exr.", render.input));
    } catch (const std::invalid_argument& error) {
        throw CallError(error.what());
    }
    checkMask(render);
    checkRoles(render);
    Shot shot(render);
    submission.frames = shot.frames;
    std::ranges::sort(submission.frames);
    const auto duplicates = std::ranges::unique(submission.frames);
    submission.frames.erase(duplicates.begin(), duplicates.end());
    const Host::ControlValues& controls = render.controls.checked();
    if (purpose == Purpose::render) {
        for (const int frame : submission.frames)
            shot.source.require(frame);
        Host::checkOutput(shot.source, shot.output, submission.frames);
        if (const auto picture = shot.source.headers(submission.frames.front()))
            warnOfSmallMemory(Host::memoryForOneFrame(
                *picture, Host::neighbourRequests(controls, rolesOf(render), shot.views).reach));
    }
    submission.record = Host::RenderRecord::of(controls, recordedOptions(render));
    submission.program = fs::read_symlink("/proc/self/exe").string();
    submission.folder = fs::current_path();
    submission.output = absolute(render.output);
    submission.words = wordsOf(*command_, render.input);
    if (const std::string limits = Host::PictureLimits::current().text(); limits != Host::PictureLimits().text())
        submission.words.insert(submission.words.end(), {"--limits", limits});
    submission.chunk = chunk_;
    submission.slurmOptions = slurmOptions();
    Host::checkWords(submission);
    return submission;
}

void FarmOptions::replaceIn(Host::Submission& submission) const {
    if (command_->count("--chunk") > 0) submission.chunk = chunk_;
    for (const std::string& option : slurmOptions()) {
        const std::string name = option.substr(0, option.find('='));
        std::erase_if(submission.slurmOptions,
                      [&](const std::string& old) { return old.substr(0, old.find('=')) == name; });
        submission.slurmOptions.push_back(option);
    }
}

}  // namespace ViewTint::Cli
