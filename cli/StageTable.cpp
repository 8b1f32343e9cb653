#include "cli/StageTable.h"

#include <fmt/format.h>

#include <vector>

namespace ViewTint::Cli {

namespace {

using Totals = Vellum::Compute::StageStatistics::Totals;

std::string line(const Totals& stage) {
    const auto bytes = static_cast<double>(stage.bytes);
    std::string text = fmt::format("{:<24}{:>10.1f}{:>9}", stage.name, stage.seconds * 1e3, stage.kernelCalls);
    if (stage.bytes > 0 && stage.seconds > 0)
        text += fmt::format("{:>12.1f}{:>9.1f}", bytes * 1e-6, bytes * 1e-9 / stage.seconds);
    return text + "\n";
}

}  // namespace

StageTable::StageTable() : statistics_(std::make_shared<Vellum::Compute::StageStatistics>()) {
    Vellum::Compute::countStages(statistics_);
}

StageTable::~StageTable() {
    Vellum::Compute::countStages(nullptr);
}

std::string StageTable::text() const {
    std::string text = fmt::format("{:<24}{:>10}{:>9}{:>12}{:>9}\n", "stage", "ms", "kernels", "MB", "GB/s");
    Totals all{.name = "all stages"};
    for (const Totals& stage : statistics_->totals()) {
        text += line(stage);
        all.seconds += stage.seconds;
        all.kernelCalls += stage.kernelCalls;
        all.bytes += stage.bytes;
    }
    return text + line(all);
}

Json StageTable::json() const {
    std::vector<Json> stages;
    for (const Totals& stage : statistics_->totals())
        stages.push_back(Json::object({{"stage", Json::text(stage.name)},
                                       {"milliseconds", Json::number(stage.seconds * 1e3)},
                                       {"kernels", Json::integer(static_cast<long long>(stage.kernelCalls))},
                                       {"bytes", Json::integer(static_cast<long long>(stage.bytes))}}));
    return Json::array(stages);
}

}  // namespace ViewTint::Cli
