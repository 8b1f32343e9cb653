#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint pack`: separate pictures and maps become one multi-view OpenEXR file.
/// Both arguments must outlive the parsing and the work.
void addPackCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
