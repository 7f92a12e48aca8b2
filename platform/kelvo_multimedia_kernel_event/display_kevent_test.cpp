// The channel of the display's kernel reports.
#include <kelvo_multimedia_kernel_event/DisplayKevent.h>

#include "sim/kernel/display_kernel.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using DisplayKeventTest = PhoneTest;

TEST_F(DisplayKeventTest, HandsOverTerminatedRecordsUntilItIsEnded) {
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
