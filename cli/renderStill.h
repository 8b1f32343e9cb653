#pragma once

#include "cli/RenderOptions.h"

namespace ViewTint::Cli {

/// Renders one picture. Returns an exit code; throws as CommandContext::work may.
int renderStill(RenderOptions& options);

}  // namespace ViewTint::Cli
