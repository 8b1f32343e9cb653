#include "ToneAligner/ToneAligner.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family blockPasses;
extern const Family blocks;
extern const Family correctionLimit;
extern const Family globalMatch;
extern const Family localEnding;
extern const Family occlusions;
}  // namespace Vellum::Kernels

namespace Vellum::Tone {

void registerKernels() {
    using namespace Vellum::Kernels;
    registerFamilies({&blockPasses, &blocks, &correctionLimit, &globalMatch, &localEnding, &occlusions});
}

}  // namespace Vellum::Tone
