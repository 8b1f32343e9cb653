#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint kernels`: the catalogue of the kernels that do the pixel work, or all about one of them.
/// Both arguments must outlive the parsing and the work.
void addKernelsCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
