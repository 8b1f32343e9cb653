#include "cli/compareCommand.h"

#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/CallError.h"
#include "cli/Interruption.h"
#include "cli/Json.h"
#include "cli/Printing.h"
#include "cli/comparison.h"
#include "host/files/AtomicFile.h"
#include "host/files/Picture.h"

namespace ViewTint::Cli {

namespace {

struct CompareOptions {
    std::string a;
    std::string b;
    std::optional<std::string> truth;
    std::optional<std::string> sheet;
    std::optional<std::string> view;
    bool json = false;
};

std::string shown(double value, int digits) {
    return std::isnan(value) ? "n/a" : fmt::format("{:.{}f}", value, digits);
}

void printRow(const std::string& label, const Host::Comparison& measured) {
    print("{:<36} {:>8} {:>7} {:>9} {:>8} {:>9}\n", label, shown(measured.psnr, 2), shown(measured.ssim, 4),
          shown(measured.meanColourDifference, 3), shown(measured.percentile99ColourDifference, 3), measured.pixels);
    if (measured.excluded > 0)
        print("{:<36} {} {} left out: NaN or infinity\n", "", measured.excluded,
              measured.excluded == 1 ? "pixel" : "pixels");
}

/// "A" and "B" are before and after where there is a truth.
std::string roleOf(const std::string& file, bool withTruth) {
    if (!withTruth) return file;
    return file == "A" ? "before" : "after";
}

void printText(const CompareOptions& options, const ComparisonReport& report) {
    const bool withTruth = options.truth.has_value();
    print("{:<7} {}\n{:<7} {}\n", roleOf("A", withTruth), printable(options.a), roleOf("B", withTruth),
          printable(options.b));
    if (withTruth) print("{:<7} {}\n", "truth", printable(*options.truth));
    print("\n{:<36} {:>8} {:>7} {:>9} {:>8} {:>9}\n", "", "PSNR dB", "SSIM", "CIEDE2000", "99th pc.", "pixels");
    for (const MeasuredView& row : report.views)
        printRow(withTruth ? fmt::format("{}, {} against truth", row.view, roleOf(row.first, true))
                           : fmt::format("{}, A against B", row.view),
                 row.comparison);
    for (const MeasuredDisparity& row : report.disparities)
        print("{}, disparity of {} against {}: within 1 pixel {}%, within 2 {}%; occlusion agrees on {}%\n", row.view,
              roleOf(row.first, withTruth), row.second, shown(100 * row.comparison.within1, 1),
              shown(100 * row.comparison.within2, 1), shown(100 * row.comparison.occlusionAgrees, 1));
    if (report.pairs.empty()) return;
    print("between the views, through the disparity, unoccluded pixels\n");
    for (const MeasuredPair& row : report.pairs)
        printRow(fmt::format("{}, {} against {}{}", roleOf(row.file, withTruth), row.view, row.otherView,
                             row.occlusionKnown ? "" : " (no mask)"),
                 row.comparison);
}

using Members = std::vector<std::pair<std::string, Json>>;

Json toJson(Members members, const Host::Comparison& measured) {
    members.emplace_back("psnr", Json::number(measured.psnr));
    members.emplace_back("ssim", Json::number(measured.ssim));
    members.emplace_back("ciede2000_mean", Json::number(measured.meanColourDifference));
    members.emplace_back("ciede2000_p99", Json::number(measured.percentile99ColourDifference));
    members.emplace_back("pixels", Json::integer(measured.pixels));
    members.emplace_back("excluded", Json::integer(measured.excluded));
    return Json::object(members);
}

void printJson(const CompareOptions& options, const ComparisonReport& report) {
    std::vector<Json> views;
    for (const MeasuredView& row : report.views)
        views.push_back(toJson(
            {{"view", Json::text(row.view)}, {"first", Json::text(row.first)}, {"second", Json::text(row.second)}},
            row.comparison));
    std::vector<Json> pairs;
    for (const MeasuredPair& row : report.pairs)
        pairs.push_back(toJson({{"file", Json::text(row.file)},
                                {"view", Json::text(row.view)},
                                {"other_view", Json::text(row.otherView)},
                                {"occlusion_known", Json::boolean(row.occlusionKnown)}},
                               row.comparison));
    Members members = {{"A", Json::text(options.a)}, {"B", Json::text(options.b)}};
    if (options.truth) members.emplace_back("truth", Json::text(*options.truth));
    members.emplace_back("views", Json::array(views));
    members.emplace_back("between_views", Json::array(pairs));
    std::vector<Json> disparities;
    for (const MeasuredDisparity& row : report.disparities)
        disparities.push_back(Json::object({{"view", Json::text(row.view)},
                                            {"first", Json::text(row.first)},
                                            {"second", Json::text(row.second)},
                                            {"within_1_pixel", Json::number(row.comparison.within1)},
                                            {"within_2_pixels", Json::number(row.comparison.within2)},
                                            {"occlusion_agrees", Json::number(row.comparison.occlusionAgrees)}}));
    members.emplace_back("disparity", Json::array(disparities));
    print("{}\n", Json::object(members).str());
}

int compare(const CompareOptions& options) {
    if (options.sheet) {
        requireOutput("--sheet", *options.sheet, ".png", {options.a, options.b, options.truth});
        Host::checkWritable(*options.sheet);
    }
    const ComparedFiles files{ComparedFile(options.a), ComparedFile(options.b),
                              options.truth ? std::optional<ComparedFile>(*options.truth) : std::nullopt};
    const std::vector<ComparedView> views = viewsToCompare(files, options.view);
    const ComparisonReport report = measure(files, views);
    if (options.sheet) {
        const Host::Raster sheet = drawComparison(files, views, report);
        checkpoint();
        Host::writeRgb8(*options.sheet, sheet.width, sheet.height, sheet.pixels);
    }
    options.json ? printJson(options, report) : printText(options, report);
    return exitFine;
}

}  // namespace

void addCompareCommand(CLI::App& app, CommandContext& context) {
    CLI::App* command = app.add_subcommand("compare", "Measures how far two pictures differ, or both from a truth");
    const auto options = std::make_shared<CompareOptions>();
    command->add_option("A", options->a, "Multi-view OpenEXR file or picture; with a truth, the state before")
        ->required()
        ->check(existingFile)
        ->type_name("FILE");
    command->add_option("B", options->b, "The same, compared with A; with a truth, the state after")
        ->required()
        ->check(existingFile)
        ->type_name("FILE");
    command->add_option("--truth", options->truth, "Measure A and B against this file")
        ->check(existingFile)
        ->type_name("FILE");
    command->add_option("--sheet", options->sheet, "Write a contact sheet with the pictures and their differences")
        ->type_name("FILE.png");
    command->add_option("--view", options->view, "Compare this view only; ordinary pictures stand for it")
        ->type_name("NAME");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([&context, options] { context.work = [options] { return compare(*options); }; });
}

}  // namespace ViewTint::Cli
