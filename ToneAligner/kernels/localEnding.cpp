// The end of the local modes. Compiled once per instruction set.
#include "ending.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// With C the corrected and S the source picture in Lab, N the source without its noise and A the source in RGB:
/// O = RGB of C + (A - N), the noise put back; with `preview` minus the RGB of S. Its alpha is that of A, 0 with
/// `preview`, or with `keepAlpha` and without `preview` what O holds. All this mixed over the RGB of S, with the alpha
/// of A, by M; where M is 0 A itself, and its alpha where that is no value.
struct localEndingKernel : WholePixel<In<"C">, In<"S">, In<"N">, In<"A">, In<"M">, Out<"O">> {
    struct Params {
        bool preview = false;
        bool keepAlpha = false;
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(preview), VT_SCALAR(keepAlpha), VT_SCALAR(matrix)}};
    VT_FN auto rgbOf(const Params& p, auto lab) {
        const auto xyz = xyzOfLab(lab(0), lab(1), lab(2), labKnee);
        return multiplyMatrix(p.matrix, xyz.a, xyz.b, xyz.c);
    }
    VT_FN void body(const Params& p, auto C, auto S, auto N, auto A, auto M, auto O) {
        const auto corrected = rgbOf(p, C);
        const auto source = rgbOf(p, S);
        const auto m = M();
        const auto put = [&](int c, auto match, auto view) {
            const auto noisy = match + (A(c) - N(c));
            const auto wanted = select(p.preview, noisy - view, noisy);
            O.put(c, endedColour(m, wanted, view, A(c)));
        };
        put(0, corrected.a, source.a);
        put(1, corrected.b, source.b);
        put(2, corrected.c, source.c);
        const auto alpha = A(3);
        const auto wanted = select(p.preview, alpha - alpha, select(p.keepAlpha, O(3), alpha));
        O.put(3, endedAlpha(m, wanted, alpha));
    }
};

#define VT_ENDING(X, K) X(K, 3f_3f_3f_4f_1f_4f)
#define LOCAL_ENDING(K) K(localEndingKernel, VT_ENDING)

VT_FAMILY(localEnding, LOCAL_ENDING)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
