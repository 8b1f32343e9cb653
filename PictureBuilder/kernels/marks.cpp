// Marks of what the other view doesn't show, and the choice among disparities. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// v rounded to a whole number away from zero, as an int; NaN gives 0.
VT_FN int roundedOutward(float v) {
    const float limited = clampTo(v == v ? v : 0.f, -1e9f, 1e9f);
    return toInt(limited < 0 ? floor(limited) : -floor(-limited));
}

VT_FN int smaller(int a, int b) {
    return a < b ? a : b;
}
VT_FN int larger(int a, int b) {
    return a > b ? a : b;
}

/// E = 1 where the disparity D jumps by more than `threshold` between the neighbours of a pixel, and at the pixels that
/// the jump covers or uncovers; other pixels of E stay. With `still` only the jump itself is marked. A vertical edge of
/// horizontal disparity counts, a horizontal one does not.
struct occlusionFromDisparityKernel
    : WholePixel<In<"D", Pattern::rectangle, EdgeMethod::clamped>, Out<"E", Pattern::random>> {
    struct Params {
        float threshold = 1;
        bool forward = true;
        bool still = false;
        bool fromLeft = true;
        bool fromRight = true;
        int offset = 0;
        int step = 1;
        int reach = 1;
    };
    static constexpr ScalarDeclarations scalars{6,
                                                {VT_SCALAR(threshold), VT_SCALAR(forward), VT_SCALAR(still),
                                                 VT_SCALAR(fromLeft), VT_SCALAR(fromRight), VT_SCALAR(offset)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(step), VT_SCALAR(reach)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters* imageParameters) {
        p.step = p.still ? 0 : p.forward ? 1 : -1;
        // The jump is looked for over 3 pixels of a picture 1024 wide.
        const float scaled = static_cast<float>(images[0].x1 - images[0].x0) * 0.0009765625f * 3.f;
        p.reach = larger(1, toInt(-floor(-scaled)));
        imageParameters[0].rangeMin[0] = -p.reach;
        imageParameters[0].rangeMax[0] = p.reach;
        imageParameters[0].rangeMin[1] = -1;
        imageParameters[0].rangeMax[1] = 1;
    }
    VT_FN void body(const Params& p, auto D, auto E) {
        using V = decltype(D(0));
        const V a = D.at(1, 0, 0) - D.at(-1, 0, 0);
        const V b = D.at(0, 1, 1) - D.at(0, -1, 1);
        const V c = D.at(1, 0, 1) - D.at(-1, 0, 1);
        const V e = D.at(0, 1, 0) - D.at(0, -1, 0);
        const auto jumps = (sqrt(a * a + c * c) > V(p.threshold)) | (sqrt(e * e + b * b) > V(p.threshold));
        const V q = a + b;
        const V left(p.fromLeft ? 1.f : 0.f);  // sides as lanes: 0 is never below or above itself
        const V right(p.fromRight ? 1.f : 0.f);
        const auto wanted = jumps & ((q * left < V(0.f)) | (q * right > V(0.f)));
        const V u = D.at(p.reach, 0, 0) - D.at(-p.reach, 0, 0);
        const auto covers = wanted & (u * left < V(0.f));
        const auto uncovers = wanted & (u * right > V(0.f));
        if (!any(covers | uncovers)) return;
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            int width = p.step, height = p.step, nearEnd = 0;
            if (laneOf(covers, lane)) {
                width = p.step * roundedOutward(laneOf(u, lane) - static_cast<float>(p.offset));
                height = p.step * roundedOutward(laneOf(b, lane));
                nearEnd = p.step;
            } else if (!laneOf(uncovers, lane)) {
                continue;
            }
            const int x = D.x + lane;
            const int sign = (width > 0) - (width < 0);
            E.scatter(x + smaller(sign + width, sign + nearEnd), D.y + smaller(height, 0),
                      x + larger(sign + width, sign + nearEnd), D.y + larger(height, 0), 1.f);
        }
    }
};

/// E = 1 where the pixel that the disparity points to, (x, y) + D rounded, lies outside D's box; so for NaN and
/// infinite disparities. Other pixels of E stay.
struct outOfFrameKernel : WholePixel<In<"D">, Out<"E">> {
    VT_FN void body(const Params&, auto D, auto E) {
        using V = decltype(D(0));
        const V x = roundHalfAway(toFloat(D.column()) + D(0));
        const V y = roundHalfAway(V(static_cast<float>(D.row())) + D(1));
        const auto inside = (x >= V(static_cast<float>(D.left()))) & (x < V(static_cast<float>(D.right()))) &
                            (y >= V(static_cast<float>(D.bottom()))) & (y < V(static_cast<float>(D.top())));
        E = select(inside, E(), V(1.f));
    }
};

/// O = the one of the disparities A and B whose component 0 is smaller (A only where strictly smaller), or with
/// `background` off the other one.
struct pickDisparityKernel : WholePixel<In<"A">, In<"B">, Out<"O">> {
    struct Params {
        bool background = true;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(background)}};
    VT_FN void body(const Params& p, auto A, auto B, auto O) {
        const auto smaller = A(0) < B(0);
        for (int c = 0; c < 2; ++c) {
            const auto a = A(c);
            const auto b = B(c);
            O.put(c, select(p.background, select(smaller, a, b), select(smaller, b, a)));
        }
    }
};

#define VT_DISPARITY_TO_MARK(X, K) X(K, 2f_1f)
#define VT_DISPARITIES(X, K) X(K, 2f_2f_2f)
#define MARKS(K)                                          \
    K(occlusionFromDisparityKernel, VT_DISPARITY_TO_MARK) \
    K(outOfFrameKernel, VT_DISPARITY_TO_MARK)             \
    K(pickDisparityKernel, VT_DISPARITIES)

VT_FAMILY(marks, MARKS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
