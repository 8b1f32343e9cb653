#include "GuidedFilter/GuidedFilter.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family guidance;
extern const Family guided;
}  // namespace Vellum::Kernels

namespace Vellum::GuidedFilter {

void registerKernels() {
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::guided, &Vellum::Kernels::guidance});
}

}  // namespace Vellum::GuidedFilter
