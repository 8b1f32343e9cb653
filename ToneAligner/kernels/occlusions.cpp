// What makes the mask of pixels to refill: jumps of disparity and edges in the pictures. Compiled once per instruction
// set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// V = 1 at the pixels that take part in the statistics of blocks: selected by the user's mask, not occluded and not on
/// an edge of the disparity, each to within tolerance; else 0.
struct validPixelsKernel : PerComponent<In<"mask">, In<"occlusion">, In<"edges">, Out<"V">> {
    struct Params {
        float tolerance = 0.0001f;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(tolerance)}};
    VT_FN void body(const Params& p, auto mask, auto occlusion, auto edges, auto V) {
        const auto unselected = 1.f - mask();
        const auto occluded = occlusion();
        const auto edge = edges();
        const auto either = select(unselected > occluded, unselected, occluded);
        const auto excluded = select(either > edge, either, edge);
        V = 1.f - select(excluded > p.tolerance, V.lane(1), V.lane(0));
    }
};

/// O = the sum over the components, up to the third, of |gx| + |gy| by Sobel's two operators, undivided, times scale;
/// at most 1 with limitToOne.
struct sobelMagnitudeKernel : WholePixel<In<"A", Pattern::rectangle, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        bool limitToOne = false;
        float scale = 1;
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(limitToOne), VT_SCALAR(scale)}};
    static void derive(Params&, const ImageArgument*, ImageParameters* images) {
        for (int axis = 0; axis < 2; ++axis) {
            images[0].rangeMin[axis] = -1;
            images[0].rangeMax[axis] = 1;
        }
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto sum = O.lane(0);
        for (int c = 0; c < A.count && c < 3; ++c) {
            const auto at = [&](int dx, int dy) { return A.at(dx, dy, c); };
            const auto gx = -at(-1, 1) - 2.f * at(-1, 0) - at(-1, -1) + at(1, 1) + 2.f * at(1, 0) + at(1, -1);
            const auto gy = -2.f * at(0, -1) - at(-1, -1) - at(1, -1) + at(-1, 1) + 2.f * at(0, 1) + at(1, 1);
            sum += abs(gx) + abs(gy);
        }
        sum = sum * p.scale;
        O = select(p.limitToOne, select(sum < 1.f, sum, O.lane(1)), sum);
    }
};

/// O = the larger of A and B (A where either is NaN), but 0 below 0.001 and 1 above 0.999.
struct maskMergeKernel : PerComponent<In<"A">, In<"B">, Out<"O">> {
    VT_FN void body(const NoParams&, auto A, auto B, auto O) {
        const auto a = A();
        const auto b = B();
        const auto larger = select(b > a, b, a);
        O = select(larger < 0.001f, O.lane(0), select(larger > 0.999f, O.lane(1), larger));
    }
};

/// E = 1 where the disparity D, times scale, jumps by more than `threshold` between the neighbours of a pixel along
/// either axis. Without `thin` the mark is as wide and as high to each side as the jump over 2 `step` pixels. Other
/// pixels of E stay.
struct disparityEdgeKernel : WholePixel<In<"D", Pattern::rectangle, EdgeMethod::clamped>, Out<"E", Pattern::random>> {
    struct Params {
        float scale = 1;
        bool thin = true;
        float threshold = 1;
        int step = 1;
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(scale), VT_SCALAR(thin), VT_SCALAR(threshold)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(step)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters* imageParameters) {
        // 3 pixels of a picture 1024 wide.
        const float scaled = static_cast<float>(images[0].x1 - images[0].x0) * 0.0009765625f * 3.f;
        const int reach = toInt(-floor(-scaled));
        p.step = reach > 1 ? reach : 1;
        for (int axis = 0; axis < 2; ++axis) {
            imageParameters[0].rangeMin[axis] = -p.step;
            imageParameters[0].rangeMax[axis] = p.step;
        }
    }
    /// |v| rounded, halves upward; 0 for NaN.
    VT_FN int halfWidth(float v) {
        const float size = abs(v);
        return toInt(roundHalfAway(clampTo(size == size ? size : 0.f, 0.f, 1e9f)));
    }
    VT_FN void body(const Params& p, auto D, auto E) {
        using V = decltype(D(0));
        const auto across = [&](int steps, int c) { return (D.at(steps, 0, c) - D.at(-steps, 0, c)) * p.scale; };
        const auto up = [&](int steps, int c) { return (D.at(0, steps, c) - D.at(0, -steps, c)) * p.scale; };
        const V a = across(1, 0), b = up(1, 1), c = across(1, 1), e = up(1, 0);
        const auto jumps = (sqrt(a * a + c * c) > V(p.threshold)) | (sqrt(e * e + b * b) > V(p.threshold));
        if (!any(jumps)) return;
        const V u = across(p.step, 0), v = up(p.step, 1);
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            if (!laneOf(jumps, lane)) continue;
            const int w = p.thin ? 0 : halfWidth(laneOf(u, lane));
            const int h = p.thin ? 0 : halfWidth(laneOf(v, lane));
            const int x = D.x + lane;
            E.scatter(x - w, D.y - h, x + w, D.y + h, 1.f);
        }
    }
};

#define VT_FOUR_SINGLE(X, K) X(K, 1f_1f_1f_1f)
#define VT_THREE_SINGLE(X, K) X(K, 1f_1f_1f)
#define VT_GRADIENTS(X, K) X(K, 1f_1f) X(K, 2f_1f) X(K, 3f_1f)
#define VT_DISPARITY_TO_EDGE(X, K) X(K, 2f_1f)
#define OCCLUSIONS(K)                     \
    K(validPixelsKernel, VT_FOUR_SINGLE)  \
    K(sobelMagnitudeKernel, VT_GRADIENTS) \
    K(maskMergeKernel, VT_THREE_SINGLE)   \
    K(disparityEdgeKernel, VT_DISPARITY_TO_EDGE)

VT_FAMILY(occlusions, OCCLUSIONS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
