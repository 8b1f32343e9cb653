#include "cli/Interruption.h"

#include <csignal>

#include <signal.h>

namespace ViewTint::Cli {

namespace {

std::atomic<bool> flag = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

extern "C" void setFlag(int) {
    flag = true;
}

}  // namespace

void catchInterrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, setFlag);
        sigaddset(&signals, signal);
    }
    // A parent may have handed them down blocked.
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void goOnWithoutReader() {
    std::signal(SIGPIPE, SIG_IGN);
}

const std::atomic<bool>& interruptFlag() {
    return flag;
}

void checkpoint() {
    if (flag.load(std::memory_order_relaxed)) throw Interrupted();
}

}  // namespace ViewTint::Cli
