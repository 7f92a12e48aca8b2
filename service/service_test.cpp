#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/ThreadControl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <thread>

#include "event/PeltoEventDisptch.h"
#include "service/PeltoService.h"
#include "sim/display_kernel.h"
#include "sim/generic_netlink.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

using namespace std::chrono_literals;
constexpr char kTag[] = "PeltoService";

// A native client of this process; `note` takes what it receives.
class Client : public BnPeltoNativeClient {
  public:
    explicit Client(std::function<void(const std::string&)> note) : mNote(std::move(note)) {}
    status_t onNativeEvent(const char* type, const char* info) override {
        mNote(std::string(type) + "$" + info);
        return DEAD_OBJECT;  // whatever it returns is ignored
    }

  private:
    const std::function<void(const std::string&)> mNote;
};

// Notes every event of one type that reaches the listeners.
class Watcher : public EventListener {
  public:
    Watcher(const char* type, std::promise<std::string>* seen) : mSeen(seen) {
        mEventTypes.add(type);
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string event) override { mSeen->set_value(event); }

  private:
    std::promise<std::string>* const mSeen;
};

class ServiceTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        // Or it gives up on some runs: where it is faster than its own construction.
        thread_control::hold("KelvoDmesgThread");
        service = new PeltoService();
        thread_control::release("KelvoDmesgThread");
        EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, "PeltoService"));
        forgetLog();
    }
    sp<Client> client(const std::string& name = "") {
        return new Client(
            [this, name](const std::string& event) { received.push_back(name + event); });
    }
    void set(const char* type, const char* info) {
        service->setEvent(String8(type), String8(info));
    }

    using Texts = std::vector<std::string>;
    sp<PeltoService> service;
    Texts received;
};

TEST_F(ServiceTest, CallsEachClientOnceAnEventInTheOrderOfTheirAddresses) {
    std::vector<sp<Client>> clients{client("0:"), client("1:"), client("2:")};
    for (const int i : {1, 2, 0, 1}) {
        EXPECT_EQ(0, service->registerNativeClient(clients[static_cast<size_t>(i)]));
    }
    EXPECT_EQ(0, service->registerNativeClient(nullptr));
    Texts expected{"0:a$b", "1:a$b", "2:a$b"};
    std::sort(expected.begin(), expected.end(), [&](const auto& x, const auto& y) {
        const auto address = [&](const std::string& text) {
            return static_cast<IPeltoNativeClient*>(
                clients[static_cast<size_t>(text[0] - '0')].get());
        };
        return std::less<>()(address(x), address(y));
    });
    set("a", "b");
    EXPECT_EQ(expected, received);
    EXPECT_TRUE(logLines(kTag).empty());
}

TEST_F(ServiceTest, ClientsSeeAnEventBeforeTheListenersAndNotWhatIsMeantForThese) {
    std::promise<std::string> seen;
    auto arrived = seen.get_future();
    const sp<Watcher> watcher = new Watcher("x", &seen);
    std::promise<std::string> overtaken;
    const sp<Watcher> behind = new Watcher("behind", &overtaken);
    service->registerNativeClient(new Client([&](const std::string& event) {
        EXPECT_EQ("x$1", event);
        // What is queued now comes out behind whatever was queued before.
        PeltoEventDisptch::getInstance().setEvent(String8("behind"), String8(""));
        overtaken.get_future().wait();
        EXPECT_EQ(std::future_status::timeout, arrived.wait_for(0s));
    }));
    set("x", "1");
    EXPECT_EQ("x$1", arrived.get());

    std::promise<std::string> native;
    const sp<Watcher> other = new Watcher("y", &native);
    service->setEventToNative(String8("y"), String8("2"));  // the client would object to it
    EXPECT_EQ("y$2", native.get_future().get());
}

TEST_F(ServiceTest, TheDebugSwitchIsBroadcast) {
    service->registerNativeClient(client());
    service->setDebugLog(true);
    set("a", "b");
    service->setEventToNative(String8("c"), String8("d"));
    EXPECT_EQ((Texts{"PeltoService setEvent:pelto_event_audio_set_debug_log cliensCount 1",
                     "setDebugLog 1", "PeltoService setEvent:a cliensCount 1",
                     "setEventToNative event:c info:d"}),
              logLines(kTag));
    EXPECT_TRUE(logged(ANDROID_LOG_VERBOSE, "PeltoEventDisptch", "setDebugLog 1"));
    forgetLog();
    service->setDebugLog(false);
    EXPECT_TRUE(logLines(kTag).empty());
    EXPECT_EQ(
        (Texts{"pelto_event_audio_set_debug_log$1", "a$b", "pelto_event_audio_set_debug_log$0"}),
        received);
}

TEST_F(ServiceTest, SuppressesOneDetectorsStutterReportsWhileTheFlagIsUp) {
    service->registerNativeClient(client());
    service->notifyVideoStutter(String8("HwuiDetect"), 40);
    service->updateSFStateFlag(true);
    service->notifyVideoStutter(String8("HwuiDetect"), 41);
    service->notifyVideoStutter(String8("hwuiDetect"), -1);
    EXPECT_EQ((Texts{"notifyVideoStutter return, not report frameGap:41"}), logLines(kTag));
    EXPECT_EQ((Texts{"pelto_event_video_stutter_ext$detectName#HwuiDetect#frameGap#40",
                     "pelto_event_video_stutter_ext$detectName#hwuiDetect#frameGap#-1"}),
              received);
    service->setDebugLog(true);
    service->updateSFStateFlag(false);
    EXPECT_TRUE(logged(ANDROID_LOG_VERBOSE, kTag, "updateSFState  sfState:0"));
}

TEST_F(ServiceTest, TopActivityUpdatesAreRateLimited) {
    holdClock();
    service->registerNativeClient(client());
    setProperty("sys.kelvo.video.top.activity.name", "player");
    service->updateTopActivity(1000);
    EXPECT_EQ("", property("sys.kelvo.video.top.activity.name"));
    advance(1000ms);
    service->updateTopActivity(1000);
    EXPECT_EQ(1u, received.size()) << "exactly the interval is too soon";
    advance(1ms);
    service->updateTopActivity(1000);
    EXPECT_EQ(2u, received.size());
    service->updateTopActivity(0);
    EXPECT_EQ(2u, received.size());
    service->updateTopActivity(-1);
    EXPECT_EQ((Texts(3, "pelto_event_video_update_top_activity$")), received);
    EXPECT_EQ(3u, logLines(kTag).size());

    advance(1s);
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) callers.emplace_back([&] { service->updateTopActivity(500); });
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(4u, logLines(kTag).size()) << "of several at once one passes";
}

// The names of this process's threads.
std::set<std::string> threadNames() {
    std::set<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        names.insert(name);
    }
    return names;
}

TEST_F(ServiceTest, StartsItsChannelsWithTheirHooks) {
    service->registerNativeClient(client());
    ASSERT_TRUE(phone().netlink().waitReceived(2));
    EXPECT_NE(std::string::npos, phone().netlink().received()[1].find("knl_nt_com"));
    phone().netlink().push(7, "x");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "receive cmd=7, len=2, data=x"));
    phone().displayKernel().send({"23", "text"});
    EXPECT_TRUE(
        waitLogged(ANDROID_LOG_DEBUG, kTag, "handleKernelFeedback: MM_FB_EventID:23, data:text"));
    // A thread takes its name as the first thing it does.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (const char* name : {"pelto_looper", "kelvo_fb_pelto", "kelvo_audio_mic", "KelvoGpuMinidum",
                             "KelvoDmesgThrea"}) {
        while (threadNames().count(name) == 0) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << name;
        }
    }
}

// Where nothing but the dispatcher can start.
class ServiceFaultTest : public ServiceTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        for (const char* name : {"kelvo_fb_pelto", "kelvo_audio_mic_check", "KelvoDmesgThread"}) {
            thread_control::refuse(name);
        }
        setProperty("ro.kelvo.memory.size", "4");
        setProperty("ro.kelvo.mm_memory.optimize", "true");
        service = new PeltoService();
    }
};

TEST_F(ServiceFaultTest, WhatCannotStartLeavesTheRestWorking) {
    service->registerNativeClient(client());
    set("pelto_event_for_test", "value0:1");
    EXPECT_EQ(Texts{"pelto_event_for_test$value0:1"}, received);
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, "EventTest",
                           "handleEvent:pelto_event_for_test eventInfo value0:1"));
    set("event_audio_detect_dump_log", "");
    set("pelto_event_for_test", "value0:2");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, "EventTest",
                           "handleEvent:pelto_event_for_test eventInfo value0:2"));
    EXPECT_TRUE(commands().empty());
}

// On a phone whose monitor declines: one that starts keeps the service for good.
class ServiceEndTest : public ServiceTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        setProperty("ro.kelvo.memory.size", "4");
        setProperty("ro.kelvo.mm_memory.optimize", "true");
        service = new PeltoService();
    }
};

TEST_F(ServiceEndTest, LivesUntilItsLastOwnerLetsGo) {
    service->binderDied(nullptr);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, "PeltoService Died"));
    phone().displayKernel().end();
    service.clear();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, "~PeltoService"));
    std::promise<std::string> seen;
    const sp<Watcher> watcher = new Watcher("pelto_event_for_test", &seen);
    PeltoEventDisptch::getInstance().setEvent(String8("pelto_event_for_test"), String8("value0:1"));
    seen.get_future().wait();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "EventTest",
                       "handleEvent:pelto_event_for_test eventInfo value0:1"))
        << "its listeners outlive it";
}

TEST_F(ServiceTest, TheTestListenerTellsWhatEventsCarry) {
    const auto eventTest = [&](const char* line) {
        return waitLogged(ANDROID_LOG_DEBUG, "EventTest", line);
    };
    set("pelto_event_for_test", "value0:5,string0:s,string1:t u");
    EXPECT_TRUE(
        eventTest("handleEvent:pelto_event_for_test value0:5 value1:-1 string0:s string1:t u"));
    set("pelto_event_audio_track_create", "pid:12,sessionId:34,flags:0x4,hasFastMixer:1");
    EXPECT_TRUE(
        eventTest("handleEvent pelto_event_audio_track_create pid:12,sessionId:34,"
                  "streamType:-1,flags:0,deviceTypes:-1,hasFastMixer:1"));
    EXPECT_EQ(3u, logLines("EventTest").size());
}

TEST_F(ServiceTest, TheTestListenersReplyComesBackAsAClientsEvent) {
    defaultServiceManager()->addService(String16(kPeltoServiceName), IInterface::asBinder(service));
    ProcessState::self()->startThreadPool();
    std::promise<std::string> replied;
    service->registerNativeClient(new Client([&](const std::string& event) {
        if (event.find("from_native") != std::string::npos) replied.set_value(event);
    }));
    const char* const kType = "pelto_event_for_test_to_native";
    for (const char* info :
         {"value0:2,value1:4,string0:event_to_native", "value0:2,value1:3,string0:event_to_nativeX",
          "value0:2,value1:3", "value0:2,value1:3,string0:event_to_native,string1:any"}) {
        set(kType, info);
    }
    EXPECT_EQ(
        "pelto_event_for_test_from_native$value0:4,value1:5,string0:evetn_frome_native,"
        "string1:evetn_frome_native",
        replied.get_future().get());
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, "EventTest",
                           "pelto_event_test event:pelto_event_for_test_from_native,info:value0:4,"
                           "value1:5,string0:evetn_frome_native,string1:evetn_frome_native"));
    EXPECT_EQ(9u, logLines("EventTest").size()) << "two lines an event, and one reply";
}

}  // namespace
}  // namespace android
