#pragma once

#include "cli/RenderOptions.h"

namespace ViewTint::Cli {

/// Renders the frames of a sequence. Returns an exit code; throws as CommandContext::work may.
int renderSequence(RenderOptions& options);

}  // namespace ViewTint::Cli
