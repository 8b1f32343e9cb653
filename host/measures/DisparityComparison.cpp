#include "host/measures/DisparityComparison.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>

namespace ViewTint::Host {

DisparityComparison compareDisparity(const DisparityPlanes& measured, const DisparityPlanes& known) {
    const std::size_t pixels = known.x.size();
    const auto fits = [&](std::span<const float> plane, bool optional) {
        return plane.size() == pixels || (optional && plane.empty());
    };
    for (const DisparityPlanes* planes : {&measured, &known})
        if (!fits(planes->x, false) || !fits(planes->y, false) || !fits(planes->occlusion, true))
            throw std::invalid_argument("disparities of one size are compared");
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    constexpr float half = 0.5f;
    const bool masks = !measured.occlusion.empty() && !known.occlusion.empty();
    std::size_t visible = 0, within1 = 0, within2 = 0, agree = 0;
    DisparityComparison result{.same = true};
    for (std::size_t i = 0; i < pixels; ++i) {
        const double distance = std::hypot(measured.x[i] - known.x[i], measured.y[i] - known.y[i]);
        result.same = result.same && distance == 0;
        if (masks) agree += (measured.occlusion[i] >= half) == (known.occlusion[i] >= half) ? 1 : 0;
        if (!known.occlusion.empty() && known.occlusion[i] >= half) continue;
        ++visible;
        within1 += distance < 1 ? 1 : 0;
        within2 += distance < 2 ? 1 : 0;
    }
    const auto share = [&](std::size_t part, std::size_t all) {
        return all > 0 ? static_cast<double>(part) / static_cast<double>(all) : none;
    };
    result.within1 = share(within1, visible);
    result.within2 = share(within2, visible);
    result.occlusionAgrees = masks ? share(agree, pixels) : none;
    return result;
}

}  // namespace ViewTint::Host
