#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Vellum::Compute {

/// Where the time of renders goes: for each stage the seconds of wall time and what its kernels read and wrote.
class StageStatistics {
public:
    struct Totals {
        std::string name;
        double seconds = 0;
        std::uint64_t kernelCalls = 0;
        /// The ranges of all kernel calls times the bytes of a pixel in each of their images: what a form without reuse
        /// of what it has read would move at least.
        std::uint64_t bytes = 0;
    };

    void add(const Totals& part);
    /// In the order in which stages were first entered.
    std::vector<Totals> totals() const;

private:
    mutable std::mutex mutex_;
    std::vector<Totals> totals_;
};

/// From now on stages are counted in `statistics`; null ends the counting. Stages that have begun stay where they are.
void countStages(std::shared_ptr<StageStatistics> statistics);

/// A stage of the calling thread's work, from construction to destruction. A stage within a stage interrupts the outer
/// one. Costs nothing while nobody counts.
class Stage {
public:
    /// `name` must outlive the stage.
    explicit Stage(const char* name);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    /// Counts a kernel call in the calling thread's current stage.
    static void countKernelCall(std::uint64_t bytes);
    /// True while the calling thread's work is counted.
    static bool counting();

private:
    void begin();
    void end();

    std::shared_ptr<StageStatistics> statistics_;
    Stage* outer_ = nullptr;
    StageStatistics::Totals totals_;
    std::chrono::steady_clock::time_point since_;
};

}  // namespace Vellum::Compute
