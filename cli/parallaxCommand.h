#pragma once

#include <CLI/CLI.hpp>

#include "cli/CommandContext.h"

namespace ViewTint::Cli {

/// viewtint parallax: writes estimated disparity and occlusion into a multi-view file.
void addParallaxCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
