#include "base/Ensure.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Cobalt::Base {

namespace {

#ifdef NDEBUG
constexpr OnBrokenContract defaultChoice = OnBrokenContract::raise;
#else
constexpr OnBrokenContract defaultChoice = OnBrokenContract::stop;
#endif

std::atomic<OnBrokenContract> currentChoice{defaultChoice};

}  // namespace

OnBrokenContract setOnBrokenContract(OnBrokenContract choice) {
    return currentChoice.exchange(choice);
}

void contractBroken(const char* condition, const std::string& details, std::source_location where) {
    if (currentChoice.load() == OnBrokenContract::stop) {
        fmt::print(stderr, "{}:{}: broken contract: {}{}{}\n    in {}\n", where.file_name(), where.line(), condition,
                   details.empty() ? "" : ": ", details, where.function_name());
        std::fflush(stderr);
        std::abort();
    }
    ContractViolation violation(details.empty() ? "An internal check failed: %%(Condition)%%."
                                                : "An internal check failed: %%(Condition)%%: %%(Details)%%.");
    violation.set("Condition", condition);
    violation.set("Details", details);
    raise(std::move(violation), where);
}

}  // namespace Cobalt::Base
