#include "host/graph/ProjectViews.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ViewTint::Host {

ProjectViews::ProjectViews(std::vector<std::string> views) : names_(std::move(views)) {
    const auto rank = [](const std::string& name) { return name == "left" ? 0 : name == "right" ? 1 : 2; };
    std::ranges::stable_sort(names_, {}, rank);
    previous_ = setCurrent(this);
}

ProjectViews::~ProjectViews() {
    setCurrent(previous_);
}

int ProjectViews::lookup_view(std::string_view name) const {
    const auto found = std::ranges::find(names_, name);
    return found == names_.end() ? -1 : static_cast<int>(found - names_.begin()) + 1;
}

const std::string* ProjectViews::name(int view) const {
    return view >= 1 && view < viewcount() ? &names_[static_cast<std::size_t>(view - 1)] : nullptr;
}

}  // namespace ViewTint::Host
