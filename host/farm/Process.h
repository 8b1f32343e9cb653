#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ViewTint::Host {

/// How another program ended and what it said.
struct ProcessOutcome {
    int exitCode = -1;  ///< -1 where a signal ended it
    std::string output, errors;
};

/// Runs a program of the PATH with `input` on its standard input and waits for its end. It sees this program's
/// environment without some variables. One that takes longer than `longest` is killed. Null where there is no such
/// program; throws FarmError where it can't be started.
std::optional<ProcessOutcome> runProcess(const std::vector<std::string>& words, const std::string& input = "",
                                         const std::set<std::string>& withoutVariables = {},
                                         std::chrono::seconds longest = std::chrono::hours(1));

}  // namespace ViewTint::Host
