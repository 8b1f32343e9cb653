#include "cli/packCommand.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/Interruption.h"
#include "cli/Printing.h"
#include "host/packing/PackFiles.h"

namespace ViewTint::Cli {

namespace {

/// The options as they stand on the command line.
struct PackOptions {
    std::string left;
    std::string right;
    std::string output;
    std::optional<std::string> disparityLeft;
    std::optional<std::string> disparityRight;
    std::optional<std::string> occlusionLeft;
    std::optional<std::string> occlusionRight;
    double disparityScale = 1.0;
    std::string disparityY = "up";
    std::optional<std::string> colourspace;
    bool half = false;
    std::optional<std::string> castView;
    std::vector<double> castGain;
    std::vector<double> castGainRightEdge;
    std::vector<double> castGamma;
    std::vector<double> castOffset;
};

void addCastOption(CLI::App& command, const char* name, std::vector<double>& values, const char* help) {
    command.add_option(name, values, help)
        ->delimiter(',')
        ->expected(3)
        ->check(finiteNumber)
        ->type_name("R,G,B")
        ->needs("--cast-view");
}

void addOptions(CLI::App& command, PackOptions& options) {
    command.add_option("--left", options.left, "Left view: PNG, JPEG, TIFF, DPX or OpenEXR")
        ->required()
        ->check(existingFile)
        ->type_name("FILE");
    command.add_option("--right", options.right, "Right view")->required()->check(existingFile)->type_name("FILE");
    command.add_option("-o,--output", options.output, "Multi-view OpenEXR file to write")
        ->required()
        ->type_name("FILE.exr");
    command
        .add_option("--disparity-left", options.disparityLeft,
                    "Disparity of the left view: positive values, 0 unknown; or an OpenEXR file with vectors in "
                    "channels x and y")
        ->check(existingFile)
        ->type_name("FILE");
    command
        .add_option("--disparity-right", options.disparityRight,
                    "Disparity of the right view (default: the left one carried over)")
        ->check(existingFile)
        ->type_name("FILE");
    command.add_option("--disparity-scale", options.disparityScale, "Pixels = value / scale")
        ->capture_default_str()
        ->check(finiteNumber)
        ->check(CLI::PositiveNumber)
        ->type_name("S");
    command
        .add_option("--disparity-y", options.disparityY,
                    "Which way y counts in vectors of disparity maps; computer vision tools have it down")
        ->capture_default_str()
        ->check(CLI::IsMember({"up", "down"}));
    command
        .add_option("--occlusion-left", options.occlusionLeft,
                    "Pixels of the left view hidden in the right one: white hidden, black visible (default: found "
                    "from the disparities)")
        ->check(existingFile)
        ->type_name("FILE");
    command.add_option("--occlusion-right", options.occlusionRight, "The same for the right view")
        ->check(existingFile)
        ->type_name("FILE");
    command
        .add_option("--input-colourspace", options.colourspace,
                    "Colour of the views (default: sRGB for integer formats, linear for float ones)")
        ->check(CLI::IsMember({"sRGB", "linear"}));
    command.add_flag("--half", options.half, "Store colour and masks in half precision");
    command.add_option("--cast-view", options.castView, "Put a colour cast on this view, to make test material")
        ->check(CLI::IsMember({"left", "right"}));
    addCastOption(command, "--cast-gain", options.castGain,
                  "Cast in linear light: v' = gain * v^gamma + offset (default 1,1,1)");
    addCastOption(command, "--cast-gain-right-edge", options.castGainRightEdge,
                  "Gain at the right edge, to which it goes over evenly from --cast-gain at the left edge, as behind a "
                  "beam splitter (default: the same everywhere)");
    addCastOption(command, "--cast-gamma", options.castGamma, "Exponents of the cast (default 1,1,1)");
    addCastOption(command, "--cast-offset", options.castOffset, "Offsets of the cast (default 0,0,0)");
}

void copyTriple(const std::vector<double>& from, std::array<double, 3>& to) {
    if (!from.empty()) to = {from[0], from[1], from[2]};
}

Host::ColourCast castOf(const PackOptions& options) {
    Host::ColourCast cast;
    copyTriple(options.castGain, cast.gain);
    if (!options.castGainRightEdge.empty()) copyTriple(options.castGainRightEdge, cast.gainAtRightEdge.emplace());
    copyTriple(options.castGamma, cast.gamma);
    copyTriple(options.castOffset, cast.offset);
    for (const double gamma : cast.gamma)
        if (!(gamma > 0.0)) throw CallError("--cast-gamma: exponents must be above 0.");
    return cast;
}

Host::PackRequest requestOf(const PackOptions& options) {
    if (!options.disparityLeft && !options.disparityRight)
        throw CallError("pack needs a disparity map; give --disparity-left, --disparity-right or both.");
    requireOutput("--output", options.output, ".exr",
                  {options.left, options.right, options.disparityLeft, options.disparityRight, options.occlusionLeft,
                   options.occlusionRight});
    Host::PackRequest request;
    request.left = {options.left, options.disparityLeft, options.occlusionLeft, std::nullopt};
    request.right = {options.right, options.disparityRight, options.occlusionRight, std::nullopt};
    request.output = options.output;
    request.disparityScale = options.disparityScale;
    request.vectorY = options.disparityY == "up" ? Host::VectorY::up : Host::VectorY::down;
    if (options.colourspace)
        request.colourspace = *options.colourspace == "sRGB" ? Host::Colourspace::sRGB : Host::Colourspace::linear;
    request.storage = options.half ? Host::PixelStorage::half : Host::PixelStorage::single;
    if (options.castView) (*options.castView == "left" ? request.left : request.right).cast = castOf(options);
    return request;
}

void printView(const char* name, const Host::PackedViewReport& view, const Host::PackReport& report) {
    const double pixels = double(report.width) * report.height;
    print("  {:<5}  disparity known for {:.1f}%, {:.1f}% occluded\n", name,
          100.0 * (1.0 - double(view.unknown) / pixels), 100.0 * double(view.occluded) / pixels);
}

int pack(const PackOptions& options) {
    const Host::PackReport report = Host::packFiles(requestOf(options), checkpoint);
    print("{}: {} x {} pixels\n", printable(options.output), report.width, report.height);
    printView("left", report.left, report);
    printView("right", report.right, report);
    return exitFine;
}

}  // namespace

void addPackCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("pack", "Packs two views and disparity maps into one multi-view OpenEXR");
    const auto options = std::make_shared<PackOptions>();
    addOptions(*command, *options);
    command->callback([&context, options] { context.work = [options] { return pack(*options); }; });
}

}  // namespace ViewTint::Cli
