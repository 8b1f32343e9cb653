#include "base/NearestNames.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace Cobalt::Base {

std::string lowered(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

namespace {

/// How many letters must be changed, added or left out to turn one word into the other.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = std::exchange(row[j], std::min({replaced, row[j] + 1, row[j - 1] + 1}));
        }
    }
    return row.back();
}

}  // namespace

std::vector<std::string> nearestNames(std::span<const std::string> names, std::string_view wanted) {
    const std::string target = lowered(wanted);
    std::vector<std::pair<std::size_t, std::string>> ranked;
    for (const std::string& candidate : names) {
        const std::string name = lowered(candidate);
        const bool within =
            !target.empty() && (name.find(target) != std::string::npos || target.find(name) != std::string::npos);
        ranked.emplace_back(within ? 1 : editDistance(name, target), candidate);
    }
    std::ranges::stable_sort(ranked, {}, &std::pair<std::size_t, std::string>::first);
    std::vector<std::string> nearest;
    for (std::size_t i = 0; i < std::min<std::size_t>(3, ranked.size()); ++i)
        nearest.push_back(ranked[i].second);
    return nearest;
}

}  // namespace Cobalt::Base
