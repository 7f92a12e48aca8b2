#include "sim/userspace/properties.h"

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/phone_fixture.h"

using namespace std::string_literals;
using PropertiesTest = PhoneTest;

TEST_F(PropertiesTest, ProcessesShareThemAndSeeWholeValues) {
    const std::string one(91, '1'), two(40, '2');
    ASSERT_TRUE(setProperty("sys.a", one));
    const pid_t child = fork();
    if (child == 0) {
        sim::Services none(phone().runDir() + "/init", phone().log(), phone().faults());
        sim::Properties own(phone().runDir() + "/properties", none, phone().log());
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
    for (const std::string& key : {""s, std::string(129, 'k'), "a\0b"s, "."s, ".."s, "a/b"s,
                                   "../log/main"s, ".a"s, "a."s, "a..b"s, "a b"s, "a\n"s})
        EXPECT_FALSE(setProperty(key, "x")) << key;
}

TEST_F(PropertiesTest, CtlStartRunsTheNamedServiceUnlessItRuns) {
    std::atomic<int> runs{0};
    const auto dump = [&] { return ++runs, 0; };
    sim::Services others(phone().runDir() + "/init", phone().log(),
                         phone().faults());  // as another process has them
    for (sim::Services* services : {&others, &phone().services()}) services->add("dump", dump);
    phone().faults().hang("dump");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(property_set("ctl.start", "dump"), 0);
    ASSERT_TRUE(phone().faults().waitHanging("dump") && others.start("dump", nullptr));
    EXPECT_TRUE(logged("I init: service 'dump' requested start, but it is already running", 2));
    EXPECT_EQ(property("init.svc.dump"), "running");
    phone().faults().release("dump");
    for (int start = 0; start < 100; ++start) {
        while (property("init.svc.dump") == "running") std::this_thread::yield();
        EXPECT_EQ(property_set("ctl.start", "dump"), 0);
    }
    phone().services().awaitStopped();
    EXPECT_EQ(property("init.svc.dump") + std::to_string(runs), "stopped101");
    EXPECT_EQ(property_set("ctl.start", "none"), -1);
    EXPECT_TRUE(logged("E init: Control message: Could not find 'none' for ctl.start"));
    EXPECT_EQ(property_set("ctl.stop", "dump"), -1);
    EXPECT_EQ(property("ctl.start"), "");
}

TEST_F(PropertiesTest, ThePlatformsCallsGiveDefaults) {
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
