// Kernels that exist to be tested: one for each way of reading and writing. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = one of the kernel language's functions of A.
struct testMathKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        int function = 0;
        float exponent = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(function), VT_SCALAR(exponent)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        auto a = A();
        switch (p.function) {
            case 0:
                O = exp(a);
                break;
            case 1:
                O = log(a);
                break;
            case 2:
                O = pow(a, p.exponent);
                break;
            case 3:
                O = cbrt(a);
                break;
            case 4:
                O = sinPi(a);
                break;
            case 5:
                O = floor(a);
                break;
            case 6:
                O = abs(a);
                break;
            case 7:
                O = clampTo(a, A.lane(0.25f), A.lane(0.75f));
                break;
            case 8:
                O = pow5Over12OfNormal(a);
                break;
            case 9:
                O = pow12Over5OfNormal(a);
                break;
            case 11:
                O = exp2OfModerate(a);
                break;
            case 12:
                O = roundHalfAway(a);
                break;
            default:
                O = sqrt(a);
                break;
        }
    }
};

/// O = the sum of A over -radius .. radius along one axis.
template <EdgeMethod E>
struct AxisSum : PerComponent<In<"A", Pattern::axis, E>, Out<"O">> {
    struct Params {
        bool horizontal = true;
        int radius = 2;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(horizontal), VT_SCALAR(radius)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        images[0].rangedAxisMask = p.horizontal - 1;
        images[0].rangeMin[0] = -p.radius;
        images[0].rangeMax[0] = p.radius;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int s = -p.radius; s <= p.radius; ++s)
            sum += A.along(s);
        O = sum;
    }
};
struct testAxisSumKernel : AxisSum<EdgeMethod::clamped> {};
struct testConstantAxisSumKernel : AxisSum<EdgeMethod::constant> {};

/// O = A at the lower left plus twice A at the upper right of a lopsided rectangle.
template <EdgeMethod E>
struct Corners : PerComponent<In<"A", Pattern::rectangle, E>, Out<"O">> {
    struct Params {
        int reach[4] = {-3, -1, 2, 4};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(reach)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        for (int i = 0; i < 2; ++i) {
            images[0].rangeMin[i] = p.reach[i];
            images[0].rangeMax[i] = p.reach[2 + i];
        }
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        O = A.at(p.reach[0], p.reach[1]) + 2.f * A.at(p.reach[2], p.reach[3]);
    }
};
struct testCornersKernel : Corners<EdgeMethod::clamped> {};
struct testConstantCornersKernel : Corners<EdgeMethod::constant> {};

/// O = A at the position that D points to, from O's own pixel.
template <EdgeMethod E>
struct Displaced : WholePixel<In<"A", Pattern::random, E>, In<"D">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto D, auto O) {
        auto x = O.column() + toInt(D(0));
        auto y = toInt(D(1)) + O.row();
        for (int c = 0; c < O.count; ++c)
            O.put(c, A.fetch(x, y, c));
    }
};
struct testDisplacedKernel : Displaced<EdgeMethod::clamped> {};
struct testConstantDisplacedKernel : Displaced<EdgeMethod::constant> {};

/// O along a line = the sum of A from the line's start. Runs on a strip one pixel thick.
struct testRunningSumKernel : PerComponent<In<"A", Pattern::axis>, Out<"O", Pattern::axis>> {
    struct Params {
        bool horizontal = true;
        int length = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(horizontal), VT_SCALAR(length)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        for (int i = 0; i < 2; ++i) {
            images[i].rangedAxisMask = p.horizontal - 1;
            images[i].rangeMin[0] = 0;
            images[i].rangeMax[0] = p.length - 1;
        }
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int i = 0; i < p.length; ++i) {
            sum += A.along(i);
            O.putAlong(i, sum);
        }
    }
};

/// The sum of A per component.
struct testSumKernel : PerComponentSum<In<"A">> {
    template <class V>
    struct Sums {
        V sum;
    };
    struct Results {
        float sum[4];
    };
    static constexpr ScalarDeclarations accumulators{1, {VT_RESULT(sum)}};
    VT_FN void body(const Params&, auto& sums, auto A) { sums.sum += A(); }
};

#define VT_DISPLACED(X, K) X(K, 1f_2f_1f) X(K, 4f_2f_4f)
#define TEST_PATTERNS(K)                         \
    K(testMathKernel, VT_SAME_2)                 \
    K(testAxisSumKernel, VT_SAME_2)              \
    K(testConstantAxisSumKernel, VT_SAME_2)      \
    K(testCornersKernel, VT_SAME_2)              \
    K(testConstantCornersKernel, VT_SAME_2)      \
    K(testDisplacedKernel, VT_DISPLACED)         \
    K(testConstantDisplacedKernel, VT_DISPLACED) \
    K(testRunningSumKernel, VT_SAME_2)           \
    K(testSumKernel, VT_SAME_1)

VT_FAMILY(testPatterns, TEST_PATTERNS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
