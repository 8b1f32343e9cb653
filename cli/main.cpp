#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/task_arena.h>
#include <CLI/CLI.hpp>

#include "base/Failure.h"
#include "cli/CallError.h"
#include "cli/CommandContext.h"
#include "cli/Interruption.h"
#include "cli/Printing.h"
#include "cli/compareCommand.h"
#include "cli/controlsCommand.h"
#include "cli/farmCommand.h"
#include "cli/infoCommand.h"
#include "cli/kernelsCommand.h"
#include "cli/packCommand.h"
#include "cli/parallaxCommand.h"
#include "cli/renderCommand.h"
#include "compute/Threader.h"
#include "host/files/MultiViewFile.h"
#include "host/files/Picture.h"
#include "host/files/PictureLimits.h"
#include "host/graph/BuildIdentity.h"

namespace ViewTint::Cli {

namespace {

/// The innermost command on the command line, and its name after those around it, each with a space before it.
struct ChosenCommand {
    const CLI::App* app;
    std::string name;

    explicit ChosenCommand(const CLI::App& outermost) : app(&outermost) {
        while (!app->get_subcommands().empty()) {
            app = app->get_subcommands().front();
            name += " " + app->get_name();
        }
    }
};

/// What is wrong with the call, as a sentence without its full stop.
std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    std::vector<std::string> commands;
    for (const CLI::App* command : ChosenCommand(app).app->get_subcommands([](const CLI::App*) { return true; }))
        commands.push_back(command->get_name());
    if (!commands.empty() && error.get_name() == "RequiredError") {
        const auto unknown = app.remaining(true);
        return fmt::format("{}; the commands are {}",
                           unknown.empty() ? "a command is missing" : fmt::format("unknown command '{}'", unknown[0]),
                           fmt::join(commands, ", "));
    }
    std::string sentence = error.what();
    while (!sentence.empty() && (sentence.back() == '\n' || sentence.back() == '.'))
        sentence.pop_back();
    return sentence;
}

/// Reads the command line. Returns an exit code where nothing is left to do.
std::optional<int> parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& wanted) {  // --help, --version
        std::ostringstream text;
        const int code = app.exit(wanted, text);
        put(stdout, text.str());
        return code;
    } catch (const CLI::ParseError& error) {
        complain(fmt::format("{}; see 'viewtint{} --help'.", explain(app, error), ChosenCommand(app).name));
        return exitWrongCall;
    }
}

void refuseUnknownWords(const CLI::App& app, const CommandContext& context) {
    const std::vector<std::string> words = app.remaining(true);
    if (words.empty()) return;
    if (context.explainUnknown) context.explainUnknown(words.front());
    throw CallError(
        fmt::format("'{}' was not expected; see 'viewtint{} --help'.", words.front(), ChosenCommand(app).name));
}

int runWork(const CommandContext& context) {
    const int wanted = context.threads > 0 ? context.threads : tbb::info::default_concurrency();
    const int threads = Vellum::Parallel::securedThreads(wanted, /*poolsBeside=*/1);
    if (threads < wanted) {
        warn(fmt::format(
            "only {} of {} threads can be had here: a limit of processes or of memory (ulimit -u, -v) allows no more",
            threads, wanted));
        ::setenv("OPENIMAGEIO_THREADS", "1", 1);  // its pool, too, starts with as many as the machine has
    }
    const tbb::global_control threadLimit(tbb::global_control::max_allowed_parallelism, std::size_t(threads));
    Host::setPictureThreads(threads < wanted ? 1 : threads);
    Host::setFileThreads(threads > 1 ? threads : 0);
    if (threads > 1) return context.work();
    // oneTBB would start a worker for one thread, too, where it isn't told that there is no room for any.
    return tbb::task_arena(1).execute(context.work);
}

int run(int argc, char** argv) {
    CLI::App app("Corrects colour differences between the two views of a stereo picture.", "viewtint");
    app.set_version_flag("--version", "viewtint " + Host::programVersion());
    app.require_subcommand(1);
    app.fallthrough();
    app.allow_extras();
    CommandContext context;
    app.add_option("--threads", context.threads, "How many threads to use (default: as many as the machine has)")
        ->check(CLI::Range(1, 1024))
        ->type_name("N");
    app.add_option_function<std::string>(
           "--limits",
           [](const std::string& text) {
               try {
                   Host::PictureLimits::current().parse(text);
               } catch (const std::invalid_argument& error) {
                   throw CLI::ValidationError("--limits", error.what());
               }
           },
           "Limits of pictures that are read; what is beyond them is refused before it takes memory")
        ->type_name("NAME=NUMBER,...")
        ->default_str(Host::PictureLimits().text());
    addRenderCommand(app, context);
    addInfoCommand(app, context);
    addPackCommand(app, context);
    addParallaxCommand(app, context);
    addFarmCommand(app, context);
    addCompareCommand(app, context);
    addControlsCommand(app, context);
    addKernelsCommand(app, context);

    if (const auto ended = parse(app, argc, argv)) return *ended;
    catchInterrupts();
    try {
        refuseUnknownWords(app, context);
        return runWork(context);
    } catch (const Interrupted&) {
        complain("interrupted; unfinished files were taken back.");
        return exitInterrupted;
    } catch (const CallError& error) {
        complain(error.what());
        return exitWrongCall;
    } catch (...) {
        complain(Cobalt::Base::currentFailure());
    }
    return interruptFlag() ? exitInterrupted : exitFailed;
}

/// Files that are opened later mustn't get the numbers of the standard streams, or what is printed goes into them. A
/// standard output that was closed stays one that can't be written to.
void reserveStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(stream, F_GETFD) < 0 && errno == EBADF &&
            ::open("/dev/null", stream == STDERR_FILENO ? O_WRONLY : O_RDONLY) != stream)
            ::_exit(exitFailed);
}

}  // namespace

}  // namespace ViewTint::Cli

int main(int argc, char** argv) {
    namespace Cli = ViewTint::Cli;
    Cli::reserveStandardStreams();
    Cli::failWritesBeyondLimit();
    int exitCode = Cli::exitFailed;
    try {
        exitCode = Cli::run(argc, argv);
    } catch (...) {  // while the command line is read
        Cli::complain(Cobalt::Base::currentFailure());
    }
    return Cli::finishOutput(exitCode);
}
