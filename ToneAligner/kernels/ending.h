// How every mode ends: the match, mixed over the view to correct by the user's mask. Where the mask is 0 the view
// stays, bit for bit; so where it has no colour, because there the mask is 0 too.
#pragma once

#include "Common/kernels/colourMath.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// `own` is the view's component as it came, `view` what the match is mixed over.
template <class V>
VT_FN V endedColour(V mask, V match, V view, V own) {
    return select(mask == V(0.f), own, (1.f - mask) * view + mask * match);
}

/// An alpha that is no value stays as well.
template <class V>
VT_FN V endedAlpha(V mask, V match, V own) {
    return select(isValue(own), endedColour(mask, match, own, own), own);
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
