#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

class Kernels : public CommandTest {};

TEST_F(Kernels, AreListedFromEveryLibrary) {
    const Outcome table = run({"kernels"});
    EXPECT_EQ(table.exitCode, 0);
    for (const char* row : {"\nthresholdKernel ", " Common/arithmetic ", " read A point, write O point ",
                            "threshold, binarise\n", "\nlinearMapKernel ", " ToneAligner/globalMatch "})
        EXPECT_NE(table.output.find(row), std::string::npos) << row;

    const auto tree = parseJson(run({"kernels", "--json"}).output);
    EXPECT_EQ(tree.size() + 1, std::size_t(std::count(table.output.begin(), table.output.end(), '\n')))
        << "the table has a heading";
}

TEST_F(Kernels, OneIsShownWithEverything) {
    const Outcome details = run({"kernels", "thresholdKernel"});
    EXPECT_EQ(details.exitCode, 0);
    EXPECT_EQ(details.output.find("thresholdKernel: Common/arithmetic, one body for each component, one pass\n"
                                  "images:\n  read  A, point, edge none\n  write O, point, edge none\n"
                                  "scalars:\n  float threshold = 0\n  bool binarise = false\n"),
              0u)
        << details.output;

    const auto tree = parseJson(run({"kernels", "maskedSquaredDeviationKernel", "--json"}).output);
    EXPECT_EQ(tree.get<std::string>("family"), "statistics");
    EXPECT_TRUE(tree.get<bool>("per_component"));
    EXPECT_EQ(tree.get<int>("passes"), 2);
    EXPECT_EQ(tree.get_child("images").size(), 2u);
    const auto& mean = tree.get_child("scalars").front().second;
    EXPECT_EQ(mean.get<std::string>("type"), "float");
    EXPECT_EQ(mean.get_child("default").size(), 4u);
    EXPECT_EQ(tree.get_child("accumulators").size(), 2u);
    std::vector<std::string> keys;
    for (const auto& [index, key] : tree.get_child("keys"))
        keys.push_back(key.data());
    ASSERT_EQ(keys.size(), 3 * tree.get_child("pixel_types").size()) << "one-pixel, packed and GPU code for each";
    EXPECT_EQ(keys[1].substr(64), "_2_2_19_1f_1f");
}

TEST_F(Kernels, WrongCalls) {
    const Outcome unknown = run({"kernels", "thresholdkernal"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.output, "");
    EXPECT_EQ(unknown.errors.find("viewtint: There is no kernel 'thresholdkernal'; the nearest are thresholdKernel, "),
              0u)
        << unknown.errors;
    EXPECT_EQ(run({"kernels", "maxKernel", "--markdown"}).exitCode, 2);
    EXPECT_EQ(run({"kernels", "--json", "--markdown"}).exitCode, 2);
}

}  // namespace
}  // namespace ViewTint::Cli
