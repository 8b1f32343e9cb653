#include "compute/StageStatistics.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "compute/Kernel.h"
#include "tests/harness/TestImage.h"

namespace ViewTint::Tests {

namespace {

using Vellum::Compute::countStages;
using Vellum::Compute::Stage;
using Vellum::Compute::StageStatistics;

void runKernelOver(const Box& box) {
    TestImage a(Pixels(box, 3), Arrangement::planar), o(Pixels(box, 3), Arrangement::planar);
    const Image* list[] = {&a.image(), &o.image()};
    Vellum::JIT::KernelExecutionContext context(Vellum::JIT::Kernel::Make(
        *Vellum::Kernels::findKernel("testMathKernel"), list, Vellum::CodeGen::Flags::packed));
    context.setImageParamBindings(list);
    context.iterate(Vellum::Compute::Host::hostDevice(), {});
}

}  // namespace

TEST(StageStatistics, anInnerStageInterruptsTheOuter) {
    const auto statistics = std::make_shared<StageStatistics>();
    countStages(statistics);
    constexpr auto pause = std::chrono::milliseconds(30);
    {
        const Stage outer("outer");
        runKernelOver({0, 0, 10, 4});
        {
            const Stage inner("inner");
            std::this_thread::sleep_for(pause);
            runKernelOver({0, 0, 5, 2});
            runKernelOver({0, 0, 5, 2});
        }
        const Stage again("inner");
    }
    countStages(nullptr);
    const Stage afterwards("not counted");
    runKernelOver({0, 0, 9, 9});

    const auto totals = statistics->totals();
    ASSERT_EQ(totals.size(), 2u);
    EXPECT_EQ(totals[0].name, "outer");
    EXPECT_EQ(totals[1].name, "inner");
    EXPECT_EQ(totals[0].kernelCalls, 1u);
    EXPECT_EQ(totals[1].kernelCalls, 2u);
    EXPECT_EQ(totals[0].bytes, 10u * 4 * 3 * sizeof(float) * 2) << "read and written";
    EXPECT_EQ(totals[1].bytes, 2 * 5u * 2 * 3 * sizeof(float) * 2);
    EXPECT_GE(totals[1].seconds, std::chrono::duration<double>(pause).count());
    EXPECT_LT(totals[0].seconds, totals[1].seconds);
}

}  // namespace ViewTint::Tests
