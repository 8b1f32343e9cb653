#include "host/packing/ColourCast.h"

#include <cmath>
#include <cstddef>

namespace ViewTint::Host {

void applyCast(const ColourCast& cast, int component, std::vector<float>& plane) {
    const std::size_t c = std::size_t(component);
    for (float& value : plane) {
        const double size = std::pow(std::abs(double(value)), cast.gamma[c]);
        value = float(cast.gain[c] * std::copysign(size, value) + cast.offset[c]);
    }
}

}  // namespace ViewTint::Host
