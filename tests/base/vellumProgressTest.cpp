#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/Progress.h"

namespace {

using Cobalt::Base::Progress;

/// Shows reports as the operator's progress does: after its own mapping.
class Recorder : public Progress {
public:
    using Progress::Progress;
    void fraction(float done) override { fractions.push_back(mapped(done)); }
    void message(const char* text) override { messages.emplace_back(text); }

    std::vector<float> fractions;
    std::vector<std::string> messages;
};

TEST(ProgressChain, WithoutARootSwallowsReports) {
    Progress root;
    Progress child(&root, 0.5f, 0.5f);
    EXPECT_NO_THROW(child.fraction(0.5f));
    EXPECT_NO_THROW(child.message("unheard"));
}

TEST(ProgressChain, MapsEachLevelOnce) {
    Recorder root;
    Progress secondHalf(&root, 0.5f, 0.5f);
    Progress firstQuarter(&secondHalf, 0.0f, 0.25f);
    secondHalf.fraction(0.5f);
    firstQuarter.fraction(1.0f);
    firstQuarter.fraction(0.0f);
    EXPECT_EQ(root.fractions, (std::vector<float>{0.75f, 0.625f, 0.5f}));
}

TEST(ProgressChain, EndsAtTheFirstShowingAncestorWhichMapsForItself) {
    Recorder outer;
    Recorder inner(&outer, 0.25f, 0.5f);
    Progress plain(&inner, 0.5f, 0.5f);
    Progress leaf(&plain);
    leaf.fraction(1.0f);
    leaf.message("blocks");
    EXPECT_EQ(inner.fractions, std::vector<float>{0.75f});
    EXPECT_EQ(inner.messages, std::vector<std::string>{"blocks"});
    EXPECT_TRUE(outer.fractions.empty());
    EXPECT_TRUE(outer.messages.empty());
}

}  // namespace
