#include "cli/parallaxCommand.h"

#include <fmt/format.h>

#include <memory>
#include <string>

#include "cli/CallError.h"
#include "cli/DisparityOptions.h"
#include "cli/Interruption.h"
#include "cli/ProgressBar.h"
#include "host/files/AtomicFile.h"
#include "host/graph/RenderJob.h"

namespace ViewTint::Cli {

namespace {

struct ParallaxOptions {
    std::string input, output;
    bool quiet = false;
    DisparityOptions disparity;
};

int estimate(const ParallaxOptions& options) {
    requireOutput("--output", options.output, ".exr", {options.input, options.disparity.right});
    Host::checkWritable(options.output);
    auto picture = std::make_shared<Host::MultiViewFile>(
        options.disparity.right ? options.disparity.openPair(options.input) : Host::MultiViewFile::open(options.input));
    if (picture->views().size() < 2)
        throw Host::FileError(
            fmt::format("'{}' has only one view; give the other one's picture after it.", options.input));
    const bool named = picture->hasChannel("left", "R") || picture->hasChannel("right", "R");
    Host::ParallaxSettings settings{.from = Host::DisparityFrom::estimate, .save = true};
    if (!named) settings.views = {picture->views()[0], picture->views()[1]};
    for (const std::string& view : {settings.views.first, settings.views.second})
        for (const char* channel : {"R", "G", "B"})
            if (!picture->hasChannel(view, channel))
                throw Host::FileError(
                    fmt::format("'{}': the view '{}' has no channel '{}'.", options.input, view, channel));
    ProgressBar progress(options.quiet ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    Host::RenderServices services;
    services.progress = [&](double done, const std::string& stage) { progress.show(done, stage); };
    services.abort = &interruptFlag();
    constexpr int frame = 1;
    Host::StillSource still(picture, frame);
    Host::ParallaxSource source(still, Host::ChannelRoles(), settings, services);
    source.report = [&](const Host::ParallaxReport& report) {
        progress.clear();
        tellParallax(report, options.input, options.quiet);
    };
    try {
        source.frame(frame)->save(options.output);
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    }
    return exitFine;
}

}  // namespace

void addParallaxCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand(
        "parallax", "Estimates disparity and occlusion of a stereo pair and writes them with the views as OpenEXR");
    const auto options = std::make_shared<ParallaxOptions>();
    command->add_option("FILE", options->input, "Multi-view OpenEXR file, or the left view of a pair")
        ->required()
        ->check(existingFile)
        ->type_name("FILE");
    options->disparity.addPictureTo(*command);
    command->add_option("-o,--output", options->output, "OpenEXR file to write")->required()->type_name("FILE.exr");
    command->add_flag("--quiet", options->quiet, "No progress and no closing line");
    command->callback([&context, options] { context.work = [options] { return estimate(*options); }; });
}

}  // namespace ViewTint::Cli
