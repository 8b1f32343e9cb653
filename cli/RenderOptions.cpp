#include "cli/RenderOptions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <stdexcept>

#include "cli/CallError.h"
#include "cli/Printing.h"
#include "host/graph/RenderRecord.h"
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

const CLI::Validator frameRanges(
    [](std::string& text) {
        try {
            Host::parseFrames(text);
            return std::string();
        } catch (const std::invalid_argument& error) {
            return std::string(error.what());
        }
    },
    "");

}  // namespace

void addShotOptions(CLI::App& command, RenderOptions& options) {
    command
        .add_option("FILE", options.input,
                    "Multi-view OpenEXR file; a sequence as shot.####.exr, shot.@@@.exr or shot.%04d.exr; or the left "
                    "view of a pair")
        ->required()
        ->check(existingPicture)
        ->type_name("FILE");
    command.add_option("-o,--output", options.output, "OpenEXR file to write: all that came in, one view corrected")
        ->required()
        ->type_name("FILE.exr");
    command
        .add_option("--mask", options.mask, "OpenEXR file for the node's input Mask; choose a channel by --maskWith")
        ->check(existingPicture)
        ->type_name("FILE");
    command
        .add_option("--channel", options.channels,
                    "Reads a channel of another name, for example mask_occlusion.alpha=occluded.Y; may be repeated")
        ->type_name("ROLE=NAME")
        ->allow_extra_args(false);
    command
        .add_option("--outside", options.outside, "What frames before and after the shot hold: nothing, or the nearest")
        ->capture_default_str()
        ->check(CLI::IsMember({"empty", "hold"}));
    command
        .add_option("--frames", options.frames,
                    "Which frames of a sequence, for example 1001-1240, 1001-1240x2 or 1001,1005 (default: all files)")
        ->check(frameRanges)
        ->type_name("RANGE");
    command
        .add_option(
            "--views", options.views,
            "The views whose names %V stands for (%v: their first letters), where each has a file of its own; of "
            "the output the corrected one's is written")
        ->delimiter(',')
        ->check(notEmpty)
        ->type_name("NAME,NAME")
        ->default_str("left,right");
    command
        .add_option("--missing", options.missing,
                    "What a frame without a file between others is: an error, or the frame before it")
        ->capture_default_str()
        ->check(CLI::IsMember({"error", "hold"}));
    command
        .add_option("--cache", options.cacheFolder,
                    "Keeps results in a folder of this program's own: the same picture with the same controls is not "
                    "computed again")
        ->check(notEmpty)
        ->type_name("DIR");
    command
        .add_option("--cache-size", options.cacheBytes,
                    "How much that folder may hold, for example 500MB or 20GB; what was not used for longest goes")
        ->transform(sizeInBytes)
        ->type_name("SIZE")
        ->default_str("10GB")
        ->needs("--cache");
    command.add_flag("--strict", options.strict,
                     "Exit code 1 also where a frame was left uncorrected because too little of it is visible in both "
                     "views");
    options.disparity.addTo(command);
    options.gpu.addTo(command);
    options.controls.addTo(command);
}

void checkMask(const RenderOptions& options) {
    if (options.mask && !options.controls.gives("maskWith"))
        throw CallError(
            "--mask: the file isn't used while maskWith is None; add for example --maskWith \"Mask Alpha\".");
}

void checkRoles(const RenderOptions& options) {
    using Role = Host::ChannelRoles::Role;
    const auto isWritten = [](const Role& role) { return role.channel <= Fresco::Image::alphaChannel; };
    for (const auto& [channel, roles] : rolesOf(options).sharing()) {
        std::vector<std::string> names;
        for (const Role& role : roles)
            names.push_back(role.name);
        const std::string all = fmt::format("{}", fmt::join(names, ", "));
        const auto written = std::ranges::count_if(roles, isWritten);
        const bool grey = written == 3 && roles[2].channel == Fresco::Image::blueChannel;
        if (written > 1 && !grey)
            throw CallError(fmt::format(
                "--channel: the results of {} can't all be written to '{}'; choose a channel for each.", all, channel));
        if (written > 0 && options.disparity.save && !isWritten(roles.back()))
            throw CallError(fmt::format(
                "--channel: {} share the channel '{}', which --write-disparity would overwrite; leave one out.", all,
                channel));
        warn(fmt::format("--channel: {} are read from one channel, '{}'.", all, channel));
    }
}

std::string recordedOptions(const RenderOptions& options) {
    const auto unless = [](const std::string& usual, const std::string& value) {
        return value == usual ? std::string() : value;
    };
    return Host::RenderRecord::optionsText({{"channel", fmt::format("{}", fmt::join(options.channels, ","))},
                                            {"disparity", options.disparity.from, true},
                                            {"input-colourspace", options.disparity.colourspace.value_or("")},
                                            {"mask", options.mask.value_or(""), true},
                                            {"missing", unless("error", options.missing)},
                                            {"outside", unless("empty", options.outside)},
                                            {"write-disparity", options.disparity.save ? "on" : ""}});
}

bool isPerView(const RenderOptions& options) {
    return Host::nameForView(options.input, options.views.front()).has_value();
}

Host::ChannelRoles rolesOf(const RenderOptions& options) {
    Host::ChannelRoles roles;
    for (const std::string& assignment : options.channels)
        roles.assign(assignment);
    return roles;
}

void warnOfOddSettings(const Host::ControlPanel& panel) {
    for (const std::string& name : panel.givenInVain())
        complain(
            fmt::format("{} has no effect together with the other values; 'viewtint controls' with the same values "
                        "shows what is enabled.",
                        name));
    // The node is defined to convert the picture of one block size to Lab twice where it refills occlusions.
    constexpr double basic = 0, none = 2;
    if (panel.value("matchingMode") != basic && panel.value("samples") == 1 &&
        panel.value("occlusionCorrection") != none)
        complain(
            "one block size together with refilled occlusions gives false colours; choose --samples 2 or more, or "
            "--occlusionCorrection None.");
}

std::unique_ptr<Host::ImageCacheDirectory> openCache(const RenderOptions& options,
                                                     const Host::RenderServices& services) {
    if (options.cacheFolder.empty()) return nullptr;
    auto cache = std::make_unique<Host::ImageCacheDirectory>(options.cacheFolder, options.cacheBytes);
    cache->warn = services.warn;
    return cache;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::shared_ptr<const Host::MultiViewFile> openMask(const std::filesystem::path& path) {
    return std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(path));
}

}  // namespace ViewTint::Cli
