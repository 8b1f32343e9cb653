#pragma once

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
        std::string name;         ///< as operators call it: "red", "disparityL.x"
        std::string fileChannel;  ///< without the view's name: "R", "disparityL.x"
        bool chosen = false;      ///< by `assign`
    };

    ChannelRoles();

    /// Takes "ROLE=NAME", for example "red=beauty.R" or "mask_occlusion.alpha=occluded". R, G, B and A are understood
    /// as roles too. Throws SettingError for another form and for an unknown role.
    void assign(const std::string& assignment);

    /// All roles, in the order of red, green, blue, alpha, the disparities, the occlusion mask.
    const std::vector<Role>& all() const { return roles_; }
    /// The role of a channel number, or null.
    const Role* find(Fresco::Image::Channel channel) const;

private:
    std::vector<Role> roles_;
};

}  // namespace ViewTint::Host
