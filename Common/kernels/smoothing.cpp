// Means and blurs along one axis. Compiled once per instruction set.
#include "Common/kernels/axisWindow.h"
#include "Common/kernels/runningLines.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = the sum of A over -radius .. radius along the axis, in that order from 0, times 1 / (2 radius + 1).
struct boxSumKernel : PerComponent<In<"A", Pattern::axis, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        bool horizontal = true;
        int radius = 3;
        float scale = 0;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(horizontal), VT_SCALAR(radius)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(scale)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        p.scale = 1.f / (2.f * static_cast<float>(p.radius) + 1.f);
        images[0].rangedAxisMask = p.horizontal - 1;
        images[0].rangeMin[0] = -p.radius;
        images[0].rangeMax[0] = p.radius;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int s = -p.radius; s <= p.radius; ++s)
            sum += A.along(s);
        O = sum * p.scale;
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        AxisWindow<boxSumKernel, T, V>::run(launch, p.radius);
    }
    template <class V, int rows>
    VT_FN void window(const Params& p, auto tap, Abreast<V, rows>& sums) {
        const int taps = 2 * p.radius + 1;
        sums.forEach([&](int k, int b) VT_INLINE_LAMBDA { sums.of[k][b] = V(0); });
        // The first taps are for the first rows only, the last for the last.
#pragma GCC unroll 4
        for (int i = 0; i < rows - 1; ++i)
            addTap<rows>(i, 0, i, tap, sums);
        for (int i = rows - 1; i < taps; ++i)
            addTap<rows>(i, 0, rows - 1, tap, sums);
#pragma GCC unroll 4
        for (int i = 1; i < rows; ++i)
            addTap<rows>(taps - 1 + i, i, rows - 1, tap, sums);
        sums.forEach([&](int k, int b) VT_INLINE_LAMBDA { sums.of[k][b] = sums.of[k][b] * p.scale; });
    }
    template <int rows, class V>
    VT_FN void addTap(int i, int firstRow, int lastRow, auto tap, Abreast<V, rows>& sums) {
#pragma GCC unroll 2
        for (int b = 0; b < registersAbreast; ++b) {
            const V value = tap(i, b);
#pragma GCC unroll 4
            for (int k = 0; k < rows; ++k)
                if (k >= firstRow && k <= lastRow) sums.of[k][b] += value;
        }
    }
};

/// The same mean for a whole line of lineLength pixels from the body's own on, by a running sum: one body a line.
/// The sum gathers rounding along the line, and NaN or infinity stay in it to the end.
struct runningBoxSumKernel : PerComponent<In<"A", Pattern::axis>, Out<"O", Pattern::axis>> {
    struct Params {
        bool horizontal = true;
        int radius = 3;
        int lineLengths[2] = {1024, 1024};
        float scale = 0;
        int lineLength = 0;
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(horizontal), VT_SCALAR(radius), VT_SCALAR(lineLengths)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(scale), VT_SCALAR(lineLength)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        p.scale = 1.f / (2.f * static_cast<float>(p.radius) + 1.f);
        p.lineLength = p.horizontal ? p.lineLengths[0] : p.lineLengths[1];
        // A line shorter than the window would be read beyond its end: no image covers this range.
        constexpr int refused = 0x40000000;
        const bool windowFits = p.radius >= 0 && p.radius < refused / 2 && p.lineLength >= 2 * p.radius + 1;
        for (int i = 0; i < 2; ++i) {
            images[i].rangedAxisMask = p.horizontal - 1;
            images[i].rangeMin[0] = 0;
            images[i].rangeMax[0] = windowFits ? p.lineLength - 1 : refused;
        }
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        const int r = p.radius;
        const int n = p.lineLength;
        const auto first = A.along(0);
        const auto last = A.along(n - 1);
        auto run = static_cast<float>(r + 1) * first;
        for (int i = 1; i <= r; ++i)
            run += A.along(i);
        O.putAlong(0, run * p.scale);
        for (int i = 1; i <= r; ++i) {
            run = (run - first) + A.along(i + r);
            O.putAlong(i, run * p.scale);
        }
        for (int i = r + 1; i < n - r; ++i) {
            run = (run - A.along(i - r - 1)) + A.along(i + r);
            O.putAlong(i, run * p.scale);
        }
        for (int i = n - r; i < n; ++i) {
            run = (run - A.along(i - r - 1)) + last;
            O.putAlong(i, run * p.scale);
        }
    }

    static constexpr bool hostFormTakesStrips = true;
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        const bool acrossRows =
            p.horizontal && launch.x1 - launch.x0 == 1 && launch.y1 - launch.y0 >= LaneTraits<V>::width;
        const bool upColumns = !p.horizontal && launch.x1 - launch.x0 >= LaneTraits<V>::width;
        if (!acrossRows && !upColumns) return runRows<runningBoxSumKernel, T, V, Reach::unit>(launch);
        for (int c = launch.c0; c < launch.c1; ++c)
            acrossRows ? runMeansAcross(launch, p.radius, p.lineLength, p.scale, c)
                       : runMeansUp(launch, p.radius, p.lineLength, p.scale, c);
    }
};

/// O = the sum over s = 0 .. radius of (A at +s + A at -s) tap[s] along the axis, in that order from 0; radius is
/// limited to 63. tap[s] is exp(-s^2 / sigma^2), a narrower bell than the usual one with 2 sigma^2, divided by the
/// sum over the whole window. tap[0] is halved, because the loop counts the centre twice.
struct symmetricConvolutionKernel : PerComponent<In<"A", Pattern::axis, EdgeMethod::clamped>, Out<"O">> {
    static constexpr int mostRadius = 63;
    struct Params {
        float sigma = 1;
        int radius = 3;
        bool horizontal = true;
        float taps[mostRadius + 1] = {};
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(sigma), VT_SCALAR(radius), VT_SCALAR(horizontal)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(taps)}};
    VT_FN int limited(int radius) { return radius < mostRadius ? radius : mostRadius; }
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        const int radius = limited(p.radius);
        images[0].rangedAxisMask = p.horizontal - 1;
        images[0].rangeMin[0] = -radius;
        images[0].rangeMax[0] = radius;
        if (radius < 0) return;
        const float variance = p.sigma * p.sigma;
        float total = 0;
        for (int i = 0; i <= radius; ++i) {
            const float exponent = -static_cast<float>(i * i) / variance;
            p.taps[i] = exponent <= -88.f ? 0.f : exp(exponent);
            total += 2.f * p.taps[i];
        }
        total -= p.taps[0];
        for (int i = 0; i <= radius; ++i)
            p.taps[i] /= total;
        p.taps[0] *= 0.5f;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        const int radius = limited(p.radius);
        for (int s = 0; s <= radius; ++s)
            sum += (A.along(s) + A.along(-s)) * p.taps[s];
        O = sum;
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        AxisWindow<symmetricConvolutionKernel, T, V>::run(launch, limited(p.radius));
    }
    /// With each step outward all rows but one find their two taps in the neighbouring row's registers.
    template <class V, int rows>
    VT_FN void window(const Params& p, auto tap, Abreast<V, rows>& sums) {
        const int radius = limited(p.radius);
        Abreast<V, rows> up, down;
        sums.forEach([&](int k, int b) VT_INLINE_LAMBDA {
            up.of[k][b] = down.of[k][b] = tap(radius + k, b);
            sums.of[k][b] = V(0) + (up.of[k][b] + down.of[k][b]) * p.taps[0];
        });
        for (int s = 1; s <= radius; ++s)
#pragma GCC unroll 2
            for (int b = 0; b < registersAbreast; ++b) {
#pragma GCC unroll 4
                for (int k = 1; k < rows; ++k) {
                    up.of[k - 1][b] = up.of[k][b];
                    down.of[rows - k][b] = down.of[rows - k - 1][b];
                }
                up.of[rows - 1][b] = tap(radius + rows - 1 + s, b);
                down.of[0][b] = tap(radius - s, b);
#pragma GCC unroll 4
                for (int k = 0; k < rows; ++k)
                    sums.of[k][b] += (up.of[k][b] + down.of[k][b]) * p.taps[s];
            }
    }
};

#define SMOOTHING(K)                  \
    K(boxSumKernel, VT_SAME_2)        \
    K(runningBoxSumKernel, VT_SAME_2) \
    K(symmetricConvolutionKernel, VT_SAME_2)

VT_FAMILY(smoothing, SMOOTHING)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
