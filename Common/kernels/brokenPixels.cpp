// Pixels whose values are none. Compiled once per instruction set.
#include "colourMath.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Components first to last, both included, as far as the image has them.
struct ComponentRange {
    int firstComponent = 0;
    int lastComponent = 2;
};

/// Whether all components in the range are values.
VT_FN auto isWhole(const ComponentRange& range, auto A) {
    auto whole = A.lane(0) == A.lane(0);
    for (int c = 0; c < A.count; ++c)
        if (c >= range.firstComponent && c <= range.lastComponent) whole = whole & isValue(A(c));
    return whole;
}

/// broken: the number of pixels of A with a component from firstComponent to lastComponent that is no value.
struct countBrokenKernel : WholePixelSum<In<"A">> {
    using Params = ComponentRange;
    template <class V>
    struct Sums {
        V broken = V(0.f);
    };
    struct Results {
        float broken = 0;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(firstComponent), VT_SCALAR(lastComponent)}};
    static constexpr ScalarDeclarations accumulators{1, {VT_RESULT(broken)}};
    VT_FN void body(const Params& p, auto& sums, auto A) { sums.broken += select(isWhole(p, A), A.lane(0), A.lane(1)); }
};

/// O = 0 at those pixels, 1 at the others.
struct wholePixelsKernel : WholePixel<In<"A">, Out<"O">> {
    using Params = ComponentRange;
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(firstComponent), VT_SCALAR(lastComponent)}};
    VT_FN void body(const Params& p, auto A, auto O) { O = select(isWhole(p, A), O.lane(1), O.lane(0)); }
};

/// O = A, or replacement where A is no value.
struct replaceBrokenKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float replacement = 0;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(replacement)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto a = A();
        O = select(isValue(a), a, O.lane(p.replacement));
    }
};

/// Components 0 to 2 of O = those of A, or of B where one of them is no value in A. A fourth is that of A.
struct mendPixelsKernel : WholePixel<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto B, auto O) {
        const auto whole = isWhole({}, A);
        for (int c = 0; c < O.count; ++c)
            O.put(c, c < 3 ? select(whole, A(c), B(c)) : A(c));
    }
};

#define BROKEN_PIXELS(K)              \
    K(countBrokenKernel, VT_SAME_1)   \
    K(wholePixelsKernel, VT_TO_ONE)   \
    K(replaceBrokenKernel, VT_SAME_2) \
    K(mendPixelsKernel, VT_SAME_3)

VT_FAMILY(brokenPixels, BROKEN_PIXELS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
