// What becomes of a kernel report: events, and notices to the compositor.
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>

#include "kernel/KelvoAudioKernelNativeCom.h"
#include "service/PeltoService.h"
#include "sim/control.h"
#include "sim/display_kernel.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

constexpr char kTag[] = "PeltoService";
using Texts = std::vector<std::string>;

// Takes the events that the service sends, into the test's log.
class Client : public BnPeltoNativeClient {
  public:
    status_t onNativeEvent(const char* type, const char* info) override {
        __android_log_print(ANDROID_LOG_INFO, "client", "%s$%s", type, info);
        return OK;
    }
};

class KernelFeedbackTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        service = new PeltoService();
        service->registerNativeClient(new Client);
        forgetLog();
    }
    void* owner() { return service.get(); }

    bool display(const std::string& id, const std::string& payload) {
        mm_kevent_packet packet{};
        memcpy(packet.event_id, id.data(), id.size());
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleKernelFeedback(owner(), &packet);
    }
    bool audio(int32_t cmd, const std::string& payload, uint32_t len = 4) {
        kernel_to_native_packet packet{cmd, len, {}};
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleAudioKernelInfo(owner(), &packet);
    }

    sp<PeltoService> service;
};

TEST_F(KernelFeedbackTest, DisplayReportsBecomeEventsAndNotices) {
    struct Case {
        std::string id;
        std::string payload;
        std::string info;
    };
    const auto keys = [](size_t length) { return std::string(length, 'k'); };
    const Case cases[] = {
        {"7", "fps@@30$$NULL$$scene@@game", "7#fps#30#scene#game"},
        {"-12x", "NULL", "-12"},
        {"", "", "0"},
        {"99999999999", "$$$$a@@1$$$b@@2$c@@3$", "2147483647#a#1#b#2#c#3"},
        {std::string(132, '9'), "a@@b@@c$$", "2147483647#a#b@@c"},  // fills its field
        {"1", "a$$b@c$$@@$$x@@$$@@y$$NULL@@1$$NULLx@@2", "1###x###y#NULL#1#NULLx#2"},
        {"2", "%s@@%n$$a@@@b", "2#%s#%n#a#@b"},
        {"3", keys(510) + "@@", "3#" + keys(510) + "#"},
        {"3", keys(511) + "@@", "3"},
        {"3", keys(509) + "@@vw", "3#" + keys(509) + "#v"},
        {"3", keys(600) + "@@v$$a@@b", "3#a#b"},
    };
    const sp<Compositor> compositor = startCompositor();
    ASSERT_NE(nullptr, compositor);
    size_t count = 0;
    for (const Case& tried : cases) {
        forgetLog();
        EXPECT_TRUE(display(tried.id, tried.payload));
        const std::string info = "MM_FB_EventID#" + tried.info;
        EXPECT_EQ(Texts{"pelto_event_peltoserver_feedback$" + info}, logLines("client"));
        const auto notices = compositor->notices();
        ASSERT_EQ(++count, notices.size());
        const int id = atoi(tried.info.c_str());
        EXPECT_EQ(id, notices.back().eventId);
        EXPECT_STREQ(info.c_str(), notices.back().info.c_str());
        EXPECT_EQ((Texts{"handleKernelFeedback: MM_FB_EventID:" + std::to_string(id) +
                             ", data:" + tried.payload,
                         "notifySurfaceFlinger transact ret=0"}),
                  logLines(kTag));
    }
}

TEST_F(KernelFeedbackTest, WhatIsMissingCostsNoMoreThanItself) {
    mm_kevent_packet packet{};
    kernel_to_native_packet audioPacket{};
    EXPECT_FALSE(PeltoService::handleKernelFeedback(nullptr, &packet));
    EXPECT_FALSE(PeltoService::handleKernelFeedback(owner(), nullptr));
    EXPECT_FALSE(PeltoService::handleAudioKernelInfo(nullptr, &audioPacket));
    EXPECT_FALSE(PeltoService::handleAudioKernelInfo(owner(), nullptr));
    EXPECT_TRUE(logLines(kTag).empty());
    EXPECT_TRUE(display("7", "a@@b"));
    EXPECT_EQ(Texts{"pelto_event_peltoserver_feedback$MM_FB_EventID#7#a#b"}, logLines("client"));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "notifySurfaceFlinger sf null"));
}

TEST_F(KernelFeedbackTest, AudioReportsGoToThePublishedService) {
    defaultServiceManager()->addService(String16(kPeltoServiceName), IInterface::asBinder(service));
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(audio(2, "1"));
    EXPECT_TRUE(audio(-1, "1", UINT32_MAX));
    EXPECT_EQ((Texts{"receive cmd=2, len=4, data=1", "handleAudioKernelInfo: unsupport cmd=2",
                     "receive cmd=-1, len=-1, data=1", "handleAudioKernelInfo: unsupport cmd=-1"}),
              logLines(kTag));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "handleAudioKernelInfo: unsupport cmd=2"));

    forgetLog();
    const char* const ones[] = {"257", "513", "769", "-1", "99999999999"};
    for (const char* value : ones) EXPECT_TRUE(audio(1, value));
    const char* const zeros[] = {"256", "1", "768", "0x101", ""};
    for (const char* value : zeros) EXPECT_TRUE(audio(1, value));
    EXPECT_TRUE(audio(0, " 12abc"));
    EXPECT_TRUE(waitLogged(ANDROID_LOG_INFO, "client", "event_audio_mic_state$state:12"));
    Texts events(5, "event_audio_mic_status$status:1");
    events.resize(10, "event_audio_mic_status$status:0");
    events.push_back("event_audio_mic_state$state:12");
    EXPECT_EQ(events, logLines("client"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag,
                       "The data from kernel is 257, mic status value is status:1"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag,
                       "The data from kernel is  12abc, packet value is state:12"));
}

TEST_F(KernelFeedbackTest, TheCompositorTakesItsOwnNoticesOnly) {
    const sp<Compositor> compositor = startCompositor();
    EXPECT_EQ(nullptr, startCompositor());
    ASSERT_TRUE(phone().control().serve());
    const auto sent = [&](uint32_t code, const char* token, bool whole) {
        Parcel data, reply;
        data.writeInterfaceToken(String16(token));
        data.writeInt32(-7);
        if (whole) data.writeString8(String8("a b"));
        return compositor->transact(code, data, &reply);
    };
    EXPECT_EQ(PERMISSION_DENIED, sent(22006, "android.ui.ISurfaceComposerClient", true));
    EXPECT_EQ(NOT_ENOUGH_DATA, sent(22006, "android.ui.ISurfaceComposer", false));
    EXPECT_EQ(UNKNOWN_TRANSACTION, sent(22007, "android.ui.ISurfaceComposer", true));
    EXPECT_EQ(OK, sent(22006, "android.ui.ISurfaceComposer", true));
    EXPECT_EQ(Texts{"-7 a b"}, sim::controlRequest(phone(), {"compositor"}).texts);
}

// Notes the texts of what the display channel hands over.
bool noteDisplay(void* owner, mm_kevent_packet* packet) {
    static_cast<Texts*>(owner)->push_back(std::string(packet->event_id) + "$" + packet->payload);
    memset(packet->payload, 'x', sizeof(packet->payload));
    return false;
}

TEST_F(PhoneTest, TheDisplayChannelHandsOverTerminatedRecordsUntilItIsEnded) {
    Texts got;
    const sp<DisplayKevent> channel = new DisplayKevent(&got, "mm_kevent_pelto", &noteDisplay);
    sim::DisplayKernel& kernel = phone().displayKernel();
    const std::string longId(200, '1'), longPayload(5000, 'p');
    EXPECT_EQ(sim::DisplayKernel::Sent::kQueued, kernel.send({longId, longPayload}));
    EXPECT_EQ(sim::DisplayKernel::Sent::kQueued, kernel.send({"2", ""}));
    channel->run("kelvo_fb_pelto");
    kernel.end();
    channel->join();
    EXPECT_EQ((Texts{longId.substr(0, 131) + "$" + longPayload.substr(0, 3831), "2$"}), got);
    EXPECT_EQ(sim::DisplayKernel::Sent::kLost, kernel.send({"3", ""}));
}

}  // namespace
}  // namespace android
