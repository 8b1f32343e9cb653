#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/farm/Submission.h"

namespace ViewTint::Host {

/// A word as a shell reads it back. Throws std::invalid_argument for one with control characters: scripts, those who
/// read them and the lines of Slurm's options don't agree on what they are.
std::string shellWord(const std::string& word);
std::string shellLine(const std::vector<std::string>& words);

/// Throws std::invalid_argument where something of a submission can't be a word of a script.
void checkWords(const Submission& submission);

/// An option and its value, as one word where the value could be taken for an option.
std::vector<std::string> optionWords(const std::string& option, const std::string& value);

/// The words of the command line that renders some frames of a submission, without those that only a task knows.
std::vector<std::string> renderWords(const Submission& submission, const std::string& frames);

/// The batch script of a job array, a task for each of `chunks`. Of `all` chunks `before` are those of earlier arrays.
std::string renderScript(const Submission& submission, std::span<const std::string> chunks, std::size_t before,
                         std::size_t all);

/// The batch script of the job that verifies all frames when `jobs` have ended, well or not.
std::string verifyScript(const Submission& submission, std::span<const std::string> jobs);

}  // namespace ViewTint::Host
