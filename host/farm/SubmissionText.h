#pragma once

#include <string>

#include "host/farm/Submission.h"

namespace ViewTint::Host {

/// A submission as JSON. Throws std::invalid_argument with half a sentence where submissionFromText would.
std::string textOf(const Submission& submission);

/// Takes nothing on trust: all members have to be there and in range. Throws std::invalid_argument with half a sentence
/// that says what is wrong.
Submission submissionFromText(const std::string& text);

/// So many bytes are read at most.
inline constexpr std::size_t longestSubmission = std::size_t{16} << 20;

}  // namespace ViewTint::Host
