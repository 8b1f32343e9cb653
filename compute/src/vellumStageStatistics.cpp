#include "compute/StageStatistics.h"

#include <algorithm>
#include <utility>

namespace Vellum::Compute {

namespace {

std::mutex currentMutex;
std::shared_ptr<StageStatistics> currentStatistics;

std::shared_ptr<StageStatistics> current() {
    const std::scoped_lock lock(currentMutex);
    return currentStatistics;
}

thread_local Stage* innermost = nullptr;

}  // namespace

void StageStatistics::add(const Totals& part) {
    const std::scoped_lock lock(mutex_);
    auto found = std::find_if(totals_.begin(), totals_.end(), [&](const Totals& t) { return t.name == part.name; });
    if (found == totals_.end()) found = totals_.insert(found, Totals{.name = part.name});
    found->seconds += part.seconds;
    found->kernelCalls += part.kernelCalls;
    found->bytes += part.bytes;
}

std::vector<StageStatistics::Totals> StageStatistics::totals() const {
    const std::scoped_lock lock(mutex_);
    return totals_;
}

void countStages(std::shared_ptr<StageStatistics> statistics) {
    const std::scoped_lock lock(currentMutex);
    currentStatistics = std::move(statistics);
}

Stage::Stage(const char* name) : statistics_(current()) {
    if (!statistics_) return;
    outer_ = std::exchange(innermost, this);
    if (outer_) outer_->end();
    totals_.name = name;
    statistics_->add(totals_);  // takes the stage's place in the order
    begin();
}

Stage::~Stage() {
    if (!statistics_) return;
    end();
    innermost = outer_;
    if (outer_) outer_->begin();
}

void Stage::begin() {
    since_ = std::chrono::steady_clock::now();
}

void Stage::end() {
    totals_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - since_).count();
    statistics_->add(totals_);
    totals_.kernelCalls = totals_.bytes = 0;
}

void Stage::countKernelCall(std::uint64_t bytes) {
    if (!innermost) return;
    ++innermost->totals_.kernelCalls;
    innermost->totals_.bytes += bytes;
}

bool Stage::counting() {
    return innermost != nullptr;
}

}  // namespace Vellum::Compute
