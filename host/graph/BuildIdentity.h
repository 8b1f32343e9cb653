#pragma once

#include <string>
#include <string_view>

namespace ViewTint::Host {

/// Tells one build of the program from another: results are kept for the same build only, since another may compute
/// otherwise.
std::string_view buildIdentity();

/// The release and the build, as files tell it: "0.1.0 (build 1f2e3d4c5b6a)".
const std::string& programVersion();

}  // namespace ViewTint::Host
