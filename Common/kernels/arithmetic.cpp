// Arithmetic on single pixels. Compiled once per instruction set.
#include "softLimit.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = 1 - A.
struct invertKernel : PerComponent<In<"A">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto O) { O = 1.f - A(); }
};

/// O = B where B > A, else A; so A where either is NaN.
struct maxKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) {
        auto a = A();
        auto b = B();
        O = select(b > a, b, a);
    }
};

/// O = A (1 with binarise) where A > threshold, else 0; so 0 for NaN.
struct thresholdKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float threshold = 0;
        bool binarise = false;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(threshold), VT_SCALAR(binarise)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        auto a = A();
        O = select(a > p.threshold, select(p.binarise, A.lane(1), a), A.lane(0));
    }
};

/// O = A value[c].
struct multiplyConstantKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float value[4] = {1, 1, 1, 1};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(value)}};
    VT_FN void body(const Params& p, auto A, auto O) { O = A() * p.value[O.component]; }
};

/// O = A + value[c].
struct addConstantKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float value[4] = {0, 0, 0, 0};
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(value)}};
    VT_FN void body(const Params& p, auto A, auto O) { O = A() + p.value[O.component]; }
};

/// O = A + B.
struct addKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) { O = A() + B(); }
};

/// O = A - B.
struct subtractKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) { O = A() - B(); }
};

/// O = A B.
struct multiplyKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) { O = A() * B(); }
};

/// O = A / B, 0 where B is 0; a B of NaN is divided by.
struct divideKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) {
        const auto b = B();
        O = select(b != O.lane(0), A() / b, O.lane(0));
    }
};

/// The product of complex numbers: component 0 is real, component 1 imaginary.
struct complexMultiplyKernel : WholePixel<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const Params&, auto A, auto B, auto O) {
        const auto aReal = A(0), aImaginary = A(1);
        const auto bReal = B(0), bImaginary = B(1);
        O.put(0, aReal * bReal - aImaginary * bImaginary);
        O.put(1, aImaginary * bReal + aReal * bImaginary);
    }
};

/// t = lower where lower > A, else A; O = upper where upper < t, else t. So NaN stays, and with lower above upper the
/// result is upper.
struct clampKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float lower = 0;
        float upper = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(lower), VT_SCALAR(upper)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        const auto a = A();
        const auto lower = A.lane(p.lower), upper = A.lane(p.upper);
        const auto t = select(lower > a, lower, a);
        O = select(upper < t, upper, t);
    }
};

/// O = A, bent into `limit` by parabolas of half width `softness` (softLimit.h); +limit for NaN and far below -limit
/// too.
struct softLimitKernel : PerComponent<In<"A">, Out<"O">> {
    struct Params {
        float limit = 1;
        float softness = 0.1f;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(limit), VT_SCALAR(softness)}};
    VT_FN void body(const Params& p, auto A, auto O) { O = softLimit(A(), p.limit, p.softness); }
};

/// O = the sum over A's components of A[c] w[c], from 0 upward; w is weights, divided by the sum of all four with
/// normalise.
struct weightedComponentSumKernel : WholePixel<In<"A">, Out<"O">> {
    struct Params {
        float weights[4] = {1.f / 3, 1.f / 3, 1.f / 3, 0};
        bool normalise = true;
        float used[4] = {};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(weights), VT_SCALAR(normalise)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(used)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {
        const float total = p.weights[0] + p.weights[1] + p.weights[2] + p.weights[3];
        for (int c = 0; c < 4; ++c)
            p.used[c] = p.normalise ? p.weights[c] / total : p.weights[c];
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int c = 0; c < A.count; ++c)
            sum += A(c) * p.used[c];
        O = sum;
    }
};

#define VT_COMPLEX(X, K) X(K, 2f_2f_2f)
#define ARITHMETIC(K)                    \
    K(invertKernel, VT_SAME_2)           \
    K(maxKernel, VT_SAME_3)              \
    K(thresholdKernel, VT_SAME_2)        \
    K(multiplyConstantKernel, VT_SAME_2) \
    K(addConstantKernel, VT_SAME_2)      \
    K(addKernel, VT_SAME_3)              \
    K(subtractKernel, VT_SAME_3)         \
    K(multiplyKernel, VT_SAME_3)         \
    K(divideKernel, VT_SAME_3)           \
    K(complexMultiplyKernel, VT_COMPLEX) \
    K(clampKernel, VT_SAME_2)            \
    K(softLimitKernel, VT_SAME_2)        \
    K(weightedComponentSumKernel, VT_TO_ONE)

VT_FAMILY(arithmetic, ARITHMETIC)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
