// Growing, shrinking and edges of masks. Compiled once per instruction set.
#include "Common/kernels/rectangleMarks.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// Reads A in a square of which each half, left, right, down and up, can be switched off. With a negative radius there
/// is nothing to read.
struct InSquare : PerComponent<In<"A", Pattern::rectangle, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        int radius = 1;
        bool right = true, left = true, up = true, down = true;
    };
    static constexpr ScalarDeclarations scalars{
        5, {VT_SCALAR(radius), VT_SCALAR(right), VT_SCALAR(left), VT_SCALAR(up), VT_SCALAR(down)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        images[0].rangeMin[0] = p.left ? -p.radius : 0;
        images[0].rangeMax[0] = p.right ? p.radius : 0;
        images[0].rangeMin[1] = p.down ? -p.radius : 0;
        images[0].rangeMax[1] = p.up ? p.radius : 0;
    }
};

/// O = 1 where the sum of A over the square, row by row from 0, is above 0, else 0; so 0 for NaN, and negative values
/// cancel positive ones.
struct dilateKernel : InSquare {
    VT_FN void body(const Params&, auto A, auto O) {
        const ImageParameters& range = A.parameters;
        auto sum = O.lane(0);
        for (int y = range.rangeMin[1]; y <= range.rangeMax[1]; ++y)
            for (int x = range.rangeMin[0]; x <= range.rangeMax[0]; ++x)
                sum += A.at(x, y);
        O = select(sum > 0.f, O.lane(1), O.lane(0));
    }

    /// A sum of values that aren't negative is above 0 where one of them is.
    static constexpr bool marksDecide = false;
    static constexpr float ofMarked = 1, ofUnmarked = 0;
    VT_FN auto marked(auto value) { return value > 0.f; }
    VT_FN auto markDecides(auto value) { return value >= 0.f; }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        RectangleMarks<dilateKernel, T, V>::run(launch);
    }
};

/// O = 0 where A is 0 anywhere in the square, else 1. NaN isn't 0.
struct erodeKernel : InSquare {
    VT_FN void body(const Params&, auto A, auto O) {
        const ImageParameters& range = A.parameters;
        auto kept = O.lane(1);
        for (int y = range.rangeMin[1]; y <= range.rangeMax[1]; ++y)
            for (int x = range.rangeMin[0]; x <= range.rangeMax[0]; ++x)
                kept = select(A.at(x, y) == 0.f, O.lane(0), kept);
        O = kept;
    }

    static constexpr bool marksDecide = true;
    static constexpr float ofMarked = 0, ofUnmarked = 1;
    VT_FN auto marked(auto value) { return value == 0.f; }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        RectangleMarks<erodeKernel, T, V>::run(launch);
    }
};

/// O = 1 where A isn't 0 and one of the chosen neighbours is, else 0. NaN isn't 0.
struct maskEdgeKernel : PerComponent<In<"A", Pattern::rectangle, EdgeMethod::clamped>, Out<"O">> {
    struct Params {
        bool left = true, right = true, down = true, up = true;
    };
    static constexpr ScalarDeclarations scalars{4, {VT_SCALAR(left), VT_SCALAR(right), VT_SCALAR(down), VT_SCALAR(up)}};
    static void derive(Params& p, const ImageArgument*, ImageParameters* images) {
        images[0].rangeMin[0] = -int{p.left};
        images[0].rangeMax[0] = p.right;
        images[0].rangeMin[1] = -int{p.down};
        images[0].rangeMax[1] = p.up;
    }
    VT_FN void body(const Params& p, auto A, auto O) {
        auto edge = O.lane(0);
        const auto look = [&](bool chosen, int dx, int dy) {
            if (chosen) edge = select(A.at(dx, dy) == 0.f, O.lane(1), edge);
        };
        look(p.left, -1, 0);
        look(p.right, 1, 0);
        look(p.down, 0, -1);
        look(p.up, 0, 1);
        O = select(A() == 0.f, O.lane(0), edge);
    }
};

#define MORPHOLOGY(K)          \
    K(dilateKernel, VT_SAME_2) \
    K(erodeKernel, VT_SAME_2)  \
    K(maskEdgeKernel, VT_SAME_2)

VT_FAMILY(morphology, MORPHOLOGY)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
