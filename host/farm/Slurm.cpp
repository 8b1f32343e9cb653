#include "host/farm/Slurm.h"

#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <optional>
#include <regex>
#include <set>
#include <sstream>

#include "host/farm/FarmError.h"
#include "host/farm/Process.h"

namespace ViewTint::Host::Slurm {

namespace {

std::string oneLine(std::string text) {
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char& c : text)
        if (c == '\n') c = ' ';
    return text;
}

/// What a command printed. Throws FarmError.
std::string run(const std::vector<std::string>& words, const std::string& input = "",
                const std::set<std::string>& withoutVariables = {}) {
    const auto outcome = runProcess(words, input, withoutVariables);
    if (!outcome)
        throw FarmError(
            fmt::format("There is no command '{}' here: jobs are submitted where Slurm's commands are. 'viewtint farm "
                        "chunks' prints the command lines for another engine.",
                        words.front()));
    if (outcome->exitCode != 0)
        throw FarmError(fmt::format("{}: {}", words.front(), oneLine(outcome->errors + outcome->output)));
    return outcome->output;
}

/// Variables that would override what a script asks for.
std::set<std::string> overriding(const std::string& script) {
    std::set<std::string> names{"SBATCH_ARRAY_INX", "SBATCH_JOB_NAME", "SBATCH_OPEN_MODE", "SBATCH_NO_REQUEUE"};
    if (script.find("#SBATCH --partition=") != script.npos) names.insert("SBATCH_PARTITION");
    if (script.find("#SBATCH --time=") != script.npos) names.insert("SBATCH_TIMELIMIT");
    if (script.find("#SBATCH --mem=") != script.npos)
        names.insert({"SBATCH_MEM_PER_NODE", "SBATCH_MEM_PER_CPU", "SBATCH_MEM_PER_GPU"});
    return names;
}

std::optional<long> number(const std::string& text) {
    long value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failure == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

}  // namespace

int largestArray() {
    constexpr int usual = 1001;
    // Where there is no cluster it tries for a minute to find one.
    const auto outcome = runProcess({"scontrol", "show", "config"}, "", {}, std::chrono::seconds(5));
    std::smatch match;
    if (!outcome || !std::regex_search(outcome->output, match, std::regex("MaxArraySize\\s*=\\s*([0-9]{1,9})")))
        return usual;
    const int size = std::stoi(match[1]);
    if (size == 0) throw FarmError("This cluster takes no job arrays (MaxArraySize is 0).");
    return size;
}

long submit(const std::string& script) {
    const std::string answer = run({"sbatch", "--parsable"}, script, overriding(script));
    // The job's number, and on several clusters that of the cluster after a semicolon.
    if (const auto job = number(oneLine(answer.substr(0, answer.find(';'))))) return *job;
    throw FarmError(fmt::format("sbatch: the answer '{}' is no job's number.", oneLine(answer)));
}

void cancel(long job) {
    run({"scancel", std::to_string(job)});
}

bool Task::waits() const {
    return state == "PENDING" || state == "REQUEUED" || state == "REQUEUE_HOLD" || state == "REQUEUE_FED" ||
           state == "SPECIAL_EXIT";
}

bool Task::runs() const {
    return state == "RUNNING" || state == "CONFIGURING" || state == "COMPLETING" || state == "SUSPENDED" ||
           state == "STOPPED" || state == "RESIZING" || state == "SIGNALING" || state == "STAGE_OUT";
}

bool Task::failed() const {
    return !waits() && !runs() && state != "COMPLETED";
}

std::vector<Task> tasks() {
    std::istringstream lines(run({"squeue", "--noheader", "--array", "--states=all", "--user",
                                  std::to_string(::getuid()), "--format=%F|%K|%T|%R"}));
    std::vector<Task> tasks;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string job, index, state, reason;
        std::getline(fields, job, '|');
        std::getline(fields, index, '|');
        std::getline(fields, state, '|');
        std::getline(fields, reason);
        if (const auto id = number(job))
            tasks.push_back({*id, static_cast<int>(number(index).value_or(-1)), state, reason});
    }
    return tasks;
}

}  // namespace ViewTint::Host::Slurm
