#include "host/measures/ViewSampling.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace ViewTint::Host {

namespace {

/// A neighbour of weight 0 isn't looked at: it may be NaN.
float mix(float a, float b, double share) {
    return share == 0.0 ? a : float((1.0 - share) * a + share * b);
}

float sampleBilinear(const RgbPicture& picture, const std::vector<float>& plane, double x, double y) {
    const int x0 = int(x);
    const int y0 = int(y);
    const int x1 = std::min(x0 + 1, picture.width - 1);
    const int y1 = std::min(y0 + 1, picture.height - 1);
    const float lower = mix(plane[picture.index(x0, y0)], plane[picture.index(x1, y0)], x - x0);
    const float upper = mix(plane[picture.index(x0, y1)], plane[picture.index(x1, y1)], x - x0);
    return mix(lower, upper, y - y0);
}

}  // namespace

SampledView sampleThroughDisparity(const RgbPicture& view, std::span<const float> vectorX,
                                   std::span<const float> vectorY, std::span<const float> occlusion) {
    if (vectorX.size() != view.pixels() || vectorY.size() != view.pixels() ||
        (!occlusion.empty() && occlusion.size() != view.pixels()))
        throw std::invalid_argument("disparity and occlusion must have a value for each pixel of the view");

    SampledView result{RgbPicture(view.width, view.height), std::vector<std::uint8_t>(view.pixels())};
    for (int y = 0; y < view.height; ++y) {
        for (int x = 0; x < view.width; ++x) {
            const std::size_t i = view.index(x, y);
            const double atX = double(x) + vectorX[i];
            const double atY = double(y) + vectorY[i];
            // Written so that NaN fails.
            const bool inside = atX >= 0.0 && atX <= view.width - 1.0 && atY >= 0.0 && atY <= view.height - 1.0;
            if (!inside || (!occlusion.empty() && !(occlusion[i] < 0.5f))) continue;
            result.mask[i] = 1;
            for (std::size_t c = 0; c < 3; ++c)
                result.picture.planes[c][i] = sampleBilinear(view, view.planes[c], atX, atY);
        }
    }
    return result;
}

}  // namespace ViewTint::Host
