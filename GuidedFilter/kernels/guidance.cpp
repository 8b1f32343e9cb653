// Further kernels round guided filtering, for scripts: nothing in the library starts them. Compiled once per
// instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// O = the weighted sum of A along the axis. The weights are a Gaussian bell exp(-t^2 / (size / 2)^2) over t = -h .. h,
/// h being half of size after rounding that down to even, convolved with a box of 2 size + 1 pixels; both have the
/// sum 1. size is limited to 42.
struct weightedLineBlurKernel : WholePixel<In<"A", Pattern::axis, EdgeMethod::clamped>, Out<"O">> {
    static constexpr int mostSize = 42;
    static constexpr int mostWeights = 128;
    struct Params {
        int size = 3;
        bool horizontal = true;
        int reach = 0;
        float weights[mostWeights] = {};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(size), VT_SCALAR(horizontal)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(reach), VT_SCALAR(weights)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        const int size = clampTo(p.size, 0, mostSize);
        const int half = (size & ~1) / 2;
        p.reach = half + size;
        images[0].rangedAxisMask = p.horizontal - 1;
        images[0].rangeMin[0] = -p.reach;
        images[0].rangeMax[0] = p.reach;
        float bell[mostSize + 1];
        float total = 0;
        const float width = 0.5f * static_cast<float>(size);
        for (int t = -half; t <= half; ++t)
            total += bell[t + half] = t == 0 ? 1.f : exp(-static_cast<float>(t * t) / (width * width));
        const float box = 1.f / static_cast<float>(2 * size + 1);
        for (float& weight : p.weights)
            weight = 0;
        for (int t = 0; t <= 2 * half; ++t)
            for (int i = 0; i <= 2 * size; ++i)
                p.weights[t + i] += bell[t] / total * box;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        for (int c = 0; c < A.count && c < O.count; ++c) {
            auto sum = O.lane(0);
            for (int i = 0; i <= 2 * p.reach; ++i)
                sum += A.along(i - p.reach, c) * p.weights[i];
            O.put(c, sum);
        }
    }
};

/// O = A / component `channel` of B, each component.
struct guidedRatioKernel : WholePixel<In<"A">, In<"B">, Out<"O">> {
    struct Params {
        int channel = 0;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(channel)}};
    VT_FN void body(const Params& p, auto A, auto B, auto O) {
        const auto divisor = B(clampTo(p.channel, 0, B.count - 1));
        for (int c = 0; c < O.count; ++c)
            O.put(c, A(c) / divisor);
    }
};

/// Component `channel` of O = what the linear functions a, b make of the guidance G: with `colour`
/// a0 G0 + a1 G1 + a2 G2 + b, else with `grey` a (G0 + G1 + G2) / 3 + b, else a times component `channel` of G, + b.
struct guidedCombineKernel : WholePixel<In<"a">, In<"G">, In<"b">, Out<"O">> {
    struct Params {
        bool colour = false;
        bool grey = true;
        int channel = 0;
    };
    static constexpr ScalarDeclarations scalars{3, {VT_SCALAR(colour), VT_SCALAR(grey), VT_SCALAR(channel)}};
    VT_FN void body(const Params& p, auto a, auto G, auto b, auto O) {
        const auto grey = a() * (G(0) + G(1) + G(2)) / 3.f + b();
        auto value = select(p.grey, grey, a() * G(clampTo(p.channel, 0, G.count - 1)) + b());
        if constexpr (decltype(a)::count >= 3)
            value = select(p.colour, a(0) * G(0) + a(1) * G(1) + a(2) * G(2) + b(), value);
        O.put(clampTo(p.channel, 0, O.count - 1), value);
    }
};

/// Where a column or row of a grid lies in another: times scale plus offset, rounded with halves away from 0, the
/// nearest of from .. to - 1.
VT_FN int mappedTo(int position, float scale, float offset, int from, int to) {
    const float place = static_cast<float>(position) * scale + offset;
    const float size = abs(place);
    const float below = floor(size);
    const float nearest = size - below < 0.5f ? below : below + 1.f;
    const float rounded = place < 0 ? -nearest : nearest;
    // NaN goes to the first.
    return toInt(clampTo(rounded == rounded ? rounded : static_cast<float>(from), static_cast<float>(from),
                         static_cast<float>(to - 1)));
}

/// O = 1 at the places to which scale and offset map the pixels of the range; other pixels stay.
struct markSamplesKernel : WholePixel<Out<"O", Pattern::random>> {
    struct Params {
        float scale[2] = {1, 1};
        float offset[2] = {0, 0};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(scale), VT_SCALAR(offset)}};
    VT_FN void body(const Params& p, auto O) {
        using V = decltype(O(0));
        const int y = mappedTo(O.row(), p.scale[1], p.offset[1], O.bottom(), O.top());
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            const int x = mappedTo(O.x + lane, p.scale[0], p.offset[0], O.left(), O.right());
            O.scatter(x, y, x, y, 1.f);
        }
    }
};

/// The pixels of A at the places of O to which scale and offset map them; the last in raster order stays.
struct nearestScatterKernel : WholePixel<In<"A">, Out<"O", Pattern::random>> {
    static constexpr bool inRasterOrder = true;
    using Params = markSamplesKernel::Params;
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(scale), VT_SCALAR(offset)}};
    VT_FN void body(const Params& p, auto A, auto O) {
        using V = decltype(A(0));
        const int y = mappedTo(A.row(), p.scale[1], p.offset[1], O.bottom(), O.top());
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            const int x = mappedTo(A.x + lane, p.scale[0], p.offset[0], O.left(), O.right());
            for (int c = 0; c < O.count; ++c)
                O.scatter(x, y, x, y, laneOf(A(c), lane), c);
        }
    }
};

#define VT_RATIO_OF(X, K, n) X(K, n##f_1f_##n##f) X(K, n##f_2f_##n##f) X(K, n##f_3f_##n##f) X(K, n##f_4f_##n##f)
#define VT_RATIO(X, K) VT_RATIO_OF(X, K, 1) VT_RATIO_OF(X, K, 2) VT_RATIO_OF(X, K, 3) VT_RATIO_OF(X, K, 4)
#define VT_COMBINE_OF(X, K, a, G) \
    X(K, a##f_##G##f_1f_1f) X(K, a##f_##G##f_1f_2f) X(K, a##f_##G##f_1f_3f) X(K, a##f_##G##f_1f_4f)
#define VT_COMBINE(X, K)      \
    VT_COMBINE_OF(X, K, 1, 3) \
    VT_COMBINE_OF(X, K, 1, 4) VT_COMBINE_OF(X, K, 3, 3) VT_COMBINE_OF(X, K, 3, 4)
#define VT_ONE(X, K) X(K, 1f)
#define GUIDANCE(K)                     \
    K(weightedLineBlurKernel, VT_PAIRS) \
    K(guidedRatioKernel, VT_RATIO)      \
    K(guidedCombineKernel, VT_COMBINE)  \
    K(markSamplesKernel, VT_ONE)        \
    K(nearestScatterKernel, VT_SAME_2)

VT_FAMILY(guidance, GUIDANCE)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
