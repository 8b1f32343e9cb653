#include "host/graph/ChannelRoles.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/graph/SettingError.h"

namespace ViewTint::Host {

ChannelRoles::ChannelRoles() {
    using namespace Fresco::Image;
    roles_ = {{redChannel, "red", "R"},
              {greenChannel, "green", "G"},
              {blueChannel, "blue", "B"},
              {alphaChannel, "alpha", "A"}};
    for (Channel channel = firstDisparityChannel; channel < firstDisparityChannel + 4; ++channel) {
        roles_.push_back({channel, channelName(channel), channelName(channel)});
    }
    const std::string occlusion = "mask_occlusion.alpha";
    roles_.push_back({getChannel(occlusion, true), occlusion, occlusion});
}

void ChannelRoles::assign(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == assignment.size()) {
        throw SettingError(
            fmt::format("'{}' assigns no channel; write ROLE=NAME, for example red=beauty.R.", assignment));
    }
    const std::string wanted = assignment.substr(0, equals);
    std::string known;
    for (Role& role : roles_) {
        const bool shortName =
            role.channel <= Fresco::Image::alphaChannel && wanted.size() == 1 && (wanted[0] | 0x20) == role.name[0];
        if (shortName || wanted == role.name) {
            role.fileChannel = assignment.substr(equals + 1);
            role.chosen = true;
            return;
        }
        known += (known.empty() ? "" : ", ") + role.name;
    }
    throw SettingError(fmt::format("There is no channel role '{}'; the roles are: {}.", wanted, known));
}

const ChannelRoles::Role* ChannelRoles::find(Fresco::Image::Channel channel) const {
    const auto found = std::ranges::find(roles_, channel, &Role::channel);
    return found == roles_.end() ? nullptr : &*found;
}

}  // namespace ViewTint::Host
