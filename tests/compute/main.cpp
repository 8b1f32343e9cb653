#include <gtest/gtest.h>

#include "base/Ensure.h"
#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family testPatterns;
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    Cobalt::Base::setOnBrokenContract(Cobalt::Base::OnBrokenContract::raise);
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::testPatterns});
    return RUN_ALL_TESTS();
}
