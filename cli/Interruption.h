#pragma once

#include <atomic>
#include <exception>

namespace ViewTint::Cli {

/// The user has pressed Ctrl-C. Thrown by work that looks now and then; files under way are taken back.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

/// From now on the first SIGINT, SIGTERM or SIGHUP sets the flag below instead of ending the program; a second one
/// takes back the files under way and ends it at once.
void catchInterrupts();

/// From now on a file that would outgrow the limit of its size is an error of writing and doesn't end the program.
void failWritesBeyondLimit();

/// From now on printing to a pipe whose reader has gone doesn't end the program.
void goOnWithoutReader();

/// True once the user wants to stop. Lock-free; may be read from any thread.
const std::atomic<bool>& interruptFlag();

/// Throws Interrupted once the flag is set. Cheap enough for every row of a picture.
void checkpoint();

}  // namespace ViewTint::Cli
