// A kernel whose form for whole blocks gives itself away. Compiled once per instruction set.
#include "Common/kernels/rectangleMarks.h"

namespace Vellum::Kernels {
inline namespace VIEWTINT_ISA {

/// 1 from its body. Blocks that are decided by marks get 2 where a mark is in reach, else 0.
struct testMarksKernel : PerComponent<In<"A", Pattern::rectangle, EdgeMethod::clamped>, Out<"O">> {
    static void derive(Params&, const ImageArgument*, ImageParameters* images) {
        for (int i = 0; i < 2; ++i) {
            images[0].rangeMin[i] = -2;
            images[0].rangeMax[i] = 2;
        }
    }
    VT_FN void body(const Params&, auto, auto O) { O = O.lane(1); }

    static constexpr bool marksDecide = false;
    static constexpr float ofMarked = 2, ofUnmarked = 0;
    VT_FN auto marked(auto value) { return value > 0.f; }
    VT_FN auto markDecides(auto value) { return value >= 0.f; }
    template <class V, Counts T>
    static void hostForm(const Launch& launch) {
        RectangleMarks<testMarksKernel, T, V>::run(launch);
    }
};

#define TEST_MARKS(K) K(testMarksKernel, VT_SAME_2)

VT_FAMILY(testMarks, TEST_MARKS)

}  // namespace VIEWTINT_ISA
}  // namespace Vellum::Kernels
