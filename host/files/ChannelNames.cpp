#include "host/files/ChannelNames.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace ViewTint::Host {

ViewChannel splitViewName(const std::string& fileName, const std::vector<std::string>& views) {
    const std::size_t lastDot = fileName.rfind('.');
    if (lastDot != std::string::npos && lastDot > 0) {
        const std::size_t dotBefore = fileName.rfind('.', lastDot - 1);
        const std::size_t start = dotBefore == std::string::npos ? 0 : dotBefore + 1;
        const std::string candidate = fileName.substr(start, lastDot - start);
        if (std::ranges::find(views, candidate) != views.end()) {
            return {candidate, fileName.substr(0, start) + fileName.substr(lastDot + 1)};
        }
    }
    return {views.front(), fileName};
}

std::string joinViewName(const std::string& channel, const std::string& view, const std::string& defaultView) {
    if (view == defaultView) return channel;
    const std::size_t lastDot = channel.rfind('.');
    const std::size_t start = lastDot == std::string::npos ? 0 : lastDot + 1;
    return channel.substr(0, start) + view + "." + channel.substr(start);
}

std::string layerOfPart(const std::string& partName, const std::string& view) {
    std::string layer;
    for (std::size_t start = 0; start <= partName.size();) {
        const std::size_t end = std::min(partName.find('.', start), partName.size());
        const std::string component = partName.substr(start, end - start);
        if (!component.empty() && component != view) layer += (layer.empty() ? "" : ".") + component;
        start = end + 1;
    }
    return layer == "rgba" || layer == "RGBA" ? "" : layer;
}

std::string listNames(const std::vector<std::string>& names) {
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace ViewTint::Host
