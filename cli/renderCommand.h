#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint render`: corrects one view of a multi-view file.
/// Both arguments must outlive the parsing and the work.
void addRenderCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
