// Convolution with small kernels, cell by cell. Compiled once per instruction set.
#include "compute/kernel/kernel.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// What both kernels share: cell (u, v) of the convolution kernel, counted from its lower left corner, meets the pixel
/// at (width / 2 - u, height / 2 - v), in raster order.
template <class Base>
struct CellSum : Base {
    struct Params {
        int size[2] = {};
    };
    static constexpr ScalarDeclarations derived{1, {VT_SCALAR(size)}};
    static void derive(Params& p, const ImageArgument* images, ImageParameters* parameters) {
        const ImageArgument& cells = images[1];
        p.size[0] = cells.x1 - cells.x0;
        p.size[1] = cells.y1 - cells.y0;
        for (int axis = 0; axis < 2; ++axis) {
            parameters[0].rangeMin[axis] = p.size[axis] / 2 - p.size[axis];
            parameters[0].rangeMax[axis] = p.size[axis] / 2;
        }
    }

protected:
    /// f(dx, dy, cell) for each cell of component c: one number for all lanes.
    VT_FN void forEachCell(const Params& p, const ImageArgument& cells, int c, auto f) {
        const int left = p.size[0] / 2, top = p.size[1] / 2;
        for (int v = 0; v < p.size[1]; ++v) {
            const float* cell =
                cells.data + c * static_cast<long>(cells.strideC) + v * static_cast<long>(cells.strideY);
            for (int u = 0; u < p.size[0]; ++u)
                f(left - u, top - v, cell[u * static_cast<long>(cells.strideX)]);
        }
    }
};

/// O = the sum over the cells (u, v) of the kernel, v outside and u inside, from 0 upward, of
/// A at (x + width / 2 - u, y + height / 2 - v) times the cell; each component has its own kernel.
struct directConvolveKernel
    : CellSum<PerComponent<In<"A", Pattern::rectangle, EdgeMethod::clamped>, In<"kernel", Pattern::random>, Out<"O">>> {
    VT_FN void body(const Params& p, auto A, auto kernel, auto O) {
        auto sum = O.lane(0);
        forEachCell(p, kernel.image, O.component, [&](int dx, int dy, float cell) { sum += A.at(dx, dy) * cell; });
        O = sum;
    }
};

/// The same with one kernel for all components.
struct sharedConvolveKernel
    : CellSum<WholePixel<In<"A", Pattern::rectangle, EdgeMethod::clamped>, In<"kernel", Pattern::random>, Out<"O">>> {
    VT_FN void body(const Params& p, auto A, auto kernel, auto O) {
        decltype(O.lane(0)) sums[O.count];
        for (auto& sum : sums)
            sum = O.lane(0);
        forEachCell(p, kernel.image, 0, [&](int dx, int dy, float cell) {
            VT_UNROLL
            for (int c = 0; c < O.count; ++c)
                sums[c] += A.at(dx, dy, c) * cell;
        });
        VT_UNROLL
        for (int c = 0; c < O.count; ++c)
            O.put(c, sums[c]);
    }
};

#define VT_SHARED(X, K) X(K, 1f_1f_1f) X(K, 2f_1f_2f) X(K, 3f_1f_3f) X(K, 4f_1f_4f)
#define DIRECT_CONVOLUTION(K)          \
    K(directConvolveKernel, VT_SAME_3) \
    K(sharedConvolveKernel, VT_SHARED)

VT_FAMILY(directConvolution, DIRECT_CONVOLUTION)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
