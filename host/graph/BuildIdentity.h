#pragma once

#include <string_view>

namespace ViewTint::Host {

/// Tells one build of the program from another: results are kept for the same build only, since another may compute
/// otherwise.
std::string_view buildIdentity();

}  // namespace ViewTint::Host
