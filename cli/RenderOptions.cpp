#include "cli/RenderOptions.h"

#include <fmt/format.h>

#include "cli/Printing.h"
#include "host/sequence/FramePattern.h"

namespace ViewTint::Cli {

bool isPerView(const RenderOptions& options) {
    return Host::nameForView(options.input, options.views.front()).has_value();
}

Host::ChannelRoles rolesOf(const RenderOptions& options) {
    Host::ChannelRoles roles;
    for (const std::string& assignment : options.channels)
        roles.assign(assignment);
    return roles;
}

void warnOfOddSettings(const Host::ControlPanel& panel) {
    for (const std::string& name : panel.givenInVain())
        complain(
            fmt::format("{} has no effect together with the other values; 'viewtint controls' with the same values "
                        "shows what is enabled.",
                        name));
    // The node is defined to convert the picture of one block size to Lab twice where it refills occlusions.
    constexpr double basic = 0, none = 2;
    if (panel.value("matchingMode") != basic && panel.value("samples") == 1 &&
        panel.value("occlusionCorrection") != none)
        complain(
            "one block size together with refilled occlusions gives false colours; choose --samples 2 or more, or "
            "--occlusionCorrection None.");
}

std::unique_ptr<Host::ImageCacheDirectory> openCache(const RenderOptions& options) {
    if (options.cacheFolder.empty()) return nullptr;
    return std::make_unique<Host::ImageCacheDirectory>(options.cacheFolder, options.cacheBytes);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::shared_ptr<const Host::MultiViewFile> openMask(const std::filesystem::path& path) {
    return std::make_shared<Host::MultiViewFile>(Host::MultiViewFile::open(path));
}

}  // namespace ViewTint::Cli
