// What surrounds a Fourier transform: padding a picture, padding a convolution kernel, cutting the result. Compiled
// once per instruction set.
#include "compute/kernel/hostForm.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// The cell (x, y) of the kernel K, counted from its corner and component `channel`, to O at (x - width / 2,
/// y - height / 2) from its corner; places left of it or below wrap round. The last in raster order stays.
struct padKernelKernel : WholePixel<In<"K">, Out<"O", Pattern::random>> {
    static constexpr bool inRasterOrder = true;
    struct Params {
        int channel = 0;
        int halfWidth = 0;
        int halfHeight = 0;
    };
    static constexpr ScalarDeclarations scalars{1, {VT_SCALAR(channel)}};
    static constexpr ScalarDeclarations derived{2, {VT_SCALAR(halfWidth), VT_SCALAR(halfHeight)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        p.halfWidth = (images[0].x1 - images[0].x0) / 2;
        p.halfHeight = (images[0].y1 - images[0].y0) / 2;
    }
    VT_FN int wrapped(int place, int size) {
        const int rest = place % size;
        return rest < 0 ? rest + size : rest;
    }
    VT_FN void body(const Params& p, auto K, auto O) {
        using V = decltype(K(0));
        const V value = K(clampTo(p.channel, 0, K.count - 1));
        const int y = O.bottom() + wrapped(K.row() - K.bottom() - p.halfHeight, O.top() - O.bottom());
        for (int lane = 0; lane < LaneTraits<V>::width; ++lane) {
            const int x = O.left() + wrapped(K.x + lane - K.left() - p.halfWidth, O.right() - O.left());
            O.scatter(x, y, x, y, laneOf(value, lane));
        }
    }
};

/// O at (x, y) = component `channel` of A at (x, y) + the corner of A, or outside A component `channel` of `fillValue`.
struct padImageKernel : WholePixel<In<"A", Pattern::random, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        int channel = 0;
        float fillValue[4] = {0, 0, 0, 0};
        int offset[2] = {0, 0};
    };
    static constexpr ScalarDeclarations scalars{2, {VT_SCALAR(channel), VT_SCALAR(fillValue)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(offset)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters*) {
        p.offset[0] = images[0].x0;
        p.offset[1] = images[0].y0;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        using V = decltype(O(0));
        using I = IntOf<V>;
        const int channel = clampTo(p.channel, 0, A.count - 1);
        const I x = O.column() + I(p.offset[0]);
        const I y(O.row() + p.offset[1]);
        const auto inside = (x >= I(A.left())) & (x < I(A.right())) & (y >= I(A.bottom())) & (y < I(A.top()));
        O = select(inside, A.fetch(x, y, channel), V(p.fillValue[channel]));
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& a = launch.images[0];
        const int channel = clampTo(p.channel, 0, T.of[0] - 1);
        for (int y = launch.y0; y < launch.y1; ++y) {
            float* row = addressIn(launch.images[1], launch.x0, y, 0);
            const int from = launch.x0 + p.offset[0];
            const int count = launch.x1 - launch.x0;
            const bool rowInside = y + p.offset[1] >= a.y0 && y + p.offset[1] < a.y1;
            const int begin = rowInside ? clampTo(a.x0 - from, 0, count) : count;
            const int end = rowInside ? clampTo(a.x1 - from, begin, count) : count;
            for (int i = 0; i < begin; ++i)
                row[i] = p.fillValue[channel];
            if (end > begin)
                __builtin_memcpy(row + begin, addressIn(a, from + begin, y + p.offset[1], channel),
                                 (end - begin) * sizeof(float));
            for (int i = end; i < count; ++i)
                row[i] = p.fillValue[channel];
        }
    }
};

/// Component `channel` of O at (x, y) = scale times A at (x, y) - the lower left corner of `box`, or outside A
/// component `channel` of `fillValue`.
struct cropKernel : WholePixel<In<"A", Pattern::random, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        int channel = 0;
        int box[4] = {0, 0, 0, 0};
        float scale = 1;
        float fillValue[4] = {0, 0, 0, 0};
        int offset[2] = {0, 0};
    };
    static constexpr ScalarDeclarations scalars{
        4, {VT_SCALAR(channel), VT_SCALAR(box), VT_SCALAR(scale), VT_SCALAR(fillValue)}};
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(offset)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters*) {
        p.offset[0] = -p.box[0];
        p.offset[1] = -p.box[1];
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        using V = decltype(O(0));
        using I = IntOf<V>;
        const int channel = clampTo(p.channel, 0, O.count - 1);
        const I x = O.column() + I(p.offset[0]);
        const I y(O.row() + p.offset[1]);
        const auto inside = (x >= I(A.left())) & (x < I(A.right())) & (y >= I(A.bottom())) & (y < I(A.top()));
        O.put(channel, select(inside, A.fetch(x, y), V(p.fillValue[channel])) * p.scale);
    }

    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        const auto& p = *static_cast<const Params*>(launch.parameters);
        const ImageArgument& a = launch.images[0];
        const int channel = clampTo(p.channel, 0, T.of[1] - 1);
        const float filling = p.fillValue[channel] * p.scale;
        for (int y = launch.y0; y < launch.y1; ++y) {
            float* row = addressIn(launch.images[1], launch.x0, y, channel);
            const int from = launch.x0 + p.offset[0];
            const int count = launch.x1 - launch.x0;
            const bool rowInside = y + p.offset[1] >= a.y0 && y + p.offset[1] < a.y1;
            const int begin = rowInside ? clampTo(a.x0 - from, 0, count) : count;
            const int end = rowInside ? clampTo(a.x1 - from, begin, count) : count;
            for (int i = 0; i < begin; ++i)
                row[i] = filling;
            if (end > begin) {
                const float* source = addressIn(a, from, y + p.offset[1], 0);
                int i = begin;
                for (; i + LaneTraits<V>::width <= end; i += LaneTraits<V>::width)
                    store(load<V>(source + i, 1) * p.scale, row + i, 1);
                for (; i < end; ++i)
                    row[i] = source[i] * p.scale;
            }
            for (int i = end; i < count; ++i)
                row[i] = filling;
        }
    }
};

#define VT_FROM_ONE(X, K) X(K, 1f_1f) X(K, 1f_2f) X(K, 1f_3f) X(K, 1f_4f)
#define PADDING(K)                \
    K(padKernelKernel, VT_TO_ONE) \
    K(padImageKernel, VT_TO_ONE)  \
    K(cropKernel, VT_FROM_ONE)

VT_FAMILY(padding, PADDING)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
