#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint compare`: how far pictures differ, in numbers and as a contact sheet.
/// Both arguments must outlive the parsing and the work.
void addCompareCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
