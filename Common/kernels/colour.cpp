// Conversions between colour spaces. Compiled once per instruction set.
#include "colourMath.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O component i = ((A0 m[3i]) + (A1 m[3i + 1])) + (A2 m[3i + 2]). A fourth component of O stays, of A is ignored.
struct colourMatrixKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(matrix)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto result = multiplyMatrix(p.matrix, A(0), A(1), A(2));
        O.put(0, result.a);
        O.put(1, result.b);
        O.put(2, result.c);
    }
};

/// Scaled CIE 1976 Lab of XYZ whose white point is (1, 1, 1): L = 1.16 f(Y) - 0.16, a = 5 (f(X) - f(Y)),
/// b = 2 (f(Y) - f(Z)).
struct xyzToLabKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float knee = labKnee;
    };
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(knee)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto lab = labOfXyz(A(0), A(1), A(2), p.knee);
        O.put(0, lab.a);
        O.put(1, lab.b);
        O.put(2, lab.c);
    }
};

/// The inverse of xyzToLabKernel.
struct labToXyzKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float knee = labKnee;
    };
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(knee)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto xyz = xyzOfLab(A(0), A(1), A(2), p.knee);
        O.put(0, xyz.a);
        O.put(1, xyz.b);
        O.put(2, xyz.c);
    }
};

/// colourMatrixKernel and xyzToLabKernel in one pass, with the same arithmetic; but R = G = B gives a = b = 0 exactly.
struct rgbToLabKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(matrix)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto lab = labOfRgb(p.matrix, A(0), A(1), A(2), labKnee);
        O.put(0, lab.a);
        O.put(1, lab.b);
        O.put(2, lab.c);
    }
};

/// labToXyzKernel and colourMatrixKernel in one pass, with the same arithmetic.
struct labToRgbKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(matrix)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto xyz = xyzOfLab(A(0), A(1), A(2), labKnee);
        const auto rgb = multiplyMatrix(p.matrix, xyz.a, xyz.b, xyz.c);
        O.put(0, rgb.a);
        O.put(1, rgb.b);
        O.put(2, rgb.c);
    }
};

#define VT_COLOUR_SAME(X, K) X(K, 3f_3f) X(K, 4f_4f)
#define COLOUR(K)                         \
    K(colourMatrixKernel, VT_COLOUR_SAME) \
    K(xyzToLabKernel, VT_COLOUR_PAIRS)    \
    K(labToXyzKernel, VT_COLOUR_PAIRS)    \
    K(rgbToLabKernel, VT_COLOUR_PAIRS)    \
    K(labToRgbKernel, VT_COLOUR_PAIRS)

VT_FAMILY(colour, COLOUR)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
