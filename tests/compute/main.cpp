#include <gtest/gtest.h>

#include "compute/Catalogue.h"

namespace Vellum::Kernels {
extern const Family testPatterns;
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    Vellum::Kernels::registerFamilies({&Vellum::Kernels::testPatterns});
    return RUN_ALL_TESTS();
}
