#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <linux/netlink.h>
#include <signal.h>
#include <utils/ThreadStartControl.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "event/PeltoEventDisptch.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "service/PeltoService.h"
#include "sim/kernel/display_kernel.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/kernel/gpu.h"
#include "sim/userspace/properties.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

constexpr char kTag[] = "PeltoService";
constexpr char kForTest[] = "pelto_event_for_test";

// Logs what it receives as a native client under the tag "client", as a listener under "listener".
class Witness : public BnPeltoNativeClient, public EventListener {
  public:
    void listen(const Texts& types) {
        for (const auto& type : types) mEventTypes.add(type);
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    status_t onNativeEvent(const char* type, const char* info) override {
        __android_log_print(ANDROID_LOG_INFO, "client", "%s%s$%s", name.c_str(), type, info);
        if (onClient) onClient();
        return DEAD_OBJECT;  // the result is ignored
    }
    void handleEvent(std::string event) override {
        __android_log_print(ANDROID_LOG_INFO, "listener", "%s", event.c_str());
        if (onListener) onListener();
    }
    std::string name;
    std::function<void()> onClient, onListener;
};

class ServiceTest : public PhoneTest {
  protected:
    void start() {
        // Otherwise it ends on some runs, when it is faster than its own construction.
        thread_control::hold("KelvoDmesgThread");
        service = new PeltoService();
        thread_control::release("KelvoDmesgThread");
        service->registerNativeClient(witness);
    }
    void set(const char* type, const char* info) {
        service->setEvent(String8(type), String8(info));
    }

    const sp<Witness> witness = new Witness;
    sp<PeltoService> service;
};

TEST_F(ServiceTest, CallsEachClientOnceAnEventInTheOrderOfTheirAddresses) {
    start();
    std::vector<sp<Witness>> clients{new Witness, witness, new Witness};
    std::sort(clients.begin(), clients.end());
    for (const size_t i : {1, 2, 0, 1}) {
        EXPECT_EQ(0, service->registerNativeClient(clients[i]));
        clients[i]->name = std::to_string(i) + ":";
    }
    EXPECT_EQ(0, service->registerNativeClient(nullptr));
    set("a", "b");
    EXPECT_EQ((Texts{"0:a$b", "1:a$b", "2:a$b"}), logLines("client"));
    EXPECT_EQ(Texts{"PeltoService"}, logLines(kTag));
}

TEST_F(ServiceTest, ClientsSeeAnEventBeforeTheListenersAndNotWhatIsMeantForThese) {
    start();
    witness->listen({"x", "y", "behind"});
    witness->onClient = [&] {
        // A message queued here is delivered after all those queued before.
        PeltoEventDisptch::getInstance().setEvent(String8("behind"), String8(""));
        EXPECT_TRUE(waitLogged("I listener: behind$"));
    };
    set("x", "1");
    service->setEventToNative(String8("y"), String8("2"));
    EXPECT_TRUE(waitLogged("I listener: y$2"));
    EXPECT_EQ((Texts{"behind$", "x$1", "y$2"}), logLines("listener"));
    EXPECT_EQ(Texts{"x$1"}, logLines("client"));
}

TEST_F(ServiceTest, TheDebugSwitchIsBroadcast) {
    start();
    service->setDebugLog(true);
    set("a", "b");
    service->setEventToNative(String8("c"), String8("d"));
    service->updateSFStateFlag(false);
    EXPECT_TRUE(logged("V PeltoEventDisptch: setDebugLog 1"));
    service->setDebugLog(false);
    EXPECT_EQ((Texts{"PeltoService",
                     "PeltoService setEvent:pelto_event_audio_set_debug_log cliensCount 1",
                     "setDebugLog 1", "PeltoService setEvent:a cliensCount 1",
                     "setEventToNative event:c info:d", "updateSFState  sfState:0"}),
              logLines(kTag));
    EXPECT_EQ(
        (Texts{"pelto_event_audio_set_debug_log$1", "a$b", "pelto_event_audio_set_debug_log$0"}),
        logLines("client"));
}

TEST_F(ServiceTest, SuppressesOneDetectorsStutterReportsWhileTheFlagIsUp) {
    start();
    service->notifyVideoStutter(String8("HwuiDetect"), 40);
    service->updateSFStateFlag(true);
    service->notifyVideoStutter(String8("HwuiDetect"), 41);
    service->notifyVideoStutter(String8("hwuiDetect"), -1);
    EXPECT_EQ((Texts{"PeltoService", "notifyVideoStutter return, not report frameGap:41"}),
              logLines(kTag));
    EXPECT_EQ((Texts{"pelto_event_video_stutter_ext$detectName#HwuiDetect#frameGap#40",
                     "pelto_event_video_stutter_ext$detectName#hwuiDetect#frameGap#-1"}),
              logLines("client"));
}

TEST_F(ServiceTest, TopActivityUpdatesAreRateLimited) {
    holdClock();
    start();
    setProperty("sys.kelvo.video.top.activity.name", "player");
    using Call = std::tuple<std::chrono::milliseconds, int64_t, size_t>;
    for (const auto& [later, interval, accepted] :
         {Call{0, 1000, 1}, Call{1000, 1000, 1}, Call{1, 1000, 2}, Call{0, 0, 2}, Call{0, -1, 3}}) {
        advance(later);
        service->updateTopActivity(interval);
        EXPECT_EQ("", property("sys.kelvo.video.top.activity.name"));
        EXPECT_EQ(Texts(accepted, "pelto_event_video_update_top_activity$"), logLines("client"));
        EXPECT_EQ(1 + accepted, logLines(kTag).size());
    }
    advance(1s);
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) callers.emplace_back([&] { service->updateTopActivity(500); });
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(4u, logLines("client").size()) << "of several at once one passes";
}

TEST_F(ServiceTest, TheTestListenerTellsWhatEventsCarryAndRepliesToOneThroughTheService) {
    start();
    defaultServiceManager()->addService(String16(kPeltoServiceName), IInterface::asBinder(service));
    ProcessState::self()->startThreadPool();
    set("pelto_event_audio_track_create", "pid:12,sessionId:34,flags:0x4,hasFastMixer:1");
    set(kForTest, "value0:5,string0:s,string1:t u");
    Texts expected{
        "handleEvent pelto_event_audio_track_create pid:12,sessionId:34,streamType:-1,flags:0,"
        "deviceTypes:-1,hasFastMixer:1",
        "handleEvent:pelto_event_for_test eventInfo value0:5,string0:s,string1:t u",
        "handleEvent:pelto_event_for_test value0:5 value1:-1 string0:s string1:t u"};
    for (std::string info : {"value0:2,value1:4,string0:event_to_native,string1:",
                             "value0:1,value1:3,string0:event_to_native,string1:",
                             "value0:2,value1:3,string0:event_to_nativeX,string1:",
                             "value0:2,value1:3,string0:event_to_native,string1:any"}) {
        set("pelto_event_for_test_to_native", info.c_str());
        expected.push_back("handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE eventInfo " + info);
        std::replace(info.begin(), info.end(), ',', ' ');
        expected.push_back("handleEvent:PELTO_EVENT_FOR_TEST_TO_NATIVE " + info);
    }
    const std::string reply =
        "value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native";
    expected.push_back("pelto_event_test event:pelto_event_for_test_from_native,info:" + reply);
    EXPECT_TRUE(waitLogged("I client: pelto_event_for_test_from_native$" + reply));
    EXPECT_TRUE(waitLogged("D EventTest: " + expected.back()));
    EXPECT_EQ(expected, logLines("EventTest"));
}

void declineMonitor(sim::Phone& phone) {
    phone.properties().set("ro.kelvo.memory.size", "4");
    phone.properties().set("ro.kelvo.mm_memory.optimize", "true");
}

TEST_F(ServiceTest, LivesUntilItsLastCallerLetsGoAndWhatIsQueuedArrivesAfterwards) {
    declineMonitor(phone());  // a started one keeps the service for ever
    start();
    service->binderDied(nullptr);
    EXPECT_TRUE(logged("D PeltoService: PeltoService Died"));
    phone().displayKernel().end();
    std::promise<void> clientGoesOn, listenersGoOn;
    witness->onClient = [&] { clientGoesOn.get_future().wait(); };
    witness->onListener = [&] { listenersGoOn.get_future().wait(); };
    witness->listen({"gate"});
    PeltoEventDisptch::getInstance().setEvent(String8("gate"), String8(""));
    auto caller = std::async(std::launch::async, [&] {
        const sp<PeltoService> owner = service;
        owner->setEvent(String8(kForTest), String8("value0:1"));
    });
    EXPECT_TRUE(waitLogged("I client: pelto_event_for_test$value0:1"));
    service.clear();
    EXPECT_FALSE(logged("D PeltoService: ~PeltoService")) << "a call is in progress";
    clientGoesOn.set_value();
    caller.get();
    EXPECT_TRUE(logged("D PeltoService: ~PeltoService"));
    EXPECT_TRUE(logLines("EventTest").empty());
    listenersGoOn.set_value();
    EXPECT_TRUE(waitLogged("D EventTest: handleEvent:pelto_event_for_test eventInfo value0:1"));
}

// A log line of every part of the service that works, with the part's letter: listeners, display,
// compositor, audio, gpu, kernel log.
const std::pair<const char*, const char*> kAnswers[] = {
    {"", "I client: pelto_event_for_test$value0:1"},
    {"", "D KelvoAudioKernelNativeCom: audio kernel native genetlink module:knl_nt_com\n"},
    {"l", "D EventTest: handleEvent:pelto_event_for_test eventInfo value0:1"},
    {"d", "I client: pelto_event_peltoserver_feedback$MM_FB_EventID#23"},
    {"dc", "D PeltoService: notifySurfaceFlinger transact ret=0"},
    {"a", "E PeltoService: handleAudioKernelInfo: unsupport cmd=7"},
    {"g", "I client: pelto_event_peltoserver_feedback$EventID,410,Reason,h"},
    {"k", "D KelvoDmesgThread: KelvoDmesgThread waking up"},
};

// A resource that is missing when the service starts: how it is taken away, the parts that fail
// with it, and the log line that reports it, "" for none.
using Lack = std::tuple<std::function<void(sim::Phone&)>, std::string, std::string>;

auto noThread(const char* name) {
    return [name](sim::Phone&) { thread_control::refuse(name); };
}

void takeNetlinkAddress(sim::Phone&) {
    (new KelvoAudioKernelNativeCom(nullptr, "other", nullptr))->createGenlSocket(NETLINK_GENERIC);
}

const std::vector<Lack> kLacks = {
    {noThread("pelto_looper"), "lk",
     "E PeltoEventDisptch: cannot start handler thread, error:-2147483648"},
    {noThread("kelvo_fb_pelto"), "d", ""},
    {noThread("kelvo_audio_mic_check"), "a", ""},
    {noThread("KelvoDmesgThread"), "k", ""},
    {[](auto& phone) { std::filesystem::remove_all(phone.fsDir() + "/data"); }, "",
     "D KelvoGpuMinidump: open kelvo dumpfile error: No such file or directory"},
    {declineMonitor, "g", "I KelvoGpuMinidump: KelvoFennix isDisable4G set false"},
    {[](auto& phone) { phone.gpu().vanish(); }, "g",
     "D KelvoGpuMinidump: gpu timestamp file open failed,error -1, No such file or directory"},
    {takeNetlinkAddress, "a",
     "E KelvoAudioKernelNativeCom: [ERROR]: create or bind Netlink socket err \n"},
    {[](auto&) {}, "c", "E PeltoService: notifySurfaceFlinger sf null"},
    {[](auto&) {}, "d", "D DisplayKevent: mm_kevent_pelto has ended"},
};

// Each start has its own process and phone, and ends by a signal: a monitor whose thread has ended
// cannot be destroyed.
class LackTest : public ServiceTest {
  protected:
    void SetUp() override {}
    void startWithout(const std::vector<Lack>& lacks) {
        PhoneTest::SetUp();
        std::string missing, told;
        for (const auto& [arrange, parts, line] : lacks) {
            arrange(phone());
            missing += parts;
            if (lacks.size() == 1) told = line;
        }
        const auto works = [&](const std::string& parts) {
            return missing.find_first_of(parts) == missing.npos;
        };
        if (works("c")) startCompositor();
        start();
        if (told.find("has ended") != told.npos) phone().displayKernel().end();
        EXPECT_TRUE(!works("a") || phone().netlink().waitRegistered(kTimeout));
        phone().netlink().push(7, "x");
        phone().displayKernel().send({"23", "text"});
        if (works("g")) phone().gpu().fault({"9\n", "h", "0\n", "x"});
        if (works("k")) waitLogged("D KelvoDmesgThread: KelvoDmesgThread going to sleep");
        set("event_audio_detect_dump_log", "");
        set(kForTest, "value0:1");
        for (const auto& [parts, line] : kAnswers)
            EXPECT_TRUE(!works(parts) || waitLogged(line)) << line;
        EXPECT_TRUE(told.empty() || waitLogged(told)) << told;
        for (const auto& [parts, line] : kAnswers)
            EXPECT_TRUE(works(parts) || !logged(line)) << line;
        EXPECT_EQ(1u + (works("d") ? 2 : 0) + (works("a") ? 2 : 0), logLines(kTag).size())
            << "the service itself says nothing about it";
        const auto pushed = phone().netlink().push(7, "x");
        EXPECT_EQ(works("a"), pushed != sim::GenericNetlink::Pushed::kNobody);
        TearDown();
        raise(HasFailure() ? SIGTERM : SIGKILL);
    }
};

TEST_F(LackTest, WhatCannotStartLeavesTheRestWorking) {
    for (const Lack& lack : kLacks)
        EXPECT_EXIT(startWithout({lack}), testing::KilledBySignal(SIGKILL), "");
    EXPECT_EXIT(startWithout({kLacks.begin() + 1, kLacks.end()}), testing::KilledBySignal(SIGKILL),
                "");
}

}  // namespace
}  // namespace android
