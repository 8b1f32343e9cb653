#include <gtest/gtest.h>

#include <cstdlib>

#include "node/KernelLibraries.h"

/// Without a word in the environment the libraries are the stand-ins.
int main(int argc, char** argv) {
    setenv("VIEWTINT_CUDA_DRIVER", VIEWTINT_STAND_IN_DRIVER, 0);
    setenv("VIEWTINT_CUFFT", VIEWTINT_STAND_IN_CUFFT, 0);
    setenv("VIEWTINT_STAND_IN_MIB", "256", 0);
    testing::InitGoogleTest(&argc, argv);
    Vellum::registerKernelLibraries();
    return RUN_ALL_TESTS();
}
