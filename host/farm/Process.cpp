#include "host/farm/Process.h"

#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <thread>

#include "base/Failure.h"
#include "host/farm/FarmError.h"

namespace ViewTint::Host {

namespace {

/// A file without a name: of any length, so that neither side waits for the other as with pipes.
class Scratch {
public:
    Scratch() : file_(std::tmpfile(), &std::fclose) {
        if (!file_)
            throw FarmError(fmt::format("No temporary file can be made ({}).", Cobalt::Base::systemText(errno)));
    }
    int descriptor() const { return ::fileno(file_.get()); }
    void write(const std::string& text) {
        std::fwrite(text.data(), 1, text.size(), file_.get());
        std::fflush(file_.get());
        ::lseek(descriptor(), 0, SEEK_SET);
    }
    std::string read() {
        std::rewind(file_.get());
        std::string text;
        std::array<char, 4096> buffer;
        for (std::size_t count; (count = std::fread(buffer.data(), 1, buffer.size(), file_.get())) > 0;)
            text.append(buffer.data(), count);
        return text;
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

std::vector<char*> environmentWithout(const std::set<std::string>& names) {
    std::vector<char*> variables;
    for (char** variable = environ; *variable; ++variable) {
        const std::string_view text = *variable;
        if (!names.contains(std::string(text.substr(0, text.find('='))))) variables.push_back(*variable);
    }
    variables.push_back(nullptr);
    return variables;
}

/// Its status, as waitpid tells it.
int waitFor(pid_t child, std::chrono::seconds longest) {
    constexpr std::chrono::milliseconds pause{2};
    const auto end = std::chrono::steady_clock::now() + longest;
    int status = 0;
    for (bool killed = false;; std::this_thread::sleep_for(pause)) {
        const pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child || (ended < 0 && errno != EINTR)) return status;
        if (killed || std::chrono::steady_clock::now() < end) continue;
        ::kill(child, SIGKILL);
        killed = true;
    }
}

}  // namespace

std::optional<ProcessOutcome> runProcess(const std::vector<std::string>& words, const std::string& input,
                                         const std::set<std::string>& withoutVariables, std::chrono::seconds longest) {
    Scratch in, out, err;
    in.write(input);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.descriptor(), STDERR_FILENO);
    // What this program ignores (cli/Interruption.h) isn't for others to ignore.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    sigaddset(&usual, SIGXFSZ);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    const int failure = ::posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(),
                                       environmentWithout(withoutVariables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure == ENOENT) return std::nullopt;
    if (failure != 0)
        throw FarmError(fmt::format("'{}' can't be started ({}).", words.front(), Cobalt::Base::systemText(failure)));
    const int status = waitFor(child, longest);
    return ProcessOutcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.read(), err.read()};
}

}  // namespace ViewTint::Host
