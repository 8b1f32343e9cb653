#pragma once

#include "cli/RenderOptions.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Cli {

/// Renders the frames of a sequence. Returns an exit code; throws as CommandContext::work may.
int renderSequence(RenderOptions& options, const Host::FramePattern& input);

}  // namespace ViewTint::Cli
