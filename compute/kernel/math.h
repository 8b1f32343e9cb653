// Elementary functions of the kernel language: the same operations in the same order on every target, so the same bits.
// Errors are the largest found against double precision over the stated range; the tests measure them again.
#pragma once

#include "lane.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

inline constexpr float infinity = __builtin_inff();
inline constexpr float notANumber = __builtin_nanf("");
inline constexpr float smallestNormal = 1.17549435e-38f;

/// Limits v to lo .. hi, the upper limit first: with lo > hi the result is lo. NaN stays NaN.
template <class V>
VT_FN V clampTo(V v, V lo, V hi) {
    v = select(v > hi, hi, v);
    return select(v < lo, lo, v);
}

/// Exact. NaN stays NaN.
template <class F>
VT_FN F abs(F x) {
    return fromBits(bitsOf(x) & IntOf<F>(0x7fffffff));
}

/// The largest whole number not above x. Exact; NaN and infinities stay themselves.
template <class F>
VT_FN F floor(F x) {
    auto fractional = abs(x) < F(8388608.f);                   // from 2^23 on every float is whole
    F toward = toFloat(toInt(select(fractional, x, F(0.f))));  // of either sign where it is 0
    F below = select(toward > x, toward - F(1.f), toward);
    return select(fractional, select(toward == x, x, below), x);
}

/// The nearest whole number, halves away from zero. Exact, also just below a half; NaN and infinities stay themselves.
template <class F>
VT_FN F roundHalfAway(F x) {
    const F size = abs(x);
    const F below = floor(size);
    // size + 0.5 would itself be rounded.
    const F whole = select(size - below >= F(0.5f), below + F(1.f), below);
    return fromBits(bitsOf(whole) | (bitsOf(x) & IntOf<F>(static_cast<int>(0x80000000))));
}

/// e^x, 1 ulp. Infinity above 88.376 (just below the largest float), 0 below -87.337 (no denormals), NaN for NaN.
/// Reduced to |r| <= ln(2) / 2, then the Cephes library's polynomial for single precision.
template <class F>
VT_FN F exp(F x) {
    F r = clampTo(x, F(-87.3365448f), F(88.3762627f));
    F n = floor(r * F(1.44269504f) + F(0.5f));
    r = r - n * F(0.693359375f);
    r = r - n * F(-2.12194440e-4f);
    F y = F(1.9875691500e-4f);
    y = y * r + F(1.3981999507e-3f);
    y = y * r + F(8.3334519073e-3f);
    y = y * r + F(4.1665795894e-2f);
    y = y * r + F(1.6666665459e-1f);
    y = y * r + F(5.0000001201e-1f);
    y = y * r * r + r + F(1.f);
    // NaN can't be made an integer the same way everywhere; its y is NaN already.
    F whole = select(n == n, n, F(0.f));
    y = y * fromBits((toInt(whole) + IntOf<F>(127)) << 23);
    y = select(x > F(88.3762627f), infinity, y);
    return select(x < F(-87.3365448f), F(0.f), y);
}

/// 2^x for x of -120 .. 120, 2.5 ulp, at a third of the cost of exp; meaningless beyond. Rounds to a whole power by
/// adding a number whose last bit is worth 1; the polynomial has the least largest relative error, 1e-7, on -1/2 ..
/// 1/2.
template <class F>
VT_FN F exp2OfModerate(F x) {
    constexpr float rounder = 12582912.f;  // 1.5 * 2^23
    const F shifted = x + F(rounder);
    const F r = x - (shifted - F(rounder));
    F y = F(1.326472731e-3f);
    y = y * r + F(9.671512991e-3f);
    y = y * r + F(5.550733581e-2f);
    y = y * r + F(2.402224243e-1f);
    y = y * r + F(6.931470037e-1f);
    y = y * r + F(1.f);
    return fromBits(bitsOf(y) + (bitsOf(shifted) << 23));
}

/// Natural logarithm of a positive normal number, 1 ulp; what else is given comes out finite and meaningless.
/// The Cephes library's polynomial for single precision.
template <class F>
VT_FN F logOfNormal(F x) {
    auto bits = bitsOf(x);
    F m = fromBits((bits & IntOf<F>(0x007fffff)) | IntOf<F>(0x3f000000));
    F e = toFloat((bits >> 23) - IntOf<F>(126));
    auto low = m < F(0.707106781f);
    F d = select(low, m + m, m) - F(1.f);
    e = select(low, e - F(1.f), e);
    F z = d * d;
    F y = F(7.0376836292e-2f);
    y = y * d + F(-1.1514610310e-1f);
    y = y * d + F(1.1676998740e-1f);
    y = y * d + F(-1.2420140846e-1f);
    y = y * d + F(1.4249322787e-1f);
    y = y * d + F(-1.6668057665e-1f);
    y = y * d + F(2.0000714765e-1f);
    y = y * d + F(-2.4999993993e-1f);
    y = y * d + F(3.3333331174e-1f);
    y = y * d * z;
    y = y + e * F(-2.12194440e-4f);
    y = y - z * F(0.5f);
    return d + y + e * F(0.693359375f);
}

/// Natural logarithm, 1 ulp. -infinity for 0 and for denormals, NaN for negative numbers and NaN.
template <class F>
VT_FN F log(F x) {
    F y = logOfNormal(x);
    y = select(x == F(infinity), infinity, y);
    y = select(x < F(smallestNormal), -infinity, y);
    return select(x >= F(0.f), y, notANumber);
}

/// x^p as exp(p log x), for p > 0; the error is that of the logarithm times p log x: 4 ulp for 1 / 2.4 and 16 ulp for
/// 2.4 on 0 .. 1. 0 for 0 and for denormals, infinity for infinity, NaN for negative numbers and NaN.
template <class F>
VT_FN F pow(F x, float p) {
    F y = exp(F(p) * logOfNormal(x));
    y = select(x == F(infinity), infinity, y);
    y = select(x < F(smallestNormal), F(0.f), y);
    return select(x >= F(0.f), y, notANumber);
}

/// x^(-1/n) of a positive normal number, guessed from the exponent to within 3.6 percent; `constant` belongs to n.
template <int n, int constant, class F>
VT_FN F guessInverseRoot(F x) {
    return fromBits(IntOf<F>(constant) - toInt(toFloat(bitsOf(x)) * F(1.f / n)));
}

// Powers by roots. With a guess y of x^(-1/n) and h = 1 - x y^n, what is sought is a product of powers of x and y times
// (1 - h)^p exactly; that power is a polynomial, fitted on the interval that the guess leaves. Short chains of
// operations count here: colour conversions are such powers, and wait for them.

/// Cube root of a positive normal number, 2.5 ulp; what else is given comes out meaningless. x y^2 (1 - h)^(-2/3).
template <class F>
VT_FN F cbrtOfNormal(F x) {
    const F y = guessInverseRoot<3, 0x54a20000>(x);
    const F y2 = y * y;
    const F h = F(1.f) - (x * y) * y2;
    const F h2 = h * h;
    const F high = (F(0.49381295f) + F(0.4593385f) * h) + h2 * F(0.4274826f);
    const F r = ((F(2.f / 3) + F(0.5555279f) * h) + h2 * high) * h;
    const F root = x * y2;
    return root + root * r;
}

/// x^(5/12) of a positive normal number, 4.5 ulp; what else is given comes out meaningless. s^2 y (1 - h)^(-1/3) with
/// the fourth root s in place of x.
template <class F>
VT_FN F pow5Over12OfNormal(F x) {
    const F s = sqrt(sqrt(x));
    const F y = guessInverseRoot<3, 0x54a20000>(s);
    const F h = F(1.f) - (s * y) * (y * y);
    const F h2 = h * h;
    const F high = (F(0.17283118f) + F(0.14566329f) * h) + h2 * F(0.12650401f);
    const F r = ((F(0.33333334f) + F(0.22221693f) * h) + h2 * high) * h;
    const F power = (s * s) * y;
    return power + power * r;
}

/// x^(12/5) of a positive normal number, 6.5 ulp; what else is given comes out meaningless. (x y)^3 (1 - h)^(-3/5).
template <class F>
VT_FN F pow12Over5OfNormal(F x) {
    const F y = guessInverseRoot<5, 0x4c2b4400>(x);
    const F y2 = y * y;
    const F u = x * y;
    const F h = F(1.f) - u * (y2 * y2);
    const F h2 = h * h;
    const F high = (F(0.41584689f) + F(0.37410831f) * h) + h2 * (F(0.35736214f) + F(0.33826352f) * h);
    const F r = ((F(0.60000044f) + F(0.48000149f) * h) + h2 * high) * h;
    return ((u * u) * u) * (F(1.f) + r);
}

/// Cube root, 2.5 ulp, odd: cbrt(-x) = -cbrt(x). 0 for 0 and for denormals; infinities and NaN stay themselves.
template <class F>
VT_FN F cbrt(F x) {
    const F a = abs(x);
    F root = select(a < F(smallestNormal), F(0.f), cbrtOfNormal(a));
    root = select(a < F(infinity), root, a);
    return fromBits(bitsOf(root) | (bitsOf(x) & IntOf<F>(static_cast<int>(0x80000000))));
}

/// sin(pi x), within 2e-7. |x| must stay below 2^23; NaN for NaN and infinities.
template <class F>
VT_FN F sinPi(F x) {
    F n = floor(x + F(0.5f));
    F r = x - n;
    F z = r * r;
    F y = F(-0.00737043094f);
    y = y * z + F(0.0821458866f);
    y = y * z + F(-0.599264529f);
    y = y * z + F(2.55016404f);
    y = y * z + F(-5.16771278f);
    y = y * z + F(3.14159265f);
    y = y * r;
    F whole = select(abs(n) < F(8388608.f), n, F(0.f));
    return fromBits(bitsOf(y) ^ ((toInt(whole) & IntOf<F>(1)) << 31));
}

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
