#pragma once

#include <memory>
#include <string>

#include "cli/Json.h"
#include "compute/StageStatistics.h"

namespace ViewTint::Cli {

/// Counts the stages of renders from construction to destruction.
class StageTable {
public:
    StageTable();
    ~StageTable();
    StageTable(const StageTable&) = delete;
    StageTable& operator=(const StageTable&) = delete;

    /// One line for each stage: milliseconds, kernel calls, megabytes that kernels read and wrote, and GB/s.
    std::string text() const;
    /// The same as a list of objects, without the line of all stages.
    Json json() const;

private:
    std::shared_ptr<Vellum::Compute::StageStatistics> statistics_;
};

}  // namespace ViewTint::Cli
