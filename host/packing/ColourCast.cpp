#include "host/packing/ColourCast.h"

#include <cmath>
#include <cstddef>
#include <vector>

namespace ViewTint::Host {

void applyCast(const ColourCast& cast, int component, int width, std::vector<float>& plane) {
    const std::size_t c = std::size_t(component), columns = std::size_t(width);
    std::vector<double> gains(columns, cast.gain[c]);
    if (cast.gainAtRightEdge && columns > 1)
        for (std::size_t x = 0; x < columns; ++x)
            gains[x] = std::lerp(cast.gain[c], (*cast.gainAtRightEdge)[c], double(x) / double(columns - 1));
    for (std::size_t i = 0; i < plane.size(); ++i) {
        const double size = std::pow(std::abs(double(plane[i])), cast.gamma[c]);
        plane[i] = float(gains[i % columns] * std::copysign(size, plane[i]) + cast.offset[c]);
    }
}

}  // namespace ViewTint::Host
