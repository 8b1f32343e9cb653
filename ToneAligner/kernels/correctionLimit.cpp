// The limit of a local correction. Compiled once per instruction set.
#include "Common/kernels/colourMath.h"
#include "Common/kernels/softLimit.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

// Lab is a linear map of the three values f(X), f(Y), f(Z): L = 1.16 f(Y) - 0.16, and a and b hang on their differences
// only. So a change of L that leaves a and b is the same change of all three, and Lab itself needn't be computed.

/// f(X), f(Y), f(Z) of a linear RGB pixel.
VT_FN auto curvesOf(const float (&rgbToXyz)[9], const auto& image) {
    return curvesOfRgb(rgbToXyz, image(0), image(1), image(2), labKnee);
}

/// Writes components 0 to 2.
template <class V>
VT_FN void putRgbOfCurves(const float (&xyzToRgb)[9], const Triple<V>& curves, const auto& image) {
    const auto rgb = multiplyMatrix(xyzToRgb, inverseLabCurve(curves.a, labKnee), inverseLabCurve(curves.b, labKnee),
                                    inverseLabCurve(curves.c, labKnee));
    image.put(0, rgb.a);
    image.put(1, rgb.b);
    image.put(2, rgb.c);
}

/// L of f(Y), but for its constant.
inline constexpr float lightnessOfCurve = 1.16f;

/// D = how much lighter corrected is than source: the difference of the L of scaled Lab, linear RGB given. 0 where it
/// isn't finite, because one such pixel would spoil the mean of the whole picture.
struct lightnessDifferenceKernel : WholePixel<In<"source">, In<"corrected">, Out<"D">> {
    struct Params {
        float rgbToXyz[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(rgbToXyz)}};
    VT_FN void body(const Params& p, auto source, auto corrected, auto D) {
        const auto d = (curvesOf(p.rgbToXyz, corrected).b - curvesOf(p.rgbToXyz, source).b) * lightnessOfCurve;
        D = select(abs(d) < D.lane(infinity), d, D.lane(0));
    }
};

/// The difference of lightness as above, bent towards its local mean by the soft limit: corrected's L becomes source's
/// L + mean + softLimit(difference - mean); its a and b stay. Both come back in RGB from Lab.
struct limitCorrectionKernel : WholePixel<In<"mean">, Out<"source">, Out<"corrected">> {
    struct Params {
        float limit = 1;
        float softness = 0.15f;
        float rgbToXyz[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        float xyzToRgb[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{
        4, {VT_SCALAR(limit), VT_SCALAR(softness), VT_SCALAR(rgbToXyz), VT_SCALAR(xyzToRgb)}};
    VT_FN void body(const Params& p, auto mean, auto source, auto corrected) {
        const auto from = curvesOf(p.rgbToXyz, source);
        const auto to = curvesOf(p.rgbToXyz, corrected);
        const auto difference = (to.b - from.b) * lightnessOfCurve;
        const auto average = mean();
        const auto limited = softLimit(difference - average, p.limit, p.softness) + average;
        const auto change = (limited - difference) * (1 / lightnessOfCurve);
        putRgbOfCurves(p.xyzToRgb, from, source);
        putRgbOfCurves(p.xyzToRgb, Triple<decltype(to.a + change)>{to.a + change, to.b + change, to.c + change},
                       corrected);
    }
};

#define VT_DIFFERENCE(X, K) X(K, 3f_3f_1f) X(K, 3f_4f_1f) X(K, 4f_3f_1f) X(K, 4f_4f_1f)
#define VT_LIMIT(X, K) X(K, 1f_3f_3f) X(K, 1f_3f_4f) X(K, 1f_4f_3f) X(K, 1f_4f_4f)
#define CORRECTION_LIMIT(K)                     \
    K(lightnessDifferenceKernel, VT_DIFFERENCE) \
    K(limitCorrectionKernel, VT_LIMIT)

VT_FAMILY(correctionLimit, CORRECTION_LIMIT)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
