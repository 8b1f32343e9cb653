#pragma once

#include "cli/CommandContext.h"

namespace CLI {
class App;
}

namespace ViewTint::Cli {

/// `viewtint farm`: a sequence rendered by the tasks of a Slurm cluster.
/// Both arguments must outlive the parsing and the work.
void addFarmCommand(CLI::App& app, CommandContext& context);

}  // namespace ViewTint::Cli
