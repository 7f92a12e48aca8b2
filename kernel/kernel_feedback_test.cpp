// Kernel reports become events and notices to the compositor.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <compositor/compositor.h>
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>

#include "kernel/KelvoAudioKernelNativeCom.h"
#include "service/PeltoService.h"
#include "tests/support/event_sinks.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

constexpr char kTag[] = "PeltoService";

class KernelFeedbackTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        service = new PeltoService();
        service->registerNativeClient(new LoggingClient);
        forgetLog();
    }
    bool display(const std::string& id, const std::string& payload) {
        mm_kevent_packet packet{};
        memcpy(packet.event_id, id.data(), id.size());
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleKernelFeedback(service.get(), &packet);
    }
    bool audio(int32_t cmd, const std::string& payload) {
        kernel_to_native_packet packet{cmd, static_cast<uint32_t>(cmd), {}};
        memcpy(packet.payload, payload.data(), payload.size());
        return PeltoService::handleAudioKernelInfo(service.get(), &packet);
    }

    sp<PeltoService> service;
};

TEST_F(KernelFeedbackTest, KernelReportsBecomeEventsAndNotices) {
    EXPECT_TRUE(display("7", "a@@b$$c"));
    EXPECT_EQ(
        "D handleKernelFeedback: MM_FB_EventID:7, data:a@@b$$c\nE notifySurfaceFlinger sf null\n",
        said(kTag));
    const sp<Compositor> compositor = startCompositor();
    const std::string keys(509, 'k');
    const std::array<std::string, 3> cases[] = {
        // id and payload of the packet, and the info without its name
        {"-12x", "fps@@30$$NULL$$scene@@game", "-12#fps#30#scene#game"},
        {"", "", "0"},
        {std::string(132, '9'), "$$$$a@@b@@c$$$d", "2147483647#a#b@@c"},  // fills its field
        {"1", "b$c@$@@$x@@$@@y$NULL@@1$NULLx@@2", "1###x###y#NULL#1#NULLx#2"},
        {"2", "%s@@%n$$a@@@b", "2#%s#%n#a#@b"},
        {"3", keys + "@@vw$$" + keys + "kk@@$$a@@b", "3#" + keys + "#v#a#b"},
    };
    for (const auto& [id, payload, shown] : cases) {
        const std::string info = "MM_FB_EventID#" + shown;
        EXPECT_TRUE(display(id, payload));
        EXPECT_EQ(atoi(shown.c_str()), compositor->notices().back().eventId);
        EXPECT_EQ(info, compositor->notices().back().info.c_str());
        EXPECT_TRUE(logged("D PeltoService: notifySurfaceFlinger transact ret=0"));
        EXPECT_EQ("I pelto_event_peltoserver_feedback$" + info + "\n", said("client"));
    }

    EXPECT_FALSE(PeltoService::handleKernelFeedback(service.get(), nullptr));
    EXPECT_FALSE(PeltoService::handleAudioKernelInfo(service.get(), nullptr));
    defaultServiceManager()->addService(String16(kPeltoServiceName), IInterface::asBinder(service));
    ProcessState::self()->startThreadPool();
    EXPECT_TRUE(audio(-1, "1"));
    EXPECT_EQ("D receive cmd=-1, len=-1, data=1\nE handleAudioKernelInfo: unsupport cmd=-1\n",
              said(kTag));
    const std::tuple<int, std::string, std::string> micCases[] = {
        {1, "257", "status:1"}, {1, "513", "status:1"}, {1, "99999999999", "status:1"},
        {1, "256", "status:0"}, {1, "1", "status:0"},   {0, " 12abc", "state:12"}};
    for (const auto& [cmd, value, info] : micCases) {
        EXPECT_TRUE(audio(cmd, value));
        const std::string kind = info.substr(0, info.find(':')), number = std::to_string(cmd);
        EXPECT_TRUE(waitLogged("I client: event_audio_mic_" + kind + "$" + info));
        EXPECT_EQ("D receive cmd=" + number + ", len=" + number + ", data=" + value +
                      "\nD The data from kernel is " + value +
                      (cmd == 1 ? ", mic status" : ", packet") + " value is " + info + "\n",
                  said(kTag));
    }
    service.clear();
    EXPECT_FALSE(display("7", "a@@b"));
    EXPECT_FALSE(audio(0, "1"));
}

}  // namespace
}  // namespace android
