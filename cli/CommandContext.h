#pragma once

#include <functional>

namespace ViewTint::Cli {

/// How the program ends.
enum ExitCode : int { exitFine = 0, exitFailed = 1, exitWrongCall = 2, exitInterrupted = 130 };

/// What the subcommands and the main program share.
struct CommandContext {
    int threads = 0;  ///< 0: as many as the machine has
    /// The work of the subcommand on the command line, set while that is parsed and run afterwards. Returns an exit
    /// code; may throw CallError, Host::FileError, Interrupted or any other std::exception.
    std::function<int()> work;
};

}  // namespace ViewTint::Cli
