#include "cli/farmCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/FarmOptions.h"
#include "cli/Interruption.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "cli/ProgressBar.h"
#include "host/farm/FarmError.h"
#include "host/farm/JobScript.h"
#include "host/farm/Slurm.h"
#include "host/graph/BuildIdentity.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "host/sequence/FrameCheck.h"

namespace ViewTint::Cli {

namespace {

using Host::FrameCheck;
using Host::Submission;
namespace Slurm = Host::Slurm;

std::string counted(std::size_t number, const std::string& thing) {
    return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
}

// ---- what the scheduler knows of a submission -------------------------------------------------------------------

struct TaskOfJob {
    const Submission::Job* job;
    Slurm::Task task;

    bool renders() const { return !job->chunks.empty(); }
    std::string frames() const { return job->chunks.at(static_cast<std::size_t>(task.index)); }
};

std::vector<TaskOfJob> tasksOf(const Submission& submission) {
    std::vector<TaskOfJob> found;
    if (submission.jobs.empty()) return found;
    for (const Slurm::Task& task : Slurm::tasks())
        for (const Submission::Job& job : submission.jobs)
            if (task.job == job.id && (job.chunks.empty() || (task.index >= 0 && task.index < std::ssize(job.chunks))))
                found.push_back({&job, task});
    return found;
}

bool isInQueue(const TaskOfJob& one) {
    return one.task.waits() || one.task.runs();
}

/// Forgets jobs that have ended.
void keepQueued(Submission& submission) {
    std::set<long> queued;
    for (const TaskOfJob& one : tasksOf(submission))
        if (isInQueue(one)) queued.insert(one.job->id);
    std::erase_if(submission.jobs, [&](const Submission::Job& job) { return !queued.contains(job.id); });
}

// ---- handing in --------------------------------------------------------------------------------------------------

/// The chunks of each array: the cluster limits their number.
std::vector<std::span<const std::string>> arraysOf(std::span<const std::string> chunks) {
    const auto largest = static_cast<std::size_t>(Slurm::largestArray());
    std::vector<std::span<const std::string>> arrays;
    for (std::size_t begin = 0; begin < chunks.size(); begin += largest)
        arrays.push_back(chunks.subspan(begin, std::min(largest, chunks.size() - begin)));
    return arrays;
}

int printScripts(const Submission& submission, const std::vector<std::string>& chunks) {
    std::size_t before = 0;
    std::vector<std::string> jobs;
    for (const auto array : arraysOf(chunks)) {
        jobs.push_back(fmt::format("JOB{}", jobs.size() + 1));
        put(stdout, fmt::format("# --- JOB{}, for sbatch\n{}\n", jobs.size(),
                                renderScript(submission, array, before, chunks.size())));
        before += array.size();
    }
    put(stdout, fmt::format("# --- for sbatch when {} known\n{}", jobs.size() == 1 ? "JOB1 is" : "these jobs are",
                            verifyScript(submission, jobs)));
    return exitFine;
}

/// Submits all jobs or none. Those that were handed in are added to the submission.
void submitAll(Submission& submission, const std::vector<std::string>& chunks) {
    std::vector<Submission::Job> handedIn;
    try {
        std::size_t before = 0;
        std::vector<std::string> waitedFor;
        for (const Submission::Job& job : submission.jobs)
            if (!job.chunks.empty()) waitedFor.push_back(std::to_string(job.id));
        for (const auto array : arraysOf(chunks)) {
            checkpoint();
            const long id = Slurm::submit(renderScript(submission, array, before, chunks.size()));
            handedIn.push_back({id, {array.begin(), array.end()}});
            waitedFor.push_back(std::to_string(id));
            before += array.size();
        }
        checkpoint();
        handedIn.push_back({Slurm::submit(verifyScript(submission, waitedFor))});
        submission.jobs.insert(submission.jobs.end(), handedIn.begin(), handedIn.end());
        submission.save();
    } catch (...) {
        for (const Submission::Job& job : handedIn) {
            try {
                Slurm::cancel(job.id);
            } catch (const Host::FarmError& error) {
                complain(fmt::format("job {} was submitted and can't be taken back: {}", job.id, error.what()));
            }
        }
        throw;
    }
}

/// `added`: those that render, and last the one that verifies; none where nothing was to be done.
void tellHandedIn(const Submission& submission, std::span<const Submission::Job> added, std::size_t chunks,
                  std::size_t frames, bool json) {
    std::vector<Json> numbers;
    std::vector<std::string> texts;
    for (const Submission::Job& job : added)
        if (!job.chunks.empty()) {
            numbers.push_back(Json::integer(job.id));
            texts.push_back(std::to_string(job.id));
        }
    if (json) {
        std::vector<std::pair<std::string, Json>> members{{"jobs", Json::array(numbers)}};
        if (!added.empty()) members.emplace_back("verify_job", Json::integer(added.back().id));
        members.emplace_back("chunks", Json::integer(static_cast<long long>(chunks)));
        members.emplace_back("frames", Json::integer(static_cast<long long>(frames)));
        members.emplace_back("logs", Json::text(submission.logFolder().string()));
        print("{}\n", Json::object(members).str());
    } else if (added.empty()) {
        print("{}: nothing to retry\n", submission.output);
    } else {
        // Named in full: one of the values is of fmt's, which has a print, too.
        Cli::print(
            "job{} {}: {} in {}; job {} verifies them\nlogs: {}\nTo see how far it is: viewtint farm status {}\n",
            texts.size() == 1 ? "" : "s", fmt::join(texts, ", "), counted(frames, "frame"), counted(chunks, "task"),
            added.back().id, submission.logFolder().string(), Host::shellWord(submission.output));
    }
}

/// To be called with the submission locked.
int handIn(Submission submission, const std::vector<std::string>& chunks, std::size_t frames,
           const FarmOptions& options) {
    const std::size_t earlier = submission.jobs.size();
    try {
        submission.makeFolders();  // for the jobs' logs
        submitAll(submission, chunks);
    } catch (...) {
        std::error_code ignored;
        if (!Submission::exists(submission.pattern())) std::filesystem::remove_all(submission.farmFolder(), ignored);
        throw;
    }
    tellHandedIn(submission, std::span(submission.jobs).subspan(earlier), chunks.size(), frames, options.json);
    return exitFine;
}

int submit(FarmOptions& options) {
    Submission submission = options.submission(FarmOptions::Purpose::render);
    const auto chunks = Host::chunksOf(submission.frames, submission.chunk);
    if (options.dryRun) return printScripts(submission, chunks);
    const Submission::Lock lock(submission.pattern());
    if (Submission::exists(submission.pattern())) {
        Submission earlier = Submission::load(submission.pattern(), Submission::Use::submit);
        keepQueued(earlier);
        for (const Submission::Job& job : earlier.jobs)
            if (!job.chunks.empty())
                complain(fmt::format("job {} renders '{}' already; {}", job.id, submission.output,
                                     earlier.record == submission.record
                                         ? "what it has finished isn't rendered again"
                                         : "its controls or its version differ: end it with scancel, or its frames "
                                           "will come between these"));
        submission.jobs = earlier.jobs;
    }
    const std::size_t frames = submission.frames.size();
    return handIn(std::move(submission), chunks, frames, options);
}

int printChunks(FarmOptions& options) {
    Submission submission = options.submission(FarmOptions::Purpose::render);
    if (options.threads > 0)
        submission.words.insert(submission.words.end(), {"--threads", std::to_string(options.threads)});
    for (const std::string& chunk : Host::chunksOf(submission.frames, submission.chunk))
        put(stdout, Host::shellLine(renderWords(submission, chunk)) + "\n");
    return exitFine;
}

// ---- looking -----------------------------------------------------------------------------------------------------

/// As it was submitted, or as the command line tells it.
Submission submissionOf(FarmOptions& options, FarmOptions::Purpose purpose = FarmOptions::Purpose::look) {
    const Host::FramePattern frames = options.framesPattern();
    const auto use = purpose == FarmOptions::Purpose::render ? Submission::Use::submit : Submission::Use::look;
    if (!options.tellsShot()) return Submission::load(frames, use);
    Submission submission = options.submission(purpose);
    if (Submission::exists(frames)) submission.jobs = Submission::load(frames, use).jobs;
    return submission;
}

std::vector<FrameCheck> check(const Submission& submission, bool quiet) {
    // Off a terminal there would be one line, which tells nothing.
    const bool shown = !quiet && isatty(STDERR_FILENO) == 1;
    ProgressBar progress(shown ? ProgressBar::Style::automatic : ProgressBar::Style::off);
    try {
        auto checks = checkFrames(
            submission.pattern(), submission.frames, submission.record,
            [&](double done) { progress.show(done, "verify"); }, &interruptFlag());
        progress.clear();
        return checks;
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    }
}

/// A line for each reason why frames aren't fine; those that are missing are in the summary.
void complainOf(const std::vector<FrameCheck>& checks) {
    std::map<std::string, std::vector<int>> framesByReason;
    for (const FrameCheck& one : checks)
        if (one.state != FrameCheck::State::fine && one.state != FrameCheck::State::missing)
            framesByReason[one.detail].push_back(one.frame);
    for (const auto& [reason, frames] : framesByReason)
        complain(fmt::format("frame{} {}: {}", frames.size() == 1 ? "" : "s", Host::formatFrames(frames), reason));
}

int verify(FarmOptions& options) {
    using State = FrameCheck::State;
    struct Kind {
        State state;
        const char* key;
        const char* words;
    };
    constexpr Kind kinds[] = {{State::missing, "missing", "missing"},
                              {State::damaged, "damaged", "damaged"},
                              {State::otherVersion, "other_version", "made by another version"},
                              {State::otherControls, "other_controls", "made with other controls"}};
    const Submission submission = submissionOf(options);
    const auto checks = check(submission, options.json);
    std::map<State, std::vector<int>> frames;
    for (const FrameCheck& one : checks)
        frames[one.state].push_back(one.frame);
    const bool allFine = frames[State::fine].size() == checks.size();
    if (options.json) {
        const auto list = [](const std::vector<int>& numbers) {
            std::vector<Json> items;
            for (const int number : numbers)
                items.push_back(Json::integer(number));
            return Json::array(items);
        };
        std::vector<std::pair<std::string, Json>> members{
            {"frames", Json::integer(static_cast<long long>(checks.size()))},
            {"fine", Json::integer(static_cast<long long>(frames[State::fine].size()))}};
        for (const Kind& kind : kinds)
            members.emplace_back(kind.key, list(frames[kind.state]));
        print("{}\n", Json::object(members).str());
        return allFine ? exitFine : exitFailed;
    }
    complainOf(checks);
    std::string summary = fmt::format("{}: {} fine", counted(checks.size(), "frame"), frames[State::fine].size());
    for (const Kind& kind : kinds)
        if (!frames[kind.state].empty())
            summary += fmt::format(", {} {} ({})", frames[kind.state].size(), kind.words,
                                   Host::formatFrames(frames[kind.state]));
    print("{}\n", summary);
    if (!allFine && Submission::exists(submission.pattern()))
        print("To render these again: viewtint farm retry {}\n", Host::shellWord(submission.output));
    return allFine ? exitFine : exitFailed;
}

/// How many tasks of the jobs that render are in each state, and what is worth a line of its own.
struct Standing {
    std::size_t waiting = 0, running = 0, failed = 0, ended = 0;
    std::vector<std::string> lines;

    Standing(const Submission& submission, const std::vector<TaskOfJob>& tasks) {
        std::size_t all = 0;
        for (const Submission::Job& job : submission.jobs)
            all += job.chunks.size();
        for (const TaskOfJob& one : tasks) {
            const Slurm::Task& task = one.task;
            if (!one.renders()) {
                const char* state = task.waits() ? "waits for the others" : task.runs() ? "runs" : "has ended";
                lines.push_back(fmt::format("job {}, which verifies, {}", task.job, state));
                continue;
            }
            waiting += task.waits();
            running += task.runs();
            failed += task.failed();
            if (task.runs()) lines.push_back(fmt::format("frames {} run on {}", one.frames(), task.reason));
            if (task.failed())
                lines.push_back(
                    fmt::format("frames {} ended with {}; see {}", one.frames(), task.state,
                                (submission.logFolder() / fmt::format("{}_{}.log", task.job, task.index)).string()));
        }
        ended = all - waiting - running;
    }
};

int status(FarmOptions& options) {
    const Submission submission = submissionOf(options);
    const Host::FramePattern pattern = submission.pattern();
    std::size_t there = 0;
    for (const int frame : submission.frames)
        there += std::filesystem::exists(pattern.path(frame));
    std::vector<TaskOfJob> tasks;
    try {
        tasks = tasksOf(submission);
    } catch (const Host::FarmError& error) {
        complain(fmt::format("what the jobs do isn't known: {}", error.what()));
    }
    const Standing standing(submission, tasks);
    if (options.json) {
        const auto number = [](std::size_t value) { return Json::integer(static_cast<long long>(value)); };
        std::vector<Json> jobs;
        for (const Submission::Job& job : submission.jobs)
            jobs.push_back(Json::integer(job.id));
        print("{}\n", Json::object({{"output", Json::text(submission.output)},
                                    {"frames", number(submission.frames.size())},
                                    {"there", number(there)},
                                    {"tasks", Json::object({{"waiting", number(standing.waiting)},
                                                            {"running", number(standing.running)},
                                                            {"ended", number(standing.ended)},
                                                            {"failed", number(standing.failed)}})},
                                    {"jobs", Json::array(jobs)}})
                          .str());
        return exitFine;
    }
    print("{}: {} of {} there\n", printable(submission.output), there, counted(submission.frames.size(), "frame"));
    print("tasks: {} waiting, {} running, {} ended, {} of them failed\n", standing.waiting, standing.running,
          standing.ended, standing.failed);
    for (const std::string& line : standing.lines)
        print("{}\n", line);
    return exitFine;
}

bool isFine(const FrameCheck& one) {
    return one.state == FrameCheck::State::fine;
}

int tellNothingToRetry(const Submission& submission, bool json) {
    tellHandedIn(submission, {}, 0, 0, json);
    return exitFine;
}

int retry(FarmOptions& options) {
    Submission submission = submissionOf(options, FarmOptions::Purpose::render);
    if (submission.record.version != Host::programVersion())
        throw Host::FarmError(
            fmt::format("'{}' was submitted with {}, and this is {}, whose frames may differ; use that one, or submit "
                        "the shot again.",
                        submission.output, submission.record.version, Host::programVersion()));
    options.replaceIn(submission);
    const auto checks = check(submission, options.json);
    if (std::ranges::all_of(checks, &isFine)) return tellNothingToRetry(submission, options.json);
    std::optional<Submission::Lock> lock;
    if (!options.dryRun) lock.emplace(submission.pattern());
    if (Submission::exists(submission.pattern()))
        submission.jobs = Submission::load(submission.pattern(), Submission::Use::submit).jobs;
    std::set<int> underWay;
    for (const TaskOfJob& one : tasksOf(submission))
        if (one.renders() && isInQueue(one))
            for (const int frame : Host::parseFrames(one.frames()))
                underWay.insert(frame);
    std::vector<int> wanted;
    std::size_t waitedFor = 0;
    for (const FrameCheck& one : checks) {
        if (isFine(one)) continue;
        underWay.contains(one.frame) ? void(++waitedFor) : wanted.push_back(one.frame);
    }
    if (waitedFor > 0)
        complain(fmt::format("{} in the queue still; left to the tasks there",
                             waitedFor == 1 ? "1 frame is" : fmt::format("{} frames are", waitedFor)));
    if (wanted.empty()) return tellNothingToRetry(submission, options.json);
    const auto chunks = Host::chunksOf(wanted, submission.chunk);
    if (options.dryRun) return printScripts(submission, chunks);
    keepQueued(submission);
    return handIn(std::move(submission), chunks, wanted.size(), options);
}

}  // namespace

void addFarmCommand(CLI::App& app, CommandContext& context) {
    CLI::App* farm = app.add_subcommand("farm", "Renders a sequence by the tasks of a Slurm cluster");
    farm->require_subcommand(1);
    using Names = FarmOptions::Names;
    struct Verb {
        const char* name;
        const char* description;
        Names names;
        bool hasChunks, submits, hasJson;
        int (*work)(FarmOptions&);
    };
    const Verb verbs[] = {
        {"submit", "Submits a job array that renders, and a job that verifies", Names::shot, true, true, true, submit},
        {"status", "Tells how far the jobs are", Names::shotOrFrames, false, false, true, status},
        {"verify", "Checks that every frame is there, whole, and made with the same controls and version",
         Names::shotOrFrames, false, false, true, verify},
        {"retry", "Submits what isn't fine again", Names::shotOrFrames, true, true, true, retry},
        {"chunks", "Prints a command line for each chunk, for any other engine", Names::shot, true, false, false,
         printChunks},
    };
    for (const Verb& verb : verbs) {
        CLI::App* command = farm->add_subcommand(verb.name, verb.description);
        const auto options = std::make_shared<FarmOptions>();
        options->addTo(*command, verb.names);
        if (verb.hasChunks) options->addChunkTo(*command);
        if (verb.submits) options->addSlurmTo(*command);
        if (verb.hasJson) options->addJsonTo(*command);
        command->callback([&context, options, work = verb.work] {
            context.explainUnknown = [options](const std::string& word) {
                options->render.controls.explainUnknown(word);
            };
            context.work = [options, &context, work] {
                options->threads = context.threads;
                try {
                    return work(*options);
                } catch (const Host::SettingError& error) {
                    throw CallError(error.what());
                } catch (const std::invalid_argument& error) {
                    throw CallError(error.what());
                }
            };
        });
    }
}

}  // namespace ViewTint::Cli
