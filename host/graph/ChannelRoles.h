#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/sdk/Channel.h"

namespace ViewTint::Host {

/// Which of a file's channels plays which part for operators: R, G, B, A are red to alpha, all others go by their
/// own names unless told otherwise.
class ChannelRoles {
public:
    struct Role {
        Fresco::Image::Channel channel;
        std::string name;          ///< as operators call it: "red", "disparityL.x"
        std::string usualChannel;  ///< without the view's name: "R", "disparityL.x"
        std::string fileChannel = usualChannel;
        bool chosen = false;  ///< by `assign`
    };

    ChannelRoles();

    /// Takes "ROLE=NAME", for example "red=beauty.R" or "mask_occlusion.alpha=occluded". R, G, B and A are understood
    /// as roles too. Throws SettingError for another form, for an unknown role and for one that has another channel
    /// already.
    void assign(const std::string& assignment);

    /// All roles, in the order of red, green, blue, alpha, the disparities, the occlusion mask.
    const std::vector<Role>& all() const { return roles_; }
    /// Roles that were given one channel, by its name.
    std::map<std::string, std::vector<Role>> sharing() const;
    /// The same with the usual channels where only those are `there`.
    ChannelRoles fallingBack(const std::function<bool(const std::string& channel)>& there) const;
    /// The role of a channel number, or null.
    const Role* find(Fresco::Image::Channel channel) const;

private:
    std::vector<Role> roles_;
};

}  // namespace ViewTint::Host
