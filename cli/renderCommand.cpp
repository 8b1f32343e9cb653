#include "cli/renderCommand.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/ControlOptions.h"
#include "cli/Interruption.h"
#include "cli/Json.h"
#include "cli/ProgressBar.h"
#include "cli/StageFiles.h"
#include "cli/StageTable.h"
#include "compute/HostDevice.h"
#include "host/files/ImageCacheDirectory.h"
#include "host/graph/ControlPanel.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "host/sequence/FramePattern.h"
#include "host/sequence/SequenceRender.h"
#include "host/sequence/SequenceSource.h"
#include "node/ViewTintPlugin.h"

namespace ViewTint::Cli {

namespace {

constexpr int stillFrame = 1;

/// A sequence's files are looked for later.
const CLI::Validator existingPicture(
    [](std::string& name) {
        try {
            return Host::FramePattern::parse(name) ? std::string() : existingFile(name);
        } catch (const std::invalid_argument& error) {
            return std::string(error.what());
        }
    },
    "");

/// The options as they stand on the command line.
struct RenderOptions {
    std::string input;
    std::string output;
    std::optional<std::string> mask;
    std::vector<std::string> channels;
    std::string outside = "empty";
    bool quiet = false;
    bool stats = false;
    bool json = false;
    std::string frames;
    std::string missing = "error";
    bool skipExisting = false;
    std::uint64_t memoryBytes = 0;
    std::string stageFolder;
    std::string cacheFolder;
    std::uint64_t cacheBytes = std::uint64_t{10} << 30;
    ControlOptions controls;
};

/// A mask that nothing reads would go unnoticed.
void checkMask(const RenderOptions& options) {
    if (options.mask && !options.controls.gives("maskWith"))
        throw CallError(
            "--mask: the file isn't used while maskWith is None; add for example --maskWith \"Mask Alpha\".");
}

Host::ChannelRoles rolesOf(const RenderOptions& options) {
    Host::ChannelRoles roles;
    for (const std::string& assignment : options.channels)
        roles.assign(assignment);
    return roles;
}

std::string absentColours(const Host::MultiViewFile& picture, const Host::ChannelRoles& roles) {
    std::vector<std::string> absent;
    for (const std::string& view : picture.views())
        for (const Host::ChannelRoles::Role& role : roles.all())
            if (role.channel <= Fresco::Image::blueChannel && !picture.hasChannel(view, role.fileChannel))
                absent.push_back(fmt::format("'{}' in view '{}'", role.fileChannel, view));
    return fmt::format("{}", fmt::join(absent, ", "));
}

/// The node's sentence with the file and with what the node can't know: names in the file and options of this command.
std::string explain(const std::string& sentence, const RenderOptions& options, const Host::MultiViewFile& picture) {
    if (sentence.find(fmt::format("'{}'", options.input)) != std::string::npos) return sentence;
    std::string text = fmt::format("{}: {}", options.input, sentence);
    if (sentence.ends_with("missing rgb"))
        text += fmt::format(". There is no {}; add it, or choose others with --channel ROLE=NAME.",
                            absentColours(picture, rolesOf(options)));
    if (sentence.starts_with("Channel selected as Mask is missing") && !options.mask)
        text += " Name a mask file with --mask, or choose another maskWith.";
    return text;
}

void warn(const std::string& sentence) {
    fmt::print(stderr, "viewtint: {}\n", sentence);
}

/// Of values that do nothing, and of those that together do what nobody wants.
void warnOfOddSettings(const Host::ControlPanel& panel) {
    for (const std::string& name : panel.givenInVain())
        warn(
            fmt::format("{} has no effect together with the other values; 'viewtint controls' with the same values "
                        "shows what is enabled.",
                        name));
    // The node is defined to convert the picture of one block size to Lab twice where it refills occlusions.
    constexpr double basic = 0, none = 2;
    if (panel.value("matchingMode") != basic && panel.value("samples") == 1 &&
        panel.value("occlusionCorrection") != none)
        warn(
            "one block size together with refilled occlusions gives false colours; choose --samples 2 or more, or "
            "--occlusionCorrection None.");
}

/// The views of a sequence's first picture; if it can't be read, that is told where it is rendered.
std::vector<std::string> viewsOf(Host::SequenceSource& source) {
    try {
        return source.frame(source.files().front())->views();
    } catch (const Host::FileError&) {
        return {"left", "right"};
    }
}

/// Keeps results while it lives, if asked to.
std::unique_ptr<Host::ImageCacheDirectory> openCache(const RenderOptions& options) {
    if (options.cacheFolder.empty()) return nullptr;
    return std::make_unique<Host::ImageCacheDirectory>(options.cacheFolder, options.cacheBytes);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::shared_ptr<const Host::MultiViewFile> openMask(const std::filesystem::path& path) {
    return std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(path));
}

int renderStill(RenderOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    requireOutput("--output", options.output, ".exr", {options.input, options.mask});
    const auto picture = std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(options.input));
    Host::StillSource source(
        picture, stillFrame,
        options.outside == "hold" ? Host::StillSource::Outside::hold : Host::StillSource::Outside::empty);
    ProgressBar progress(options.quiet ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    Host::RenderServices services;
    services.progress = [&](double done, const std::string& stage) { progress.show(done, stage); };
    services.abort = &interruptFlag();
    std::optional<StageFiles> stageFiles;
    if (!options.stageFolder.empty()) {
        stageFiles.emplace(options.stageFolder);
        services.operatorMade = [&](Fresco::Image::Op& op) {
            if (auto* node = dynamic_cast<Cobalt::Research::ViewTintPlugin*>(&op))
                node->stageObserver = [&](const char* name, const auto& picture) { stageFiles->write(name, picture); };
        };
    }
    Host::ControlValues& controls = options.controls.checked();
    warnOfOddSettings(Host::ControlPanel(controls, picture->views()));
    const auto cache = openCache(options);
    Host::RenderJob job(source, std::move(controls), rolesOf(options), services);
    if (options.mask) job.setMask(openMask(*options.mask));
    try {
        job.render(stillFrame, options.output);
    } catch (const Host::RenderInterrupted&) {
        throw Interrupted();
    } catch (const Host::RenderError& error) {
        progress.clear();
        throw Host::RenderError(explain(error.what(), options, *picture));
    }
    progress.clear();
    if (!options.quiet) fmt::print("{}: written in {:.2f} s\n", options.output, secondsSince(start));
    if (stages) fmt::print("{}", stages->text());
    if (stageFiles) stageFiles->throwFailure();
    return interruptFlag() ? exitInterrupted : exitFine;  // pressed while the file was written: it is whole
}

// ---- sequences

/// What is told of frames: lines for people, or a JSON object on each line for farms.
class FrameReports {
public:
    FrameReports(std::size_t frames, bool json, bool quiet, ProgressBar& progress)
        : frames_(frames), json_(json), quiet_(quiet), progress_(progress) {}

    void tell(const Host::FrameResult& result) {
        using Status = Host::FrameResult::Status;
        static constexpr const char* words[] = {"written", "skipped", "failed"};
        const char* status = words[static_cast<int>(result.status)];
        ++counts_[static_cast<std::size_t>(result.status)];
        progress_.clear();
        if (json_) {
            std::string message;
            if (result.status == Status::failed)
                message = fmt::format(", \"message\": {}", Json::text(result.message).str());
            fmt::print(
                "{{\"event\": \"frame\", \"frame\": {}, \"status\": \"{}\", \"file\": {}, \"seconds\": {:.3f}{}}}\n",
                result.frame, status, Json::text(result.file.string()).str(), result.seconds, message);
            std::fflush(stdout);
        } else if (result.status == Status::failed) {
            warn(fmt::format("frame {}: {}", result.frame, result.message));
        }
    }
    void tellSummary(double seconds) const {
        const std::size_t ended = counts_[0] + counts_[1] + counts_[2];
        if (json_)
            fmt::print(
                "{{\"event\": \"summary\", \"frames\": {}, \"written\": {}, \"skipped\": {}, \"failed\": {}, \"left\": "
                "{}, "
                "\"seconds\": {:.3f}}}\n",
                frames_, counts_[0], counts_[1], counts_[2], frames_ - ended, seconds);
        else if (!quiet_)
            fmt::print("{} frames: {} written, {} skipped, {} failed{} in {:.1f} s\n", frames_, counts_[0], counts_[1],
                       counts_[2], ended < frames_ ? fmt::format(", {} left", frames_ - ended) : "", seconds);
    }
    bool anyFailed() const { return counts_[2] > 0; }

private:
    std::size_t frames_;
    bool json_, quiet_;
    ProgressBar& progress_;
    std::array<std::size_t, 3> counts_{};
};

/// How far from a frame lie the others that a render looks at.
int reachOf(const Host::ControlPanel& panel) {
    constexpr double none = 2;
    const bool stabilises = panel.value("stabiliseOcclusions") != 0 && panel.value("occlusionCorrection") < none;
    return stabilises ? static_cast<int>(panel.value("stabiliseOcclusionsNumberOfFrames")) / 2 : 0;
}

std::size_t halfOfTheMachinesMemory() {
    return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 2;
}

std::vector<int> framesOf(const RenderOptions& options, const Host::SequenceSource& source) {
    return options.frames.empty() ? source.files() : Host::parseFrames(options.frames);
}

int renderSequence(RenderOptions& options, const Host::FramePattern& input) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<StageTable> stages;
    if (options.stats) stages.emplace();
    requireOutput("--output", options.output, ".exr", {});
    const auto output = Host::FramePattern::parse(options.output);
    if (!output)
        throw CallError(fmt::format("--output: '{}' has no place for the frame number; write for example out.####.exr.",
                                    options.output));
    if (!options.stageFolder.empty()) throw CallError("--write-stages is for one picture, not for a sequence.");
    const auto mask = options.mask ? Host::FramePattern::parse(*options.mask) : std::nullopt;
    Host::SequenceSource source(
        input, options.outside == "hold" ? Host::SequenceSource::Outside::hold : Host::SequenceSource::Outside::empty,
        options.missing == "hold" ? Host::SequenceSource::Missing::hold : Host::SequenceSource::Missing::fail);
    Host::SequenceSettings settings;
    settings.frames = framesOf(options, source);
    settings.skipExisting = options.skipExisting;
    settings.memory = options.memoryBytes > 0 ? options.memoryBytes : halfOfTheMachinesMemory();

    ProgressBar progress(options.quiet || options.json ? ProgressBar::Style::off : ProgressBar::Style::automatic);
    std::size_t place = 0;
    Host::RenderServices services;
    const double count = static_cast<double>(settings.frames.size());
    services.progress = [&](double done, const std::string&) {
        progress.show((static_cast<double>(place) + done) / count, fmt::format("frame {}", settings.frames[place]));
    };
    services.abort = &interruptFlag();
    Host::ControlValues& controls = options.controls.checked();
    {
        const Host::ControlPanel panel(controls, viewsOf(source));
        warnOfOddSettings(panel);
        settings.reach = reachOf(panel);
    }
    const auto cache = openCache(options);
    Host::RenderJob job(source, std::move(controls), rolesOf(options), services);
    if (options.mask && !mask) job.setMask(openMask(*options.mask));

    FrameReports reports(settings.frames.size(), options.json, options.quiet, progress);
    bool interrupted = false;
    try {
        Host::SequenceRender render(source, job, *output, settings);
        render.begin = [&](int frame, std::size_t now) {
            place = now;
            if (mask) job.setMask(openMask(mask->path(frame)));
        };
        render.report = [&](const Host::FrameResult& result) { reports.tell(result); };
        render.run();
    } catch (const Host::RenderInterrupted&) {
        interrupted = true;
    }
    progress.clear();
    reports.tellSummary(secondsSince(start));
    if (stages) fmt::print("{}", stages->text());
    if (interrupted) throw Interrupted();
    return reports.anyFailed() ? exitFailed : exitFine;
}

int render(RenderOptions& options) {
    try {
        if (const auto pattern = Host::FramePattern::parse(options.input)) return renderSequence(options, *pattern);
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
                     "Multi-view OpenEXR file with disparity channels; a sequence as shot.####.exr, shot.@@@.exr or "
                     "shot.%04d.exr")
        ->required()
        ->check(existingPicture)
        ->type_name("FILE");
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
    options->controls.addTo(*command);
    command->callback([&context, options] {
        context.explainUnknown = [options](const std::string& word) { options->controls.explainUnknown(word); };
        context.work = [options, &context] {
            Vellum::Compute::Host::setThreads(context.threads);
            try {
                checkMask(*options);
                return render(*options);
            } catch (const Host::SettingError& error) {
                throw CallError(error.what());
            }
        };
    });
}

}  // namespace ViewTint::Cli
