#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint info`: what a multi-view file holds, and what it lacks for a render.
/// Both arguments must outlive the parsing and the work.
void addInfoCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
