#include "host/graph/ControlValues.h"

#include <gtest/gtest.h>

#include "host/graph/ChannelRoles.h"
#include "host/graph/RenderJob.h"
#include "host/graph/SettingError.h"
#include "tests/host/graph/ProbeOp.h"

namespace ViewTint::Host::Testing {
namespace {

std::string settingErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const SettingError& error) {
        return error.what();
    }
    ADD_FAILURE() << "no SettingError was thrown";
    return "";
}

std::string errorOf(const std::string& name, const std::string& text) {
    return settingErrorOf([&] { ControlValues(probeClass).set(name, text); });
}

double valueOf(const std::string& name, const std::string& text) {
    ControlValues values(probeClass);
    values.set(name, text);
    const std::vector<std::string> views = {"left", "right"};
    return values.resolve(views).at(0).number;
}

TEST(ControlValuesTest, understandsEachKindOfControl) {
    EXPECT_EQ(valueOf("count", "10"), 10);
    EXPECT_EQ(valueOf("gain", "+2.5e1"), 25);  // beyond the slider, which doesn't bind
    for (const char* on : {"on", "Yes", "TRUE", "1"})
        EXPECT_EQ(valueOf("clamp", on), 1) << on;
    for (const char* off : {"off", "no", "False", "0"})
        EXPECT_EQ(valueOf("clamp", off), 0) << off;
    EXPECT_EQ(valueOf("mode", "fancy mode"), 1);
    EXPECT_EQ(valueOf("mode", "0"), 0);
    EXPECT_EQ(valueOf("corrected", "right"), 2);
    EXPECT_EQ(valueOf("corrected", "1"), 1);
}

TEST(ControlValuesTest, namesTheNearestControls) {
    const auto nearest = [](const std::string& name) {
        return settingErrorOf([&] { ControlValues(viewTintClass).set(name, "1"); });
    };
    EXPECT_EQ(nearest("blocksize"),
              "There is no control 'blocksize'; the nearest are blockSize, maxBlockSize, supportSize.");
    EXPECT_NE(nearest("macthWhat").find("the nearest are matchWhat"), std::string::npos);
    EXPECT_EQ(errorOf("", "1"), "There is no control ''; the nearest are gain, mode, count.");
    EXPECT_EQ(errorOf("about", "1"), "The control about only shows something; leave it out.");
}

TEST(ChannelRolesTest, assignsChannels) {
    ChannelRoles roles;
    roles.assign("r=beauty.R");
    roles.assign("blue=B=2");
    roles.assign("mask_occlusion.alpha=occluded");
    EXPECT_EQ(roles.find(Fresco::Image::redChannel)->fileChannel, "beauty.R");
    EXPECT_EQ(roles.find(Fresco::Image::greenChannel)->fileChannel, "G");
    EXPECT_EQ(roles.find(Fresco::Image::blueChannel)->fileChannel, "B=2");
    EXPECT_EQ(roles.find(12)->fileChannel, "disparityR.x");
    EXPECT_EQ(roles.all().back().fileChannel, "occluded");
    for (const char* wrong : {"red", "=R", "red="}) {
        EXPECT_NE(settingErrorOf([&] { roles.assign(wrong); }).find("write ROLE=NAME"), std::string::npos) << wrong;
    }
    EXPECT_NE(settingErrorOf([&] { roles.assign("depth=Z"); }).find("the roles are: red, green,"), std::string::npos);
}

}  // namespace
}  // namespace ViewTint::Host::Testing
