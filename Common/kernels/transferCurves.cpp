// The sRGB transfer curves. Compiled once per instruction set.
#include "colourMath.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = curve of A for components 0 to 2, as far as both images have them; of the others A's component, 0 where A has
/// none.
template <class Source, class Target, class Curve>
VT_FN void applyCurve(const Source& A, const Target& O, Curve curve) {
    constexpr int both = Source::count < Target::count ? Source::count : Target::count;
    constexpr int colours = both < 3 ? both : 3;
    for (int c = 0; c < Target::count; ++c)
        O.put(c, c < colours ? curve(A(c)) : c < Source::count ? A(c) : A.lane(0));
}

/// Code to linear light: ((v + 0.055) / 1.055)^2.4 above 0.04045 and for NaN, else v / 12.92. Alpha passes through.
struct srgbToLinearKernel : WholePixel<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) {
        applyCurve(A, O, [](auto v) { return linearOfSrgb(v); });
    }
};

/// Linear light to code: 1.055 v^(1 / 2.4) - 0.055 above 0.0031308 and for NaN, else 12.92 v. Alpha passes through.
struct linearToSrgbKernel : WholePixel<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) {
        applyCurve(A, O, [](auto v) { return srgbOfLinear(v); });
    }
};

#define TRANSFER_CURVES(K)          \
    K(srgbToLinearKernel, VT_PAIRS) \
    K(linearToSrgbKernel, VT_PAIRS)

VT_FAMILY(transferCurves, TRANSFER_CURVES)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
