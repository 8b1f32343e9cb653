// Memory for the program's own lists that can't be had, at each place where some is asked for.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "compute/BufferManagement/BufferManager.h"
#include "compute/HostDevice.h"

namespace {

/// How many more allocations of this thread succeed; -1: all.
thread_local int allocationsLeft = -1;

}  // namespace

void* operator new(std::size_t bytes) {
    if (allocationsLeft == 0) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    if (void* const address = std::malloc(bytes ? bytes : 1)) return address;
    throw std::bad_alloc();
}
void operator delete(void* address) noexcept {
    std::free(address);
}
void operator delete(void* address, std::size_t) noexcept {
    std::free(address);
}

namespace ViewTint::Tests {

using namespace Vellum::Utils::BufferManagement;
using Vellum::Compute::Host::hostDevice;

namespace {

/// Calls `step` with more and more allocations until it succeeds, and `check` after each time.
template <class Step, class Check>
void failEverywhere(Step&& step, Check&& check) {
    bool failed = true;
    for (int count = 0; failed && count < 100; ++count) {
        allocationsLeft = count;
        try {
            step();
            failed = false;
        } catch (const std::bad_alloc&) {
        }
        allocationsLeft = -1;
        check(failed);
    }
    EXPECT_FALSE(failed);
}

}  // namespace

TEST(FailingNew, aPoolThatCannotKeepABlockGivesItBack) {
    const auto pool = std::make_shared<Vellum::Compute::MemoryPool>(std::size_t{1} << 20);
    auto block = pool->allocate(5000);
    allocationsLeft = 0;
    block.reset();
    allocationsLeft = -1;
    EXPECT_EQ(pool->bytesKept(), 0u);
    block = pool->allocate(5000);
    EXPECT_NE(block->address(), nullptr);
    EXPECT_EQ(pool->bytesInUse(), block->bytes());
}

TEST(FailingNew, imagesAndNamesStayAsTheyWere) {
    const Info small{{0, 0, 9, 7}, 3}, large{{-3, 0, 90, 70}, 1};
    const Image source(small, hostDevice());
    const std::size_t before = hostDevice().pool().bytesInUse();
    {
        Image image(small, hostDevice());
        const float* const pixels = image.data();
        failEverywhere([&] { image.reset(large, hostDevice()); },
                       [&](bool failed) {
                           EXPECT_EQ(image.info(), failed ? small : large);
                           EXPECT_EQ(image.data() == pixels, failed);
                       });
    }
    BufferManager manager(hostDevice(), hostDevice());
    testing::internal::CaptureStdout();  // the manager's warning
    failEverywhere([&] { manager.allocate("made", small); },
                   [&](bool failed) { EXPECT_EQ(manager.hasImage("made"), !failed); });
    failEverywhere([&] { manager.adopt("adopted", source); },
                   [&](bool failed) { EXPECT_EQ(manager.hasImage("adopted"), !failed); });
    failEverywhere([&] { manager.allocateTuple("tuple", 3, small); },
                   [&](bool failed) { EXPECT_EQ(manager.hasTuple("tuple"), !failed); });
    failEverywhere([&] { BufferManagedImage handle(manager, large); },
                   [&](bool) { EXPECT_EQ(manager.image("made").info(), small); });
    testing::internal::GetCapturedStdout();
    manager.switchToFallback(false);
    EXPECT_EQ(hostDevice().pool().bytesInUse(), before);
}

}  // namespace ViewTint::Tests
