#pragma once

#include <functional>
#include <string>

namespace ViewTint::Cli {

/// How the program ends.
enum ExitCode : int { exitFine = 0, exitFailed = 1, exitWrongCall = 2, exitInterrupted = 130 };

/// What the subcommands and the main program share.
struct CommandContext {
    int threads = 0;  ///< 0: as many as the machine has
    /// The work of the subcommand on the command line, set while that is parsed and run afterwards. Returns an exit
    /// code; may throw CallError, Host::FileError, Interrupted or any other std::exception.
    std::function<int()> work;
    /// For subcommands that can say more about a word of the command line that no option took: throws CallError if so.
    std::function<void(const std::string& word)> explainUnknown;
};

}  // namespace ViewTint::Cli
