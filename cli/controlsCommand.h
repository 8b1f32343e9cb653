#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// "viewtint controls": the node's panel as text.
void addControlsCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
