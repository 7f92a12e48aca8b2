#pragma once

#include <unistd.h>

#include <algorithm>

#include "kernel/KelvoAudioKernelNativeCom.h"
#include "sim/generic_netlink.h"
#include "sim/hex.h"
#include "tests/support/phone_test.h"

namespace android {

// A channel to the simulated kernel, whose hook notes what it gets.
class ChannelTest : public PhoneTest {
  protected:
    using Channel = KelvoAudioKernelNativeCom;
    using Texts = std::vector<std::string>;
    static constexpr char kTag[] = "KelvoAudioKernelNativeCom";
    static constexpr int32_t kMarker = 99;

    // A line is an error exactly when it says so.
    void TearDown() override {
        for (const Line& line : log()) {
            if (line.tag != kTag) continue;
            EXPECT_EQ(line.message.rfind("[ERROR]", 0) == 0, line.priority == ANDROID_LOG_ERROR)
                << line.message;
        }
        PhoneTest::TearDown();
    }

    sim::GenericNetlink& kernel() { return phone().netlink(); }

    // Never destroyed: the channel's thread may run on, or its socket's number be another's.
    sp<Channel> made(const char* module, Channel::Hook hook = &ChannelTest::note) {
        static auto& kept = *new std::vector<sp<Channel>>;
        kept.push_back(new Channel(this, module, hook));
        return kept.back();
    }
    // Runs a channel; returns once it has sent `messages` to the kernel.
    void start(size_t messages = 2, Channel::Hook hook = &ChannelTest::note) {
        channel = made("knl_nt_com", hook);
        const size_t before = kernel().received().size();
        ASSERT_EQ(OK, channel->run("kelvo_audio_mic_check"));
        ASSERT_TRUE(kernel().waitReceived(before + messages));
    }

    // What a datagram brings about: the lines logged for it and, in `packets`, what the hook got.
    // The running channel has dealt with all of it when a second, known one has been through.
    Texts linesFor(const std::string& datagram) {
        packets.clear();
        forgetLog();
        kernel().pushRaw(datagram);
        EXPECT_EQ(sim::GenericNetlink::Pushed::kQueued, kernel().push(kMarker, ""));
        EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=1 \n"));
        Texts lines = logLines(kTag);
        lines.resize(lines.size() - std::min<size_t>(lines.size(), 2));
        return lines;
    }

    static std::string recvError(int received, unsigned type, bool badLength, unsigned nlmsgLen) {
        return "[ERROR]: recv err, rcv_len is " + std::to_string(received) +
               ", msg.n_hd.nlmsg_type is " + std::to_string(type) +
               ",!NLMSG_OK((&msg.n_hd), rcv_len) is " + std::to_string(badLength) +
               " , msg.n_hd.nlmsg_len is " + std::to_string(nlmsgLen) + "\n";
    }

    // In hex.
    static std::string portId() {
        const uint32_t id = static_cast<uint32_t>(getpid()) + 100000;
        return sim::hexOf({reinterpret_cast<const char*>(&id), sizeof(id)});
    }
    static std::string packed(const std::string& hex) { return sim::hexOf(sim::bytesOfHex(hex)); }

    static bool note(void* owner, kernel_to_native_packet* packet) {
        if (packet->cmd != kMarker) static_cast<ChannelTest*>(owner)->packets.push_back(*packet);
        return packet->cmd == kMarker;
    }

    sp<Channel> channel;
    std::vector<kernel_to_native_packet> packets;
};

}  // namespace android
