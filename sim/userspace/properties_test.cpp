#include "sim/userspace/properties.h"

#include <android-base/properties.h>
#include <cutils/properties.h>

#include <atomic>
#include <thread>

#include "tests/support/phone_fixture.h"

using namespace std::string_literals;
using PropertiesTest = PhoneTest;

TEST_F(PropertiesTest, AreBoundedSharedByProcessesAndSetOnceWhenReadOnly) {
    sim::Services none(phone().runDir() + "/init", phone().log(), phone().faults());
    sim::Properties others(phone().runDir() + "/properties", none, phone().log());
    for (const std::string& value : {std::string(40, '1'), std::string(91, '2')}) {
        EXPECT_TRUE(setProperty("A-z_0.9@:", value));
        EXPECT_EQ(others.get("A-z_0.9@:"), value);
        EXPECT_FALSE(setProperty("A-z_0.9@:", std::string(92, '3')));
    }
    EXPECT_TRUE(others.set("ro.b", "1"));
    EXPECT_FALSE(setProperty("ro.b", "2"));
    EXPECT_EQ(property("ro.b"), "1");
    for (const std::string& key :
         {""s, std::string(129, 'k'), "a\0b"s, "a/b"s, ".a"s, "a."s, "a..b"s})
        EXPECT_FALSE(setProperty(key, "x")) << key;
    EXPECT_EQ(phone().properties().all().size(), 2u) << "no half-written files";
}

TEST_F(PropertiesTest, CtlStartRunsTheNamedServiceUnlessItRuns) {
    std::atomic<int> runs{0};
    // As another process has them.
    sim::Services others(phone().runDir() + "/init", phone().log(), phone().faults());
    for (sim::Services* services : {&others, &phone().services()})
        services->add("dump", [&] { return ++runs, 0; });
    phone().faults().hang("dump");
    EXPECT_EQ(property_set("ctl.start", "dump"), 0);
    ASSERT_TRUE(phone().faults().waitHanging("dump") && others.start("dump", nullptr));
    EXPECT_TRUE(logged("I init: service 'dump' requested start, but it is already running"));
    EXPECT_EQ(property("init.svc.dump"), "running");
    phone().faults().release("dump");
    for (int start = 0; start < 20; ++start) {
        while (property("init.svc.dump") == "running") std::this_thread::yield();
        EXPECT_EQ(property_set("ctl.start", "dump"), 0);
    }
    phone().services().awaitStopped();
    EXPECT_EQ(property("init.svc.dump") + std::to_string(runs), "stopped21");
    EXPECT_EQ(property_set("ctl.start", "none"), -1);
    EXPECT_TRUE(logged("E init: Control message: Could not find 'none' for ctl.start"));
    EXPECT_EQ(property_set("ctl.stop", "dump"), -1);
    EXPECT_EQ(property("ctl.start"), "");
}

TEST_F(PropertiesTest, HaveDefaultsInThePlatformsCalls) {
    using namespace android::base;
    char value[PROPERTY_VALUE_MAX];
    EXPECT_TRUE(property_get("none", value, "0") == 1 && value == "0"s);
    EXPECT_TRUE(property_get("none", value, nullptr) == 0 && value == ""s);
    EXPECT_EQ(property_get("none", value, std::string(200, 'd').c_str()), 91);
    EXPECT_TRUE(SetProperty("b", "on") && GetBoolProperty("b", false));
    EXPECT_TRUE(SetProperty("b", "0") && !GetBoolProperty("b", true));
    EXPECT_TRUE(SetProperty("b", "maybe") && GetBoolProperty("b", true));
    EXPECT_EQ(property_set("b", nullptr), 0);
}
