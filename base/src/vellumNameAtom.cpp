#include "base/NameAtom.h"

#include <mutex>

namespace Cobalt::Base {

NameTable::NameTable() {
    intern("");
}

std::uint32_t NameTable::intern(std::string_view name) {
    if (const std::uint32_t known = find(name); known != 0) return known;
    const std::unique_lock writing(lock_);
    // Another thread may have added the name between the two locks.
    if (const auto found = handles_.find(name); found != handles_.end()) return found->second;
    const auto handle = static_cast<std::uint32_t>(names_.size());
    handles_.emplace(names_.emplace_back(name), handle);
    return handle;
}

std::uint32_t NameTable::find(std::string_view name) const {
    const std::shared_lock reading(lock_);
    const auto found = handles_.find(name);
    return found == handles_.end() ? 0 : found->second;
}

const std::string& NameTable::name(std::uint32_t handle) const {
    const std::shared_lock reading(lock_);
    return names_.at(handle);
}

}  // namespace Cobalt::Base
