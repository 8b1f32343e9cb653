#include "CommandTest.h"

namespace ViewTint::Cli {
namespace {

using boost::property_tree::ptree;

class Controls : public CommandTest {
protected:
    /// The panel with these options, by control.
    std::map<std::string, ptree> panel(std::vector<std::string> words) const {
        words.insert(words.begin(), "controls");
        words.push_back("--json");
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        std::map<std::string, ptree> byName;
        for (const auto& [key, control] : parseJson(outcome.output))
            byName[control.get<std::string>("name")] = control;
        return byName;
    }
    static bool enabled(const std::map<std::string, ptree>& panel, const char* name) {
        return panel.at(name).get<bool>("enabled");
    }
};

TEST_F(Controls, AreListedAsThePanelHasThem) {
    const auto preset = panel({});
    EXPECT_EQ(preset.size(), 24u);
    const ptree& size = preset.at("blockSize");
    EXPECT_EQ(size.get<std::string>("label"), "Block Size");
    EXPECT_EQ(size.get<int>("default"), 5);
    EXPECT_EQ(size.get<int>("minimum"), 2);
    EXPECT_EQ(size.get<int>("maximum"), 100);
    EXPECT_EQ(preset.at("noiseLevel").get<std::string>("value"), "0.25");
    EXPECT_EQ(preset.at("matchWhat").get_child("choices").size(), 2u);
    EXPECT_EQ(preset.at("maxBlockSize").get<bool>("starts_line"), false) << "stands beside blockSize";
    EXPECT_EQ(preset.at("correctionLimit").get<bool>("logarithmic_slider"), true);
    EXPECT_EQ(size.get<bool>("starts_line"), true);
    const std::string text = run({"controls"}).output;
    EXPECT_LT(text.find("Local GPU:"), text.find("useGPUIfAvailable"));
    EXPECT_LT(text.find("maskWith"), text.find("\nLocal Matching\n"));
    EXPECT_LT(text.find("\nOcclusions\n"), text.find("featherSize"));
    EXPECT_NE(text.find("      Controls the amount of feathering of the occlusion mask.\n"), std::string::npos);
    EXPECT_EQ(text.find("<b>"), std::string::npos);
}

TEST_F(Controls, AreEnabledByTheValuesOfOthers) {
    const auto preset = panel({});
    EXPECT_TRUE(enabled(preset, "intervalType"));
    EXPECT_FALSE(enabled(preset, "adjustEdges"));
    const auto basic = panel({"--matchingMode", "Basic"});
    EXPECT_FALSE(enabled(basic, "blockSize"));
    EXPECT_TRUE(enabled(basic, "maskWith"));
    const auto two = panel({"--samples", "2", "--occlusionCorrection", "Occlusions and Edges"});
    EXPECT_FALSE(enabled(two, "intervalType"));
    EXPECT_TRUE(enabled(two, "correctionType"));
    EXPECT_TRUE(enabled(two, "adjustEdges"));
    EXPECT_EQ(two.at("samples").get<int>("value"), 2);
    EXPECT_NE(run({"controls", "--matchingMode", "Basic"}).output.find("(disabled)\n"), std::string::npos);
}

TEST_F(Controls, WrongValuesAreRefusedAsByRender) {
    const Outcome outcome = run({"controls", "--blokSize", "5"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_NE(outcome.errors.find("There is no control 'blokSize'; the nearest are blockSize"), std::string::npos);
    EXPECT_EQ(run({"controls", "--blockSize", "1"}).exitCode, 2);
    EXPECT_EQ(run({"controls", "--correctionLimit", "-0.5"}).exitCode, 2);
    EXPECT_EQ(run({"controls", "--rightView", "third"}).exitCode, 2);
}

}  // namespace
}  // namespace ViewTint::Cli
