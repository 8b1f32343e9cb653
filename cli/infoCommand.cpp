#include "cli/infoCommand.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/FileLayout.h"
#include "cli/GpuOptions.h"
#include "cli/Json.h"
#include "cli/Printing.h"

namespace ViewTint::Cli {

namespace {

struct Layer {
    std::string name;  ///< empty for channels without one
    std::vector<FileLayout::Channel> channels;
};

/// R, G, B, A first, others by name.
bool comesFirst(const FileLayout::Channel& a, const FileLayout::Channel& b) {
    const auto rank = [](const std::string& name) {
        const char* place = name.size() == 1 ? std::strchr("RGBA", name[0]) : nullptr;
        return std::make_pair(place ? std::strlen(place) : 0, name);
    };
    const auto [rankA, nameA] = rank(a.name);
    const auto [rankB, nameB] = rank(b.name);
    return rankA != rankB ? rankA > rankB : nameA < nameB;
}

std::vector<Layer> layersOf(const FileLayout::View& view) {
    std::vector<Layer> layers;
    for (const FileLayout::Channel& channel : view.channels) {
        const std::size_t dot = channel.name.rfind('.');
        const std::string name = dot == std::string::npos ? "" : channel.name.substr(0, dot);
        auto layer = std::find_if(layers.begin(), layers.end(), [&](const Layer& known) { return known.name == name; });
        if (layer == layers.end()) layer = layers.insert(name.empty() ? layers.begin() : layers.end(), Layer{name, {}});
        layer->channels.push_back(
            {dot == std::string::npos ? channel.name : channel.name.substr(dot + 1), channel.type});
    }
    for (Layer& layer : layers)
        std::sort(layer.channels.begin(), layer.channels.end(), comesFirst);
    return layers;
}

/// "R G B A  half", or each channel with its type where they differ.
std::string describe(const Layer& layer) {
    const bool oneType =
        std::all_of(layer.channels.begin(), layer.channels.end(),
                    [&](const FileLayout::Channel& channel) { return channel.type == layer.channels.front().type; });
    std::vector<std::string> words;
    for (const FileLayout::Channel& channel : layer.channels)
        words.push_back(oneType ? channel.name : fmt::format("{} ({})", channel.name, channel.type));
    return oneType ? fmt::format("{}  {}", fmt::join(words, " "), layer.channels.front().type)
                   : fmt::format("{}", fmt::join(words, " "));
}

void printText(const std::string& path, const FileLayout& layout) {
    print("{}: {} x {} pixels, {} {}, {} {}, {}\n", printable(path), layout.width, layout.height, layout.views.size(),
          layout.views.size() == 1 ? "view" : "views", layout.parts, layout.parts == 1 ? "part" : "parts",
          layout.compression);
    if (const auto& made = layout.made; !made.version.empty())
        print("{} by viewtint {} with {}{}{}\n",
              layout.unmatched ? "left as it was, for want of matches," : "corrected", printable(made.version),
              printable(made.controls), made.options.empty() ? "" : " ", printable(made.options));
    for (const FileLayout::View& view : layout.views) {
        print("view {}: data window {}\n", printable(view.name), toString(view.dataBox));
        for (const Layer& layer : layersOf(view))
            print("  {:<16} {}\n", layer.name.empty() ? "colour" : printable(layer.name), printable(describe(layer)));
        if (!layout.made.version.empty()) continue;  // a result, which lacks nothing
        const RenderOutlook outlook = renderOutlook(layout, view);
        if (outlook.missing.empty()) print("  nothing is missing to correct this view\n");
        for (const std::string& thing : outlook.missing)
            print("  missing to correct this view: {}\n", printable(thing));
        for (const std::string& thing : outlook.estimated)
            print("  absent, will be estimated: {}\n", printable(thing));
        for (const std::string& thing : outlook.zero)
            print("  absent, read as 0: {}\n", printable(thing));
    }
}

Json toJson(const FileLayout& layout, const FileLayout::View& view) {
    std::vector<Json> channels;
    for (const FileLayout::Channel& channel : view.channels)
        channels.push_back(Json::object({{"name", Json::text(channel.name)}, {"type", Json::text(channel.type)}}));
    const Host::Box& box = view.dataBox;
    const RenderOutlook outlook = renderOutlook(layout, view);
    return Json::object({{"name", Json::text(view.name)},
                         {"data_window", Json::object({{"x0", Json::integer(box.x0)},
                                                       {"y0", Json::integer(box.y0)},
                                                       {"x1", Json::integer(box.x1)},
                                                       {"y1", Json::integer(box.y1)}})},
                         {"channels", Json::array(channels)},
                         {"missing_for_render", Json::array(outlook.missing)},
                         {"estimated_for_render", Json::array(outlook.estimated)},
                         {"absent_read_as_zero", Json::array(outlook.zero)}});
}

void printJson(const std::string& path, const FileLayout& layout) {
    std::vector<Json> views;
    for (const FileLayout::View& view : layout.views)
        views.push_back(toJson(layout, view));
    const Json document = Json::object({{"file", Json::text(path)},
                                        {"width", Json::integer(layout.width)},
                                        {"height", Json::integer(layout.height)},
                                        {"parts", Json::integer(layout.parts)},
                                        {"compression", Json::text(layout.compression)},
                                        {"corrected_by", Json::text(layout.made.version)},
                                        {"controls", Json::text(layout.made.controls)},
                                        {"options", Json::text(layout.made.options)},
                                        {"unmatched", Json::boolean(layout.unmatched)},
                                        {"views", Json::array(views)}});
    print("{}\n", document.str());
}

}  // namespace

void addInfoCommand(CLI::App& app, CommandContext& context) {
    struct Options {
        std::string file;
        bool devices = false;
        bool json = false;
    };
    CLI::App* command = app.add_subcommand(
        "info", "Shows what an OpenEXR file holds and what it lacks for a render, or the machine's devices");
    const auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file, "Multi-view OpenEXR file")->check(existingFile)->type_name("FILE");
    command->add_flag("--devices", options->devices, "Show the CPU and the GPUs that can render");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([&context, options] {
        context.work = [options] {
            if (options->devices == !options->file.empty())
                throw CallError("info: give either the FILE to look into or --devices.");
            if (options->devices) {
                printDevices(options->json);
                return exitFine;
            }
            const FileLayout layout = readLayout(options->file);
            options->json ? printJson(options->file, layout) : printText(options->file, layout);
            return exitFine;
        };
    });
}

}  // namespace ViewTint::Cli
