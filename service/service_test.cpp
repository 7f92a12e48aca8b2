#include <utils/ThreadStartControl.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "event/PeltoEventDisptch.h"
#include "service/PeltoService.h"
#include "sim/kernel/display_kernel.h"
#include "testlistener/EventTest.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::literals;
constexpr char kForTest[] = "pelto_event_for_test";
const std::string kArrived = "D EventTest: handleEvent:pelto_event_for_test eventInfo ";

// Logs what it receives under the tag "client", after its name.
struct Client : BnPeltoNativeClient {
    status_t onNativeEvent(const char* type, const char* info) override {
        __android_log_print(ANDROID_LOG_INFO, "client", "%s%s$%s", name.c_str(), type, info);
        if (then) then();
        return DEAD_OBJECT;  // the result is ignored
    }
    std::string name;
    std::function<void()> then;
};

class ServiceTest : public PhoneTest {
  protected:
    void start() {
        // Otherwise it ends on some runs, when it is faster than its own construction.
        thread_control::hold("KelvoDmesgThread");
        service = new PeltoService();
        thread_control::release("KelvoDmesgThread");
        service->registerNativeClient(client);
    }
    void declineMonitor() {
        setProperty("ro.kelvo.memory.size", "4");
        setProperty("ro.kelvo.mm_memory.optimize", "true");
    }
    void set(const char* type, const char* info) {
        service->setEvent(String8(type), String8(info));
    }

    const sp<Client> client = new Client;
    sp<PeltoService> service;
};

TEST_F(ServiceTest, CallsEachClientOnceInTheOrderOfAddressesAndThenTheListeners) {
    start();
    std::vector<sp<Client>> clients{new Client, client, new Client};
    std::sort(clients.begin(), clients.end());
    for (const size_t i : {1, 2, 0, 1}) {
        EXPECT_EQ(0, service->registerNativeClient(clients[i]));
        clients[i]->name = std::to_string(i) + ":";
    }
    EXPECT_EQ(0, service->registerNativeClient(nullptr));
    client->then = [&] {
        // A message queued here is delivered after all those queued before.
        service->setEventToNative(String8(kForTest), String8("behind"));
        EXPECT_TRUE(waitLogged(kArrived + "behind"));
        EXPECT_FALSE(logged(kArrived + "1"));
    };
    set(kForTest, "1");
    EXPECT_TRUE(waitLogged(kArrived + "1"));
    EXPECT_EQ(
        "I 0:pelto_event_for_test$1\nI 1:pelto_event_for_test$1\nI 2:pelto_event_for_test$1\n",
        said("client"));

    client->then = {};
    service->setDebugLog(true);
    service->updateSFStateFlag(true);
    service->notifyVideoStutter(String8("HwuiDetect"), 41);
    service->setEventToNative(String8("c"), String8("d"));
    EXPECT_TRUE(logged("V PeltoEventDisptch: setDebugLog 1"));
    service->setDebugLog(false);
    EXPECT_TRUE(logged("I client: 2:pelto_event_audio_set_debug_log$0"));
    EXPECT_EQ(
        "V PeltoService setEvent:pelto_event_audio_set_debug_log cliensCount 3\n"
        "V setDebugLog 1\n"
        "V updateSFState  sfState:1\nW notifyVideoStutter return, not report frameGap:41\n"
        "V setEventToNative event:c info:d\n",
        said("PeltoService"));
}

TEST_F(ServiceTest, LimitsTheRateOfTopActivityUpdates) {
    holdClock();
    start();
    setProperty("sys.kelvo.video.top.activity.name", "player");
    using Call = std::tuple<std::chrono::milliseconds, int64_t, size_t>;
    for (const auto& [later, interval, sent] :
         {Call{0, 1000, 1}, Call{1000, 1000, 1}, Call{1, 1000, 2}, Call{0, 0, 2}, Call{0, -1, 3}}) {
        advance(later);
        service->updateTopActivity(interval);
        EXPECT_EQ(std::vector(sent, "pelto_event_video_update_top_activity$"s), logLines("client"));
        EXPECT_EQ(1 + sent, logLines("PeltoService").size());
    }
    EXPECT_EQ("", property("sys.kelvo.video.top.activity.name"));
}

TEST_F(ServiceTest, ItsTestListenerTellsWhatEventsCarryAndRepliesToOne) {
    const sp<EventTest> listener = new EventTest;
    const std::string asks =
        "pelto_event_for_test_to_native$value0:2,value1:3,string0:event_to_native";
    for (const char* other : {",value0:1", ",value1:4", ",string0:event_to_nativeX"})
        listener->handleEvent(asks + other);
    EXPECT_EQ(3u * 2, logLines("EventTest").size()) << "no reply";
    forgetLog();
    listener->handleEvent("pelto_event_audio_track_create$pid:12,sessionId:34,flags:0x4");
    listener->handleEvent("pelto_event_for_test$value0:5,string0:s,string1:t u");
    listener->handleEvent(asks);
    EXPECT_EQ(R"(D handleEvent pelto_event_audio_track_create )"
              R"(pid:12,sessionId:34,streamType:-1,flags:0,deviceTypes:-1,hasFastMixer:-1
D handleEvent:pelto_event_for_test eventInfo value0:5,string0:s,string1:t u
D handleEvent:pelto_event_for_test value0:5 value1:-1 string0:s string1:t u
D handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE eventInfo value0:2,value1:3,string0:event_to_native
D handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE value0:2 value1:3 string0:event_to_native string1:
D pelto_event_test event:pelto_event_for_test_from_native,info:)"
              "value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native\n",
              said("EventTest"));
}

TEST_F(ServiceTest, LivesUntilItsLastCallerLetsGoAndItsListenersLongerStill) {
    declineMonitor();  // a started one keeps the service for ever
    start();
    service->binderDied(nullptr);
    EXPECT_TRUE(logged("D PeltoService: PeltoService Died"));
    phone().displayKernel().end();
    EXPECT_TRUE(waitLogged("D DisplayKevent: mm_kevent_pelto has ended"));
    client->then = [&] {
        service.clear();
        EXPECT_FALSE(logged("D PeltoService: ~PeltoService")) << "a call is in progress";
    };
    std::thread([owner = service] { owner->setEvent(String8(kForTest), String8("first")); }).join();
    EXPECT_TRUE(waitLogged("D PeltoService: ~PeltoService"));
    PeltoEventDisptch::getInstance().setEvent(String8(kForTest), String8("second"));
    EXPECT_TRUE(waitLogged(kArrived + "second"));
}

TEST_F(ServiceTest, WorksWithoutChannelsMonitorAndFolders) {
    thread_control::refuse("kelvo_fb_pelto");
    thread_control::refuse("kelvo_audio_mic_check");
    declineMonitor();
    std::filesystem::remove_all(phone().fsDir() + "/data");
    start();
    set(kForTest, "1");
    EXPECT_TRUE(waitLogged(kArrived + "1"));
    EXPECT_TRUE(waitLogged("D KelvoDmesgThread: KelvoDmesgThread going to sleep"));
    set("event_audio_detect_dump_log", "");
    EXPECT_TRUE(waitLogged("D KelvoDmesgThread: KelvoDmesgThread waking up"));
}

TEST_F(ServiceTest, WorksWithoutListenersAndCompositor) {
    thread_control::refuse("pelto_looper");
    thread_control::refuse("KelvoDmesgThread");
    start();
    EXPECT_EQ("ok", tell("audio-await"));
    for (const char* input : {"audio 7 x", "display 23 text", "gpu fault --hash h"}) tell(input);
    for (const char* line : {"I client: pelto_event_peltoserver_feedback$MM_FB_EventID#23",
                             "E PeltoService: handleAudioKernelInfo: unsupport cmd=7",
                             "I client: pelto_event_peltoserver_feedback$EventID,410,Reason,h"})
        EXPECT_TRUE(waitLogged(line)) << line;
}

}  // namespace
}  // namespace android
