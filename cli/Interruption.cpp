#include "cli/Interruption.h"

#include <signal.h>
#include <unistd.h>

#include <string_view>

#include "cli/CommandContext.h"
#include "host/files/AtomicFile.h"

namespace ViewTint::Cli {

namespace {

std::atomic<bool> flag = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");
bool onTerminal = false;

/// The first signal asks the work to end, the second doesn't wait for it.
extern "C" void interrupt(int) {
    if (!flag.exchange(true)) return;
    Host::removeUnfinishedFiles();
    constexpr std::string_view words = "\nviewtint: ended at once; unfinished files were taken back.\n";
    const std::size_t skipped = onTerminal ? 0 : 1;  // a progress bar may stand on the terminal's line
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, words.data() + skipped, words.size() - skipped);
    ::_exit(exitInterrupted);
}

}  // namespace

void catchInterrupts() {
    onTerminal = isatty(STDERR_FILENO) == 1;
    struct sigaction action {};  // without SA_RESTART: a call that waits comes back
    action.sa_handler = interrupt;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&action.sa_mask, signal);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        const bool outlivesTerminal = signal == SIGHUP && ::sigaction(signal, nullptr, &before) == 0 &&
                                      before.sa_handler == SIG_IGN;  // under nohup
        if (!outlivesTerminal) ::sigaction(signal, &action, nullptr);
    }
    // A parent may have handed them down blocked.
    pthread_sigmask(SIG_UNBLOCK, &action.sa_mask, nullptr);
}

void failWritesBeyondLimit() {
    ::signal(SIGXFSZ, SIG_IGN);
}

void goOnWithoutReader() {
    ::signal(SIGPIPE, SIG_IGN);
}

const std::atomic<bool>& interruptFlag() {
    return flag;
}

void checkpoint() {
    if (flag.load(std::memory_order_relaxed)) throw Interrupted();
}

}  // namespace ViewTint::Cli
