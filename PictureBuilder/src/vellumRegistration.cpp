#include "PictureBuilder/PictureBuilder.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family marks;
extern const Family warp;
}  // namespace Vellum::Kernels

namespace Vellum::PictureBuilder {

void registerKernels() {
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::marks, &Vellum::Kernels::warp});
}

}  // namespace Vellum::PictureBuilder
