#include "ToneAligner/ToneAligner.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family globalMatch;
extern const Family localEnding;
extern const Family occlusions;
}  // namespace Vellum::Kernels

namespace Vellum::Tone {

void registerKernels() {
    Vellum::Kernels::registerFamilies(
        {&Vellum::Kernels::globalMatch, &Vellum::Kernels::localEnding, &Vellum::Kernels::occlusions});
}

}  // namespace Vellum::Tone
