#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/NameAtom.h"

namespace Fresco::Image {

/// A channel's number, the same in the whole process; 0 is no channel. Numbers below 20 are fixed.
using Channel = std::uint32_t;

inline constexpr Channel noChannel = 0;
inline constexpr Channel redChannel = 1;
inline constexpr Channel greenChannel = 2;
inline constexpr Channel blueChannel = 3;
inline constexpr Channel alphaChannel = 4;
/// Four channels from here on: x and y of the left view's vectors, x and y of the right view's.
inline constexpr Channel firstDisparityChannel = 10;
inline constexpr Channel firstNamedChannel = 20;

/// Masks of fixed channels: bit n stands for channel n + 1.
inline constexpr std::uint32_t rgbMask = 0x7;
inline constexpr std::uint32_t alphaMask = 0x8;
inline constexpr std::uint32_t rgbaMask = 0xf;
inline constexpr std::uint32_t disparityMask = 0x1e00;

struct FixedChannel {
    Channel number;
    std::string_view name;
};

inline constexpr std::array<FixedChannel, 8> fixedChannels{{
    {redChannel, "red"},
    {greenChannel, "green"},
    {blueChannel, "blue"},
    {alphaChannel, "alpha"},
    {firstDisparityChannel, "disparityL.x"},
    {firstDisparityChannel + 1, "disparityL.y"},
    {firstDisparityChannel + 2, "disparityR.x"},
    {firstDisparityChannel + 3, "disparityR.y"},
}};

/// The names of all other channels. Process-wide, because operators keep numbers across graphs.
inline Cobalt::Base::NameTable& channelNames() {
    static Cobalt::Base::NameTable& names = *new Cobalt::Base::NameTable;
    return names;
}

/// The number of the channel of that name. An unknown name gets a number with `create`, else gives noChannel. Any
/// thread.
inline Channel getChannel(std::string_view name, bool create) {
    for (const FixedChannel& fixed : fixedChannels)
        if (fixed.name == name) return fixed.number;
    // Number 0 of the table is the empty name, which is no channel.
    const std::uint32_t handle = create ? channelNames().intern(name) : channelNames().find(name);
    return handle == 0 ? noChannel : firstNamedChannel - 1 + handle;
}

/// The name of a channel that exists, or an empty text.
inline std::string channelName(Channel channel) {
    for (const FixedChannel& fixed : fixedChannels)
        if (fixed.number == channel) return std::string(fixed.name);
    return channel >= firstNamedChannel ? channelNames().name(channel - firstNamedChannel + 1) : std::string();
}

}  // namespace Fresco::Image
