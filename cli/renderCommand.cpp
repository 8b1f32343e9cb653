#include "cli/renderCommand.h"

#include <fmt/format.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/RenderOptions.h"
#include "cli/renderSequence.h"
#include "cli/renderStill.h"
#include "compute/HostDevice.h"
#include "host/graph/SettingError.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Cli {

namespace {

/// Files of sequences and of views are looked for later.
const CLI::Validator existingPicture(
    [](std::string& name) {
        try {
            const bool severalFiles = Host::nameForView(name, "") || Host::FramePattern::parse(name);
            return severalFiles ? std::string() : existingFile(name);
        } catch (const std::invalid_argument& error) {
            return std::string(error.what());
        }
    },
    "");

/// A mask that nothing reads would go unnoticed.
void checkMask(const RenderOptions& options) {
    if (options.mask && !options.controls.gives("maskWith"))
        throw CallError(
            "--mask: the file isn't used while maskWith is None; add for example --maskWith \"Mask Alpha\".");
}

int render(RenderOptions& options) {
    try {
        const std::string& view = options.views.front();
        const std::string name = Host::nameForView(options.input, view).value_or(options.input);
        const bool several = Host::FramePattern::parse(name).has_value() || isPerView(options);
        if (several && options.disparity.right)
            throw CallError(
                "A pair is given as two pictures; write a sequence of separate views with %V, such as "
                "shot.%V.####.exr.");
        if (Host::FramePattern::parse(name)) return renderSequence(options);
    } catch (const std::invalid_argument& error) {
        throw CallError(error.what());
    }
    for (const auto& [given, option] :
         {std::pair{!options.frames.empty(), "--frames"}, std::pair{options.skipExisting, "--skip-existing"},
          std::pair{options.json, "--json"}})
        if (given)
            throw CallError(fmt::format("{} is for sequences; '{}' is one picture. Write for example shot.####.exr.",
                                        option, options.input));
    return renderStill(options);
}

}  // namespace

void addRenderCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("render", "Corrects the colours of one view of a multi-view OpenEXR file");
    const auto options = std::make_shared<RenderOptions>();
    command
        ->add_option("FILE", options->input,
                     "Multi-view OpenEXR file; a sequence as shot.####.exr, shot.@@@.exr or shot.%04d.exr; or the left "
                     "view of a pair")
        ->required()
        ->check(existingPicture)
        ->type_name("FILE");
    options->disparity.addPictureTo(*command);
    command->add_option("-o,--output", options->output, "OpenEXR file to write: all that came in, one view corrected")
        ->required()
        ->type_name("FILE.exr");
    command
        ->add_option("--mask", options->mask, "OpenEXR file for the node's input Mask; choose a channel by --maskWith")
        ->check(existingPicture)
        ->type_name("FILE");
    command
        ->add_option("--channel", options->channels,
                     "Reads a channel of another name, for example mask_occlusion.alpha=occluded.Y; may be repeated")
        ->type_name("ROLE=NAME")
        ->allow_extra_args(false);
    command
        ->add_option("--outside", options->outside,
                     "What frames before and after the shot hold: nothing, or the nearest")
        ->capture_default_str()
        ->check(CLI::IsMember({"empty", "hold"}));
    command
        ->add_option("--frames", options->frames,
                     "Which frames of a sequence, for example 1001-1240, 1001-1240x2 or 1001,1005 (default: all files)")
        ->type_name("RANGE");
    command
        ->add_option(
            "--views", options->views,
            "The views whose names %V stands for (%v: their first letters), where each has a file of its own; of "
            "the output the corrected one's is written")
        ->delimiter(',')
        ->type_name("NAME,NAME")
        ->default_str("left,right");
    command
        ->add_option("--missing", options->missing,
                     "What a frame without a file between others is: an error, or the frame before it")
        ->capture_default_str()
        ->check(CLI::IsMember({"error", "hold"}));
    command->add_flag("--skip-existing", options->skipExisting,
                      "Leaves out frames whose output file is there and whole, so that a sequence can be resumed");
    command
        ->add_option("--memory", options->memoryBytes,
                     "How much memory frames of a sequence may take, for example 8GB (default: half of the machine's)")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("SIZE");
    command->add_flag("--json", options->json, "Tells of each frame of a sequence as a line of JSON");
    command->add_flag("--quiet", options->quiet, "No progress and no closing line");
    command
        ->add_option("--write-stages", options->stageFolder,
                     "Writes the intermediate pictures of \"Local Matching\" into a folder, for a look into the render")
        ->type_name("DIR");
    command
        ->add_option("--cache", options->cacheFolder,
                     "Keeps results in a folder of this program's own: the same picture with the same controls is not "
                     "computed again")
        ->type_name("DIR");
    command
        ->add_option("--cache-size", options->cacheBytes,
                     "How much that folder may hold, for example 500MB or 20GB; what was not used for longest goes")
        ->transform(CLI::AsSizeValue(false))
        ->type_name("SIZE")
        ->default_str("10GB")
        ->needs("--cache");
    command->add_flag("--stats", options->stats,
                      "Prints for each stage the milliseconds, the kernel calls, the megabytes that they read and "
                      "wrote, and GB/s");
    options->disparity.addTo(*command);
    options->gpu.addTo(*command);
    options->controls.addTo(*command);
    command->callback([&context, options] {
        context.explainUnknown = [options](const std::string& word) { options->controls.explainUnknown(word); };
        context.work = [options, &context] {
            Vellum::Compute::Host::setThreads(context.threads);
            try {
                checkMask(*options);
                options->gpu.select();
                return render(*options);
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
