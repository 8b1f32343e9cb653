#pragma once

#include <string>
#include <vector>

#include "cli/RenderOptions.h"
#include "host/parallax/ParallaxSource.h"
#include "host/sequence/FramePattern.h"
#include "host/sequence/SequenceSource.h"

namespace ViewTint::Cli {

/// A sequence and what is to become of it, as the command line tells: checked as far as that goes before any work.
class Shot {
public:
    /// Puts the corrected view's name into `options.output`. Throws CallError, Host::FileError, Host::SettingError.
    explicit Shot(RenderOptions& options);

    Host::SequenceSource source;
    std::vector<int> frames;  ///< in the order of rendering, at least one
    std::vector<std::string> views;
    Host::FramePattern output;
    std::string savedView;  ///< where each view has a file of its own: the one that is written
    Host::ParallaxSettings parallax;
};

}  // namespace ViewTint::Cli
