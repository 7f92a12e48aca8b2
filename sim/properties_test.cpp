#include "sim/properties.h"

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/services.h"
#include "tests/support/phone_test.h"

using PropertiesTest = PhoneTest;

TEST_F(PropertiesTest, ProcessesShareThemAndSeeWholeValues) {
    const std::string one(91, '1'), two(40, '2');
    ASSERT_TRUE(setProperty("sys.a", one));
    const pid_t child = fork();
    if (child == 0) {
        sim::Services none;
        sim::Properties own(phone().runDir() + "/properties", none);
        bool done = own.get("sys.a") == one && own.set("ro.b", "1");
        for (int i = 0; i < 500; ++i) done &= own.set("sys.a", i % 2 != 0 ? one : two);
        _exit(done ? 0 : 1);
    }
    int status = 1;
    while (waitpid(child, &status, WNOHANG) == 0) {
        const std::string value = property("sys.a");
        EXPECT_TRUE(value == one || value == two) << value;
    }
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(setProperty("ro.b", "2")) << "set once, by whomever";
    EXPECT_EQ(property("ro.b"), "1");
    EXPECT_EQ(phone().properties().all().size(), 2u) << "no half-written files";
}

TEST_F(PropertiesTest, KeysAndValuesAreBounded) {
    const std::string longest(91, 'v');
    EXPECT_TRUE(setProperty("A-z_0.9@:", longest));
    EXPECT_FALSE(setProperty("A-z_0.9@:", longest + "v"));
    EXPECT_EQ(property("A-z_0.9@:"), longest);
    for (const std::string& key : {std::string(), std::string(129, 'k'), std::string("a\0b", 3)})
        EXPECT_FALSE(setProperty(key, "x")) << key;
    for (const char* key : {".", "..", "../log/main", "a/b", ".a", "a.", "a..b", "a b", "a\n"})
        EXPECT_FALSE(setProperty(key, "x")) << key;
}

TEST_F(PropertiesTest, CtlStartRunsTheNamedService) {
    std::string type;
    phone().services().add("dump", [&] { type = property("dump.type"); });
    EXPECT_EQ(property_set("dump.type", "3,4"), 0);
    EXPECT_EQ(property_set("ctl.start", "dump"), 0);
    EXPECT_EQ(type, "3,4");
    EXPECT_EQ(property_set("ctl.start", "none"), -1);
    EXPECT_TRUE(
        logged(ANDROID_LOG_ERROR, "init", "Control message: Could not find 'none' for ctl.start"));
    EXPECT_EQ(property_set("ctl.stop", "dump"), -1);
    EXPECT_EQ(property("ctl.start"), "");
}

TEST_F(PropertiesTest, ThePlatformsCallsGiveDefaults) {
    using namespace android::base;
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("none", value, "0"), 1);
    EXPECT_STREQ(value, "0");
    EXPECT_EQ(property_get("none", value, nullptr), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(property_get("none", value, std::string(200, 'd').c_str()), 91);
    EXPECT_TRUE(SetProperty("b", "on") && GetBoolProperty("b", false));
    EXPECT_TRUE(SetProperty("b", "0") && !GetBoolProperty("b", true));
    EXPECT_TRUE(SetProperty("b", "maybe") && GetBoolProperty("b", true));
    EXPECT_EQ(property_set("b", nullptr), 0);
    EXPECT_EQ(GetProperty("b", "default"), "default");
}
