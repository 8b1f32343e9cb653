// Pixels whose values are no colours. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Whether a value can take part in sums of squares: neither NaN nor infinite nor beyond the brightest light there is.
template <class V>
VT_FN auto isColour(V value) {
    return abs(value) <= V(1e12f);
}

/// V = 0 where components 0 to 2 of S or T are no colour; what it was elsewhere. `broken`: the number of such pixels.
struct brokenPixelsKernel : WholePixelSum<In<"S">, In<"T">, Out<"V">> {
    template <class V>
    struct Sums {
        V broken = V(0.f);
    };
    struct Results {
        float broken = 0;
    };
    static constexpr ScalarDeclarations accumulators{1, {VT_RESULT(broken)}};
    VT_FN void body(const Params&, auto& sums, auto S, auto T, auto V) {
        auto whole = isColour(S(0)) & isColour(T(0));
        for (int c = 1; c < 3; ++c)
            whole = whole & isColour(S(c)) & isColour(T(c));
        sums.broken += select(whole, V.lane(0), V.lane(1));
        V = select(whole, V(), V.lane(0));
    }
};

/// O = components 0 to 2 of A, black in the pixels whose values are no colour.
struct wholePixelsKernel : WholePixel<In<"A">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto O) {
        const auto whole = isColour(A(0)) & isColour(A(1)) & isColour(A(2));
        for (int c = 0; c < 3; ++c)
            O.put(c, select(whole, A(c), O.lane(0)));
    }
};

#define VT_BROKEN(X, K) X(K, 4f_4f_1f)
#define VT_WHOLE(X, K) X(K, 4f_3f)
#define BROKEN_PIXELS(K)             \
    K(brokenPixelsKernel, VT_BROKEN) \
    K(wholePixelsKernel, VT_WHOLE)

VT_FAMILY(brokenPixels, BROKEN_PIXELS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
