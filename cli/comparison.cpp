#include "cli/comparison.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/CallError.h"
#include "cli/Interruption.h"
#include "host/measures/ViewSampling.h"

namespace ViewTint::Cli {

namespace {

constexpr double differenceFactor = 4.0;

std::vector<const ComparedFile*> listed(const ComparedFiles& files) {
    std::vector<const ComparedFile*> list = {&files.a, &files.b};
    if (files.truth) list.push_back(&*files.truth);
    return list;
}

void requireSameSize(const ComparedFiles& files) {
    for (const ComparedFile* file : listed(files))
        if (file->width() != files.a.width() || file->height() != files.a.height())
            throw Host::FileError(
                fmt::format("Cannot compare '{}' ({} x {} pixels) with '{}' ({} x {}): give pictures "
                            "of one size.",
                            files.a.path().string(), files.a.width(), files.a.height(), file->path().string(),
                            file->width(), file->height()));
}

bool single(const ComparedFile* file) {
    return file->views().size() == 1;
}

/// The view's name in each file; empty when a file hasn't got it.
std::vector<std::string> findView(const std::vector<const ComparedFile*>& files, const std::string& name,
                                  bool singleFits) {
    std::vector<std::string> names;
    for (const ComparedFile* file : files) {
        if (file->hasView(name))
            names.push_back(name);
        else if (singleFits && single(file))
            names.push_back(file->views().front());
        else
            return {};
    }
    return names;
}

Host::Box unite(const Host::Box& a, const Host::Box& b) {
    if (a.empty() || b.empty()) return a.empty() ? b : a;
    return {std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

/// Where any of the files has pixels of the view.
Host::Box boxOf(const ComparedFiles& files, const ComparedView& view) {
    Host::Box box = unite(files.a.visibleBox(view.inA), files.b.visibleBox(view.inB));
    return files.truth ? unite(box, files.truth->visibleBox(view.inTruth)) : box;
}

std::optional<MeasuredPair> measurePair(const ComparedFile& file, const std::string& label, const std::string& view) {
    if (file.views().size() < 2) return std::nullopt;
    const std::string& other = view == file.views()[0] ? file.views()[1] : file.views()[0];
    const Host::Box box = intersect(file.visibleBox(view), file.visibleBox(other));
    const auto vectors = box.empty() ? std::nullopt : file.vectors(view, box);
    if (!vectors) return std::nullopt;
    const Host::SampledView sampled =
        Host::sampleThroughDisparity(file.colours(vectors->otherView, box), vectors->x, vectors->y, vectors->occlusion);
    return MeasuredPair{label, view, vectors->otherView, !vectors->occlusion.empty(),
                        Host::comparePictures(file.colours(view, box), sampled.picture, sampled.mask, checkpoint)};
}

const Host::Comparison& find(const ComparisonReport& report, const std::string& view, const std::string& first) {
    return std::find_if(report.views.begin(), report.views.end(),
                        [&](const MeasuredView& measured) { return measured.view == view && measured.first == first; })
        ->comparison;
}

std::string inNumbers(const Host::Comparison& comparison) {
    return fmt::format("PSNR {:.2f} dB, CIEDE2000 {:.2f}", comparison.psnr, comparison.meanColourDifference);
}

/// The sum of all differences in linear light, where both are finite.
double totalDifference(const Host::RgbPicture& a, const Host::RgbPicture& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.pixels(); ++i)
        if (a.finite(i) && b.finite(i))
            for (std::size_t c = 0; c < 3; ++c)
                sum += std::abs(double(a.planes[c][i]) - b.planes[c][i]);
    return sum;
}

/// The view that was worked on.
const ComparedView& mostChanged(const ComparedFiles& files, const std::vector<ComparedView>& views) {
    const ComparedView* result = &views.front();
    double largest = 0.0;
    for (const ComparedView& view : views) {
        const Host::Box box = boxOf(files, view);
        const double difference = totalDifference(files.a.colours(view.inA, box), files.b.colours(view.inB, box));
        if (difference > largest) {
            largest = difference;
            result = &view;
        }
    }
    return *result;
}

using SheetRows = std::vector<std::vector<Host::SheetTile>>;

SheetRows rowsWithTruth(const ComparedFiles& files, const ComparedView& view, const ComparisonReport& report) {
    const Host::Box box = boxOf(files, view);
    const Host::RgbPicture truth = files.truth->colours(view.inTruth, box);
    const Host::RgbPicture before = files.a.colours(view.inA, box);
    const Host::RgbPicture after = files.b.colours(view.inB, box);
    const std::string times = fmt::format("x {:g} (sRGB codes)", differenceFactor);

    SheetRows rows(2);
    rows[0] = {{fmt::format("{}, original", view.name), truth},
               {fmt::format("{}, before: {}", view.name, inNumbers(find(report, view.name, "A"))), before},
               {fmt::format("{}, after: {}", view.name, inNumbers(find(report, view.name, "B"))), after}};
    const auto& views = files.b.views();
    const auto other = std::find_if(views.begin(), views.end(), [&](const auto& name) { return name != view.inB; });
    if (other != views.end()) rows[1].push_back({*other, files.b.colours(*other, box)});
    rows[1].push_back({"|before - original| " + times, differencePicture(before, truth, differenceFactor)});
    rows[1].push_back({"|after - original| " + times, differencePicture(after, truth, differenceFactor)});
    return rows;
}

std::vector<Host::SheetTile> rowOf(const ComparedFiles& files, const ComparedView& view,
                                   const ComparisonReport& report) {
    const Host::Box box = boxOf(files, view);
    const Host::RgbPicture a = files.a.colours(view.inA, box);
    const Host::RgbPicture b = files.b.colours(view.inB, box);
    const std::string caption =
        fmt::format("|A - B| x {:g} (sRGB codes): {}", differenceFactor, inNumbers(find(report, view.name, "A")));
    return {{fmt::format("{}, A: {}", view.name, files.a.path().filename().string()), a},
            {fmt::format("{}, B: {}", view.name, files.b.path().filename().string()), b},
            {caption, differencePicture(a, b, differenceFactor)}};
}

struct ViewOfFile {
    const ComparedFile* file;
    const char* name;
    std::string view;
};

void measureDisparity(ComparisonReport& report, const std::string& view, const ViewOfFile& measured,
                      const ViewOfFile& known) {
    const Host::Box box = measured.file->visibleBox(measured.view);
    const auto own = measured.file->vectors(measured.view, box);
    const auto reference = known.file->vectors(known.view, box);
    if (!own || !reference) return;
    const auto comparison =
        Host::compareDisparity({own->x, own->y, own->occlusion}, {reference->x, reference->y, reference->occlusion});
    if (!comparison.same) report.disparities.push_back({view, measured.name, known.name, comparison});
}

}  // namespace

std::vector<ComparedView> viewsToCompare(const ComparedFiles& files, const std::optional<std::string>& wanted) {
    requireSameSize(files);
    const std::vector<const ComparedFile*> list = listed(files);
    const bool allSingle = std::all_of(list.begin(), list.end(), single);
    const auto several = std::find_if_not(list.begin(), list.end(), single);
    std::vector<std::string> candidates = several == list.end() ? files.a.views() : (*several)->views();
    if (wanted) {
        if (std::none_of(list.begin(), list.end(), [&](const auto* file) { return file->hasView(*wanted); }))
            throw CallError(fmt::format("--view: no file has a view '{}'; '{}' has {}.", *wanted,
                                        files.a.path().string(), fmt::join(files.a.views(), ", ")));
        candidates = {*wanted};
    }

    std::vector<ComparedView> views;
    for (const std::string& name : candidates) {
        const std::vector<std::string> names = findView(list, name, wanted || allSingle);
        if (names.empty()) continue;
        views.push_back({name, names[0], names[1], files.truth ? names[2] : ""});
        if (boxOf(files, views.back()).empty())
            throw Host::FileError(
                fmt::format("Cannot compare the view '{}' of '{}': it has no pixels inside the "
                            "picture.",
                            name, files.a.path().string()));
    }
    if (views.empty())
        throw CallError(wanted ? fmt::format("--view: not every file has a view '{}'.", *wanted)
                               : "the files have no view of the same name; choose one with --view.");
    return views;
}

ComparisonReport measure(const ComparedFiles& files, const std::vector<ComparedView>& views) {
    ComparisonReport report;
    for (const ComparedView& view : views) {
        const Host::Box box = boxOf(files, view);
        const Host::RgbPicture a = files.a.colours(view.inA, box);
        const Host::RgbPicture b = files.b.colours(view.inB, box);
        if (files.truth) {
            const Host::RgbPicture truth = files.truth->colours(view.inTruth, box);
            report.views.push_back({view.name, "A", "truth", Host::comparePictures(a, truth, {}, checkpoint)});
            report.views.push_back({view.name, "B", "truth", Host::comparePictures(b, truth, {}, checkpoint)});
        } else {
            report.views.push_back({view.name, "A", "B", Host::comparePictures(a, b, {}, checkpoint)});
        }
    }
    for (const ComparedView& view : views) {
        if (auto pair = measurePair(files.a, "A", view.inA)) report.pairs.push_back(std::move(*pair));
        if (auto pair = measurePair(files.b, "B", view.inB)) report.pairs.push_back(std::move(*pair));
    }
    for (const ComparedView& view : views) {
        const ComparedFile& known = files.truth ? *files.truth : files.b;
        const std::string& inKnown = files.truth ? view.inTruth : view.inB;
        const char* name = files.truth ? "truth" : "B";
        measureDisparity(report, view.name, {&files.a, "A", view.inA}, {&known, name, inKnown});
        if (files.truth) measureDisparity(report, view.name, {&files.b, "B", view.inB}, {&known, name, inKnown});
    }
    return report;
}

Host::Raster drawComparison(const ComparedFiles& files, const std::vector<ComparedView>& views,
                            const ComparisonReport& report) {
    SheetRows rows;
    if (files.truth)
        rows = rowsWithTruth(files, mostChanged(files, views), report);
    else
        for (const ComparedView& view : views)
            rows.push_back(rowOf(files, view, report));
    checkpoint();
    return Host::drawContactSheet(rows);
}

}  // namespace ViewTint::Cli
