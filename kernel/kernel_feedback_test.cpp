// Kernel reports become events and notices to the compositor.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>

#include "kernel/KelvoAudioKernelNativeCom.h"
#include "service/PeltoService.h"
#include "sim/kernel/display_kernel.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

constexpr char kTag[] = "PeltoService";
using Texts = std::vector<std::string>;

// Logs the events that the service sends.
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
    bool display(const std::string& id, const std::string& payload) {
        mm_kevent_packet packet{};
        memcpy(packet.event_id, id.data(), id.size());
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleKernelFeedback(service.get(), &packet);
    }
    bool audio(int32_t cmd, const std::string& payload, uint32_t len = 4) {
        kernel_to_native_packet packet{cmd, len, {}};
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleAudioKernelInfo(service.get(), &packet);
    }

    sp<PeltoService> service;
};

TEST_F(KernelFeedbackTest, DisplayReportsBecomeEventsAndNotices) {
    EXPECT_TRUE(display("7", "a@@b$$c"));
    EXPECT_EQ(
        "D handleKernelFeedback: MM_FB_EventID:7, data:a@@b$$c\nE notifySurfaceFlinger sf null\n",
        said(kTag));
    const sp<Compositor> compositor = startCompositor();
    const std::string keys(509, 'k');
    const struct {
        std::string id, payload, info;
    } cases[] = {
        {"7", "fps@@30$$NULL$$scene@@game", "7#fps#30#scene#game"},
        {"-12x", "NULL", "-12"},
        {"", "", "0"},
        {"99999999999", "$$$$a@@1$$$b@@2$c@@3$", "2147483647#a#1#b#2#c#3"},
        {std::string(132, '9'), "a@@b@@c$$", "2147483647#a#b@@c"},  // fills its field
        {"1", "a$$b@c$$@@$$x@@$$@@y$$NULL@@1$$NULLx@@2", "1###x###y#NULL#1#NULLx#2"},
        {"2", "%s@@%n$$a@@@b", "2#%s#%n#a#@b"},
        {"3", keys + "k@@", "3#" + keys + "k#"},
        {"3", keys + "kk@@", "3"},
        {"3", keys + "@@vw", "3#" + keys + "#v"},
        {"3", keys + keys + "@@v$$a@@b", "3#a#b"},
    };
    Texts events;
    for (const auto& [id, payload, shown] : cases) {
        const std::string info = "MM_FB_EventID#" + shown;
        EXPECT_TRUE(display(id, payload));
        events.push_back("pelto_event_peltoserver_feedback$" + info);
        EXPECT_EQ(atoi(shown.c_str()), compositor->notices().back().eventId);
        EXPECT_EQ(info, compositor->notices().back().info.c_str());
    }
    EXPECT_EQ(events, logLines("client"));
    EXPECT_TRUE(logged("D PeltoService: notifySurfaceFlinger transact ret=0", 11));
}

TEST_F(KernelFeedbackTest, AudioReportsGoToThePublishedService) {
    EXPECT_FALSE(PeltoService::handleKernelFeedback(service.get(), nullptr));
    EXPECT_FALSE(PeltoService::handleAudioKernelInfo(service.get(), nullptr));
    defaultServiceManager()->addService(String16(kPeltoServiceName), IInterface::asBinder(service));
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(audio(2, "1"));
    EXPECT_TRUE(audio(-1, "1", UINT32_MAX));
    Texts lines{"receive cmd=2, len=4, data=1", "handleAudioKernelInfo: unsupport cmd=2",
                "receive cmd=-1, len=-1, data=1", "handleAudioKernelInfo: unsupport cmd=-1"};
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, lines[1]));
    Texts events;
    const auto reports = [&](int cmd, const std::string& value, const std::string& info) {
        EXPECT_TRUE(audio(cmd, value));
        lines.push_back("receive cmd=" + std::to_string(cmd) + ", len=4, data=" + value);
        lines.push_back("The data from kernel is " + value +
                        (cmd == 1 ? ", mic status value is " : ", packet value is ") + info);
        events.push_back((cmd == 1 ? "event_audio_mic_status$" : "event_audio_mic_state$") + info);
    };
    for (const char* value : {"257", "513", "769", "-1", "99999999999"})
        reports(1, value, "status:1");
    for (const char* value : {"256", "1", "768", "0x101", ""}) reports(1, value, "status:0");
    reports(0, " 12abc", "state:12");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_INFO, "client", events.back()));
    EXPECT_EQ(events, logLines("client"));
    EXPECT_EQ(lines, logLines(kTag));
    service.clear();
    EXPECT_FALSE(display("7", "a@@b"));
    EXPECT_FALSE(audio(0, "1"));
}

TEST_F(PhoneTest, TheDisplayChannelHandsOverTerminatedRecordsUntilItIsEnded) {
    std::string got;
    const auto note = [](void* owner, mm_kevent_packet* packet) {
        *static_cast<std::string*>(owner) += packet->event_id + std::string(packet->payload);
        return false;
    };
    const sp<DisplayKevent> channel = new DisplayKevent(&got, "mm_kevent_pelto", note);
    sim::DisplayKernel& kernel = phone().displayKernel();
    kernel.send({std::string(200, '1'), std::string(5000, 'p')});
    kernel.send({"2", ""});
    channel->run("kelvo_fb_pelto");
    kernel.end();
    channel->join();
    EXPECT_EQ(std::string(131, '1') + std::string(3831, 'p') + "2", got);
    EXPECT_EQ(sim::DisplayKernel::Sent::kLost, kernel.send({"3", ""}));
}

}  // namespace
}  // namespace android
