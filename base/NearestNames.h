#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Cobalt::Base {

/// The text with small letters in place of capitals; only ASCII letters have them here.
std::string lowered(std::string_view text);

/// The three names most like `wanted`, for messages about a misspelt one. Capitals don't count, and a name that
/// contains the other is very like it.
std::vector<std::string> nearestNames(std::span<const std::string> names, std::string_view wanted);

}  // namespace Cobalt::Base
