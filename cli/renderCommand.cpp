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
          std::pair{options.skipVerified, "--skip-verified"}})
        if (given)
            throw CallError(fmt::format("{} is for sequences; '{}' is one picture. Write for example shot.####.exr.",
                                        option, options.input));
    return renderStill(options);
}

}  // namespace

void addRenderCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("render", "Corrects the colours of one view of a multi-view OpenEXR file");
    const auto options = std::make_shared<RenderOptions>();
    addShotOptions(*command, *options);
    options->disparity.addPictureTo(*command);
    command->add_flag("--skip-existing", options->skipExisting,
                      "Leaves out frames whose output file is there and whole, so that a sequence can be resumed");
    command
        ->add_flag(
            "--skip-verified", options->skipVerified,
            "Leaves out frames whose output file is there, whole, and tells that this version made it with these "
            "controls; other frames are rendered anew")
        ->excludes("--skip-existing");
    command
        ->add_option("--memory", options->memoryBytes,
                     "How much memory frames of a sequence may take, for example 8GB (default: half of the machine's)")
        ->transform(sizeInBytes)
        ->type_name("SIZE");
    command->add_flag("--json", options->json,
                      "Prints events instead of sentences: a line of JSON for each frame, each warning and the end");
    command->add_flag("--quiet", options->quiet, "No progress and no closing line");
    command
        ->add_option("--write-stages", options->stageFolder,
                     "Writes the intermediate pictures of \"Local Matching\" into a folder, for a look into the render")
        ->check(notEmpty)
        ->type_name("DIR");
    command->add_flag("--stats", options->stats,
                      "Prints for each stage the milliseconds, the kernel calls, the megabytes that they read and "
                      "wrote, and GB/s");
    command->callback([&context, options] {
        context.explainUnknown = [options](const std::string& word) { options->controls.explainUnknown(word); };
        context.work = [options, &context] {
            Vellum::Compute::Host::setThreads(context.threads);
            try {
                checkMask(*options);
                checkRoles(*options);
                options->gpu.select();
                return render(*options);
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
