#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "host/sdk/Channel.h"

namespace Fresco::Image {

/// A set of channels in ascending order of their numbers; component i of a plane is the i-th channel of its set.
class ChannelSet {
public:
    ChannelSet() = default;
    ChannelSet(std::initializer_list<Channel> channels) {
        for (const Channel channel : channels)
            insert(channel);
    }
    /// Bit n stands for channel n + 1.
    static ChannelSet fromMask(std::uint32_t mask) {
        ChannelSet set;
        for (Channel channel = 1; mask != 0; ++channel, mask >>= 1)
            if (mask & 1) set.channels_.push_back(channel);
        return set;
    }

    bool empty() const { return channels_.empty(); }
    std::size_t size() const { return channels_.size(); }
    auto begin() const { return channels_.begin(); }
    auto end() const { return channels_.end(); }

    void insert(Channel channel) {
        const auto place = std::lower_bound(channels_.begin(), channels_.end(), channel);
        if (channel != noChannel && (place == channels_.end() || *place != channel)) channels_.insert(place, channel);
    }
    void insert(const ChannelSet& other) {
        for (const Channel channel : other)
            insert(channel);
    }
    void clear() { channels_.clear(); }

    bool contains(Channel channel) const { return indexOf(channel) >= 0; }
    /// True when every channel of `other` is here.
    bool contains(const ChannelSet& other) const { return std::includes(begin(), end(), other.begin(), other.end()); }
    bool intersects(const ChannelSet& other) const {
        return std::any_of(other.begin(), other.end(), [this](Channel channel) { return contains(channel); });
    }
    /// The position of a channel in the order, or -1.
    int indexOf(Channel channel) const {
        const auto place = std::lower_bound(channels_.begin(), channels_.end(), channel);
        return place != channels_.end() && *place == channel ? static_cast<int>(place - channels_.begin()) : -1;
    }

    friend bool operator==(const ChannelSet&, const ChannelSet&) = default;

private:
    std::vector<Channel> channels_;
};

}  // namespace Fresco::Image
