#include "BilateralFilter/BilateralFilter.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family bilateral;
}  // namespace Vellum::Kernels

namespace Vellum::BilateralFilter {

void registerKernels() {
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::bilateral});
}

}  // namespace Vellum::BilateralFilter
