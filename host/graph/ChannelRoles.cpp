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
            const std::string fileChannel = assignment.substr(equals + 1);
            if (role.chosen && role.fileChannel != fileChannel)
                throw SettingError(fmt::format("{} can't be read from two channels, '{}' and '{}'; choose one.",
                                               role.name, role.fileChannel, fileChannel));
            role.fileChannel = fileChannel;
            role.chosen = true;
            return;
        }
        known += (known.empty() ? "" : ", ") + role.name;
    }
    throw SettingError(fmt::format("There is no channel role '{}'; the roles are: {}.", wanted, known));
}

std::map<std::string, std::vector<ChannelRoles::Role>> ChannelRoles::sharing() const {
    std::map<std::string, std::vector<Role>> sharing;
    for (const Role& role : roles_)
        sharing[role.fileChannel].push_back(role);
    std::erase_if(sharing, [](const auto& channel) { return channel.second.size() < 2; });
    return sharing;
}

ChannelRoles ChannelRoles::fallingBack(const std::function<bool(const std::string&)>& there) const {
    ChannelRoles roles = *this;
    for (Role& role : roles.roles_)
        if (!there(role.fileChannel) && there(role.usualChannel)) role.fileChannel = role.usualChannel;
    return roles;
}

const ChannelRoles::Role* ChannelRoles::find(Fresco::Image::Channel channel) const {
    const auto found = std::ranges::find(roles_, channel, &Role::channel);
    return found == roles_.end() ? nullptr : &*found;
}

}  // namespace ViewTint::Host
