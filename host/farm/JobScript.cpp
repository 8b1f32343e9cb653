#include "host/farm/JobScript.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace ViewTint::Host {

namespace {

/// Slurm replaces what follows a per cent sign in the names of logs.
std::string logName(const Submission& submission, const std::string& name) {
    std::string folder;
    for (const char c : submission.logFolder().string())
        folder += c == '%' ? "%%" : std::string(1, c);
    return folder + "/" + name;
}

/// Lines that both kinds of script begin with.
std::string heading(const Submission& submission, const std::string& kind, const std::string& log,
                    const std::vector<std::string>& more) {
    std::vector<std::string> options{
        fmt::format("--job-name=viewtint-{}:{}", kind,
                    std::filesystem::path(submission.pattern().canonicalText()).filename().string()),
        "--chdir=" + submission.folder.string(),
        "--output=" + logName(submission, log),
        "--open-mode=append",  // a task that is requeued writes on
        "--requeue",
        "--nodes=1",
        "--ntasks=1",
    };
    options.insert(options.end(), submission.slurmOptions.begin(), submission.slurmOptions.end());
    options.insert(options.end(), more.begin(), more.end());
    std::string text = "#!/bin/bash\n";
    for (const std::string& option : options)
        text += "#SBATCH " + shellWord(option) + "\n";
    return text;
}

/// The allocation in the terms of a render. A job that named no memory is not told any: it takes its share.
constexpr const char* allocation = R"(
threads=${SLURM_CPUS_PER_TASK:-${SLURM_CPUS_ON_NODE:-1}}
megabytes=${SLURM_MEM_PER_NODE:-$((${SLURM_MEM_PER_CPU:-0} * ${SLURM_CPUS_ON_NODE:-1}))}
if ((megabytes == 0)); then
    megabytes=$(($(getconf _PHYS_PAGES) / 1024 * $(getconf PAGESIZE) / 1024 * threads / $(getconf _NPROCESSORS_ONLN)))
fi
)";

/// A call of the program for a submission's shot.
std::vector<std::string> shotWords(const Submission& submission, const std::vector<std::string>& command,
                                   const std::vector<std::string>& frames) {
    std::vector<std::string> words{submission.program};
    words.insert(words.end(), command.begin(), command.end());
    words.push_back(submission.words.front());
    words.insert(words.end(), {"-o", submission.output});
    words.insert(words.end(), frames.begin(), frames.end());
    words.insert(words.end(), submission.words.begin() + 1, submission.words.end());
    return words;
}

}  // namespace

std::string shellWord(const std::string& word) {
    if (std::ranges::any_of(word, [](unsigned char c) { return std::iscntrl(c); }))
        throw std::invalid_argument(
            fmt::format("'{}' has a control character, which no job's script can hold; choose another name.", word));
    const bool plain = !word.empty() && std::ranges::all_of(word, [](unsigned char c) {
        return std::isalnum(c) || std::string_view("-_=+./,:@%").find(static_cast<char>(c)) != std::string_view::npos;
    });
    if (plain) return word;
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

std::string shellLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + shellWord(word);
    return line;
}

void checkWords(const Submission& submission) {
    for (const auto& words : {std::vector{submission.program, submission.folder.string(), submission.output},
                              submission.words, submission.slurmOptions})
        shellLine(words);
}

std::vector<std::string> optionWords(const std::string& option, const std::string& value) {
    if (value.starts_with('-')) return {option + "=" + value};
    return {option, value};
}

std::vector<std::string> renderWords(const Submission& submission, const std::string& frames) {
    std::vector<std::string> words = shotWords(submission, {"render"}, optionWords("--frames", frames));
    words.push_back("--skip-verified");
    return words;
}

std::string renderScript(const Submission& submission, std::span<const std::string> chunks, std::size_t before,
                         std::size_t all) {
    std::string text = heading(submission, "render", "%A_%a.log", {fmt::format("--array=0-{}", chunks.size() - 1)});
    text +=
        fmt::format("\n# Task i renders frames[i]; its place among the {} chunks of the shot is offset + i.\n", all);
    text += fmt::format("offset={}\nframes=(\n    {}\n)\n", before, fmt::join(chunks, "\n    "));
    text += allocation;
    text += fmt::format(
        "\necho \"chunk $((offset + SLURM_ARRAY_TASK_ID + 1)) of {}: frames ${{frames[SLURM_ARRAY_TASK_ID]}}, "
        "threads: $threads, memory: $megabytes MB, node: $SLURMD_NODENAME, restarts: ${{SLURM_RESTART_COUNT:-0}}\"\n",
        all);
    // A shell's own word: the task's frames, which may begin with a minus sign.
    constexpr const char* place = "FRAMES";
    std::string line;
    for (const std::string& word : shotWords(submission, {"render"}, {place}))
        line += (line.empty() ? "exec " : " ") +
                (word == place ? "--frames=\"${frames[SLURM_ARRAY_TASK_ID]}\" --skip-verified" : shellWord(word));
    // A tenth is left to the program itself.
    text += line + " --threads=\"$threads\" --memory=\"$((megabytes * 9 / 10))MB\"\n";
    return text;
}

std::string verifyScript(const Submission& submission, std::span<const std::string> jobs) {
    std::string text =
        heading(submission, "verify", "%j_verify.log", {fmt::format("--dependency=afterany:{}", fmt::join(jobs, ":"))});
    text += "\nthreads=${SLURM_CPUS_PER_TASK:-${SLURM_CPUS_ON_NODE:-1}}\n";
    text +=
        "exec " +
        shellLine(shotWords(submission, {"farm", "verify"}, optionWords("--frames", formatFrames(submission.frames)))) +
        " --threads=\"$threads\"\n";
    return text;
}

}  // namespace ViewTint::Host
