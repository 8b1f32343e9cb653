#include "FFT/FourierTransform.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family padding;
}

namespace Vellum::FFT {

void registerKernels() {
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::padding});
}

}  // namespace Vellum::FFT
