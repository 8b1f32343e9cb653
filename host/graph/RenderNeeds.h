#pragma once

#include "host/graph/ChannelRoles.h"

namespace ViewTint::Host {

/// What a render looks for in a picture, and what becomes of one that lacks it.
struct RenderNeed {
    enum class Without {
        fails,
        isEstimated,  ///< if neither view has any of it; else as `fails`
        readsZeros,   ///< unless disparity is estimated, and this with it
    };
    const char* what;
    Fresco::Image::Channel first, last;  ///< of its roles
    bool ofBothViews;                    ///< or of the corrected one alone
    Without without;

    bool has(const ChannelRoles::Role& role) const { return role.channel >= first && role.channel <= last; }
};

inline constexpr RenderNeed colourNeed{"red, green and blue", Fresco::Image::redChannel, Fresco::Image::blueChannel,
                                       true, RenderNeed::Without::fails};
inline constexpr RenderNeed disparityNeed{"disparity", Fresco::Image::firstDisparityChannel,
                                          Fresco::Image::firstDisparityChannel + 3, false,
                                          RenderNeed::Without::isEstimated};
inline constexpr RenderNeed occlusionNeed{"occlusion", Fresco::Image::firstNamedChannel, ~Fresco::Image::Channel{0},
                                          false, RenderNeed::Without::readsZeros};

}  // namespace ViewTint::Host
