#include "Common/Common.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family arithmetic;
extern const Family blending;
extern const Family brokenPixels;
extern const Family colour;
extern const Family copying;
extern const Family morphology;
extern const Family smoothing;
extern const Family statistics;
extern const Family transferCurves;
}  // namespace Vellum::Kernels

namespace Vellum::Common {

void registerKernels() {
    using namespace Vellum::Kernels;
    registerFamilies({&arithmetic, &blending, &brokenPixels, &colour, &copying, &morphology, &smoothing, &statistics,
                      &transferCurves});
}

}  // namespace Vellum::Common
