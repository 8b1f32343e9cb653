#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "compute/Threader.h"

namespace ViewTint::Tests {

using namespace Vellum::Parallel;

TEST(Threader, sharesAreContiguousDisjointAndCoverTheRange) {
    for (const int length : {0, 1, 5, 7, 100, 2000000011}) {
        for (const int count : {1, 2, 3, 7}) {
            int next = -3;
            for (int index = 0; index < count; ++index) {
                int lo = -3;
                int hi = -3 + length;
                DivideRange(lo, hi, index, count);
                EXPECT_EQ(lo, next);
                EXPECT_LE(hi - lo, length / count + 1);
                EXPECT_GE(hi - lo, length / count);
                next = hi;
            }
            EXPECT_EQ(next, -3 + length);
        }
    }
}

TEST(Threader, runsEachIndexOnceAndHandsExceptionsToTheCaller) {
    for (const int threads : {1, 2, 3}) {
        const auto threader = MakeThreader(threads);
        EXPECT_EQ(threader->threads(), threads);
        std::vector<std::atomic<int>> calls(1000);
        forEachIndex(*threader, 1000, [&](int index) { ++calls[index]; });
        for (const auto& count : calls)
            EXPECT_EQ(count, 1);
        EXPECT_THROW(forEachIndex(*threader, 100,
                                  [](int index) {
                                      if (index == 57) throw std::runtime_error("57");
                                  }),
                     std::runtime_error);
        forEachIndex(*threader, 10, [&](int index) { ++calls[index]; });
        EXPECT_EQ(calls[9], 2) << "the pool works on after an exception";
    }
}

}  // namespace ViewTint::Tests
