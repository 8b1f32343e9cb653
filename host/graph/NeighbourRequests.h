#pragma once

#include <set>
#include <span>
#include <string>

#include "host/graph/ChannelRoles.h"
#include "host/graph/ControlValues.h"

namespace ViewTint::Host {

/// What an operator asks of other frames than the one that it renders.
struct NeighbourRequests {
    int reach = 0;                     ///< how far away the furthest of them lies
    std::set<std::string> channels{};  ///< of any of them, as files name channels
};

/// Asks the operator itself, by its requests. `views` are the project's views. Throws SettingError.
NeighbourRequests neighbourRequests(const ControlValues& controls, const ChannelRoles& roles,
                                    std::span<const std::string> views);

}  // namespace ViewTint::Host
