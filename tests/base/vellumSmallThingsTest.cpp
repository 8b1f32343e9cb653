#include <array>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/Ensure.h"
#include "base/NameAtom.h"

namespace {

using namespace Cobalt::Base;

struct Fruit;
struct Stone;

TEST(NameAtom, EqualNamesAreOneNumberInTheirTagOnly) {
    const NameAtom<Fruit> pear("pear"), plum("plum");
    EXPECT_EQ(pear, NameAtom<Fruit>(std::string("pe") + "ar"));
    EXPECT_NE(pear, plum);
    EXPECT_EQ(plum.name(), "plum");
    EXPECT_EQ(NameAtom<Stone>("plum").name(), "plum");
    EXPECT_EQ(NameAtom<Fruit>(), NameAtom<Fruit>(""));
    EXPECT_NE(pear, NameAtom<Fruit>());
}

TEST(NameAtom, ThreadsAgreeWhileNamesAreAdded) {
    constexpr int nameCount = 500;
    std::array<std::vector<std::uint32_t>, 4> handles;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < handles.size(); ++t) {
        threads.emplace_back([&, t] {
            handles[t].resize(nameCount);
            for (int step = 0; step < nameCount; ++step) {
                const int i = t % 2 ? step : nameCount - 1 - step;
                const NameAtom<Stone> atom("stone " + std::to_string(i));
                handles[t][static_cast<std::size_t>(i)] = atom.handle();
                EXPECT_EQ(atom.name(), "stone " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& other : handles)
        EXPECT_EQ(other, handles[0]);
}

struct Size {
    int width, height;
    bool operator==(const Size&) const = default;
};
std::string toString(const Size& size) {
    return std::to_string(size.width) + " by " + std::to_string(size.height);
}

/// Contracts throw inside, as in a release, whatever the build.
class Ensure : public testing::Test {
protected:
    template <class Check>
    static std::string messageOf(Check check) {
        try {
            check();
        } catch (const ContractViolation& violation) {
            return userMessage(violation);
        }
        return "held";
    }

private:
    void SetUp() override { previous_ = setOnBrokenContract(OnBrokenContract::raise); }
    void TearDown() override { setOnBrokenContract(previous_); }
    OnBrokenContract previous_{};
};

TEST_F(Ensure, SaysConditionAndText) {
    int count = 0;
    EXPECT_EQ(messageOf([&] { ENSURE(++count == 1, "never built"); }), "held");
    EXPECT_EQ(messageOf([&] { ENSURE(++count == 1); }), "An internal check failed: ++count == 1.");
    EXPECT_EQ(count, 2);
    EXPECT_EQ(messageOf([&] { ENSURE(count > 2, "kernel {} has {}", "maxKernel", count); }),
              "An internal check failed: count > 2: kernel maxKernel has 2.");
    EXPECT_EQ(messageOf([&] { ENSURE(count > 2, "%%(Condition)%%"); }),
              "An internal check failed: count > 2: %%(Condition)%%.");
}

TEST_F(Ensure, ComparesAndShowsBothValues) {
    const Size wide{4, 1}, tall{1, 4};
    EXPECT_EQ(messageOf([&] { ENSURE_COMPARE(wide, ==, wide); }), "held");
    EXPECT_EQ(messageOf([&] { ENSURE_COMPARE(wide, ==, tall, "view {}", 2); }),
              "An internal check failed: wide == tall: wide is 4 by 1, tall is 1 by 4; view 2.");
    EXPECT_EQ(messageOf([&] { ENSURE_COMPARE(wide.width, <, 3); }),
              "An internal check failed: wide.width < 3: wide.width is 4, 3 is 3.");
}

TEST_F(Ensure, NamesThePlaceOfTheCheck) {
    const int line = __LINE__ + 2;
    try {
        ENSURE(false);
    } catch (const Exception& violation) {
        EXPECT_EQ(violation.attributeText("ThrowFile"), __FILE__);
        EXPECT_EQ(violation.attributeText("ThrowLine"), std::to_string(line));
    }
}

TEST(EnsureDeathTest, StopsTheProgramWhenToldTo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            setOnBrokenContract(OnBrokenContract::stop);
            ENSURE_COMPARE(1 + 1, ==, 3);
        },
        "broken contract: 1 \\+ 1 == 3: 1 \\+ 1 is 2, 3 is 3");
}

}  // namespace
