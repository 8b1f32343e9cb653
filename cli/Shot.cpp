#include "cli/Shot.h"

#include <fmt/format.h>

#include "cli/CallError.h"
#include "host/graph/ControlPanel.h"

namespace ViewTint::Cli {

namespace {

/// The input's pattern, or one for each view.
Host::SequenceSource::ViewPatterns patternsOf(const RenderOptions& options) {
    if (!isPerView(options)) return {{"", *Host::FramePattern::parse(options.input)}};
    Host::SequenceSource::ViewPatterns patterns;
    for (const std::string& view : options.views)
        patterns.emplace_back(view, *Host::FramePattern::parse(*Host::nameForView(options.input, view)));
    return patterns;
}

Host::FramePattern outputPattern(const std::string& output) {
    requireOutput("--output", output, ".exr", {});
    if (const auto pattern = Host::FramePattern::parse(output)) return *pattern;
    throw CallError(
        fmt::format("--output: '{}' has no place for the frame number; write for example out.####.exr.", output));
}

}  // namespace

Shot::Shot(RenderOptions& options)
    : source(patternsOf(options),
             options.outside == "hold" ? Host::SequenceSource::Outside::hold : Host::SequenceSource::Outside::empty,
             options.missing == "hold" ? Host::SequenceSource::Missing::hold : Host::SequenceSource::Missing::fail),
      frames(options.frames.empty() ? source.files() : Host::parseFrames(options.frames)),
      views(source.views(frames.front())) {
    const Host::ControlPanel panel(options.controls.checked(), views);
    warnOfOddSettings(panel);
    parallax = options.disparity.settings(panel.stereoViews());
    if (isPerView(options)) savedView = panel.correctedView();
    options.output = Host::nameForView(options.output, savedView).value_or(options.output);
    output = outputPattern(options.output);
}

}  // namespace ViewTint::Cli
