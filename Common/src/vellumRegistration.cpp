#include "Common/Common.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family pointwise;
extern const Family colour;
extern const Family statistics;
extern const Family smoothing;
extern const Family morphology;
}  // namespace Vellum::Kernels

namespace Vellum::Common {

void registerKernels() {
    using namespace Vellum::Kernels;
    registerFamilies({&pointwise, &colour, &statistics, &smoothing, &morphology});
}

}  // namespace Vellum::Common
