// Copying and filling. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = A.
struct copyKernel : PerComponent<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) { O = A(); }
};

/// O = A at the nearest pixel of A's box, so that a larger O repeats A's border.
struct copyClampedKernel : PerComponent<In<"A", Pattern::point, EdgeMethod::clamped>, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) { O = A(); }
};

/// O component destChannel = A component sourceChannel; the other components stay. Does nothing where either image
/// lacks its component.
struct copyChannelKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        int sourceChannel = 0;
        int destChannel = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(sourceChannel), VT_SCALAR(destChannel)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        if (p.sourceChannel < 0 || p.sourceChannel >= A.count || p.destChannel < 0 || p.destChannel >= O.count) return;
        O.put(p.destChannel, A(p.sourceChannel));
    }
};

/// O component c = A component c for c from firstChannel to lastChannel, both included, as far as both images have it.
struct copyChannelRangeKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        int firstChannel = 0;
        int lastChannel = 3;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(firstChannel), VT_SCALAR(lastChannel)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        constexpr int both = A.count < O.count ? A.count : O.count;
        for (int c = 0; c < both; ++c)
            if (c >= p.firstChannel && c <= p.lastChannel) O.put(c, A(c));
    }
};

/// O = 0, also for unsigned images.
struct clearKernel : PerComponent<Out<"O">> {
    VT_FN void body(const Params&, auto O) { O = O.lane(0); }
};

/// O component c = value[c].
struct fillConstantKernel : PerComponent<Out<"O">> {
    struct Params {
        float value[4] = {0, 0, 0, 0};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(value)}};
    VT_FN void body(const Params& p, auto O) { O = O.lane(p.value[O.component]); }
};

/// O component c = value[c] where the mask M is above 0, or with `invert` where it is exactly 0; other pixels stay. A
/// negative mask or NaN writes nothing either way.
struct fillWhereMaskKernel : WholePixel<Out<"O">, In<"M">> {
    struct Params {
        float value[4] = {0, 0, 0, 0};
        bool invert = false;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(value), VT_SCALAR(invert)}};
    VT_FN void body(const Params& p, auto O, auto M) {
        const auto m = M();
        for (int c = 0; c < O.count; ++c) {
            const auto kept = O(c);
            const auto value = O.lane(p.value[c]);
            O.put(c, p.invert ? select(m == O.lane(0), value, kept) : select(m > O.lane(0), value, kept));
        }
    }
};

#define COPYING(K)                         \
    K(copyKernel, VT_SAME_2)               \
    K(copyClampedKernel, VT_SAME_2)        \
    K(copyChannelKernel, VT_PAIRS)         \
    K(copyChannelRangeKernel, VT_PAIRS)    \
    K(clearKernel, VT_SAME_1_AND_UNSIGNED) \
    K(fillConstantKernel, VT_SAME_1)       \
    K(fillWhereMaskKernel, VT_TO_ONE)

VT_FAMILY(copying, COPYING)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
