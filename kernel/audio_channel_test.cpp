// The channel to the audio kernel module: the messages it sends, failures of its set-up, the frames
// it accepts and refuses, and its load.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>
#include <mutex>

#include "kernel/GenlFrame.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "sim/base/text.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/userspace/log.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using Channel = KelvoAudioKernelNativeCom;
using Kernel = sim::GenericNetlink;
constexpr char kTag[] = "KelvoAudioKernelNativeCom";

template <typename T>
std::string hexOf(const T& value) {
    return sim::hexOf({reinterpret_cast<const char*>(&value), sizeof(value)});
}

// In hex, with "@" for the port id of this process's channel.
std::string packed(std::string frame) {
    frame.replace(frame.find('@'), 1, hexOf(static_cast<uint32_t>(getpid()) + 100000));
    return sim::hexOf(sim::bytesOfHex(frame));
}

// A channel to the simulated kernel, whose hook logs its packets in hex.
class AudioChannelTest : public PhoneTest {
  protected:
    Kernel& kernel() { return phone().netlink(); }

    // Runs a channel; returns once it has sent `messages` to the kernel. Never destroys it: its
    // thread may still run, or its socket's number may be in use elsewhere.
    void start(size_t messages = 2, Channel::Hook hook = &show) {
        static auto& kept = *new std::vector<sp<Channel>>;
        channel = kept.emplace_back(new Channel(&owner, "knl_nt_com", hook));
        const size_t before = kernel().received().size();
        ASSERT_EQ(OK, channel->run("kelvo_audio_mic_check"));
        ASSERT_TRUE(kernel().waitReceived(before + messages));
    }
    // The fixture's said(); each message has a newline of its own.
    std::string said() { return PhoneTest::said(kTag); }
    // The log of the running channel and its hook for one datagram, complete once a second, known
    // datagram has been logged.
    std::string answer(const std::string& datagram) {
        said();
        kernel().pushRaw(datagram);
        EXPECT_TRUE(push(99));
        EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=1 \n"));
        const std::string lines = said();
        return lines.substr(0, lines.find("D recv cmd=0, len=3, payload:99\n"));
    }
    static std::string refused(int received, int type, bool badLength, unsigned claimed) {
        return "E [ERROR]: recv err, rcv_len is " + std::to_string(received) +
               ", msg.n_hd.nlmsg_type is " + std::to_string(type) +
               ",!NLMSG_OK((&msg.n_hd), rcv_len) is " + std::to_string(badLength) +
               " , msg.n_hd.nlmsg_len is " + std::to_string(claimed) + "\n\n";
    }
    // The packet holds `count` bytes of the data of frame(), then zeros.
    static std::string taken(int count) {
        kernel_to_native_packet packet{};
        memcpy(&packet, &frame(0)[24], static_cast<size_t>(count));
        return "D recv cmd=" + std::to_string(packet.cmd) +
               ", len=" + std::to_string(static_cast<int32_t>(packet.len)) +
               ", payload:" + packet.payload + "\n\nI " + hexOf(packet) + "\nD hook ret=0 \n\n";
    }
    // A frame of 276 bytes with its header as given and the data "abc..." of a negative length.
    static std::string frame(uint32_t nlmsgLen, uint16_t nlaLen = 256, uint16_t nlaType = 1,
                             uint16_t type = 28) {
        GenlFrame frame{{nlmsgLen, type, 0, 0, 0}, {}, {nlaLen, nlaType}, {}};
        for (int i = 0; i < 252; ++i) frame.data[i] = static_cast<char>(i == 7 ? -1 : 'a' + i % 26);
        return {reinterpret_cast<const char*>(&frame), sizeof(frame)};
    }
    static bool show(void* given, kernel_to_native_packet* packet) {
        EXPECT_EQ(&owner, given);
        __android_log_print(ANDROID_LOG_INFO, kTag, "%s", hexOf(*packet).c_str());
        return strcmp(packet->payload, "99") == 0;
    }
    bool push(int number) {
        return kernel().push(0, std::to_string(number)) == Kernel::Pushed::kQueued;
    }

    static inline int owner = 0;
    sp<Channel> channel;
};

TEST_F(AudioChannelTest, LooksUpTheFamilyRegistersAndReceives) {
    start();
    EXPECT_EQ(packed("24000000 1000 0100 00000000 @ 03 01 0000 10000200 6175645f6b6e6c5f6e74 0000"),
              sim::hexOf(kernel().received()[0]));
    EXPECT_EQ(packed("24000000 1c00 0100 00000000 @ 01 01 0000 10000100 6b6e6c5f6e745f636f6d 0000"),
              sim::hexOf(kernel().received()[1]));
    kernel().push(1, "abcdefghijklmnopqrstu");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=0 \n"));
    EXPECT_THAT(said(), testing::MatchesRegex(R"(D audio kernel native genetlink module:knl_nt_com

D nlmsg_type 16, genl_cmd 3, nla_type 2, nla_data=aud_knl_nt

D threadLoop: mGenlFd=[0-9]+, mFamilyId=28

D nlmsg_type 28, genl_cmd 1, nla_type 1, nla_data=knl_nt_com

D recv cmd=1, len=22, payload:abcdefghijklmnopqrstu

I 01000000160000006162[0-9a-f]+
D hook ret=0 

)"));
}

TEST_F(AudioChannelTest, SendsWhatFitsWithTheLengthsTheModuleExpects) {
    start();
    const std::string middle = " 1c00 0100 00000000 @ 07 01 0000 ", text(300, 'x'),
                      sent = text.substr(50),
                      most = "14010000" + middle + "00010500" + sim::hexOf(sent) + "0000";
    const std::pair<int32_t, std::string> cases[] = {
        {1, "1c000000" + middle + "0600 0500 00000000"},
        {3, "1c000000" + middle + "0800 0500 78780000"},
        {4, "20000000" + middle + "0900 0500 78787800 00000000"},
        {251, most},
        {252, most},
        {300, most}};
    size_t count = 2;
    for (const auto& [len, frame] : cases) {
        const int32_t result = channel->sendToKernelMsg(7, 5, &text[0], len);
        ASSERT_TRUE(kernel().waitReceived(++count));
        EXPECT_EQ(packed(frame), sim::hexOf(kernel().received().back()));
        EXPECT_EQ(packed(frame).size(), 2 * static_cast<size_t>(result));
        const std::string cut = "[ERROR]: data len=" + std::to_string(len) + " > 256\n";
        EXPECT_EQ(len > 251, logged(ANDROID_LOG_ERROR, kTag, cut));
    }
    const std::string line = "nlmsg_type 28, genl_cmd 7, nla_type 5, nla_data=" + sent + "\n";
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag, line, 3));
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, nullptr, 3));
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, &text[0], 0));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "[ERROR]: sendGenlMsg param invalid\n", 2));
}

TEST_F(AudioChannelTest, SendsOnUntilAllOfAMessageIsTaken) {
    start();
    kernel().setSendResults({-EAGAIN, 10, 0, -EAGAIN, 5});
    EXPECT_EQ(21, channel->sendToKernelMsg(7, 5, "0123456789", 11));
    ASSERT_TRUE(kernel().waitReceived(5));
    const auto received = kernel().received();
    EXPECT_EQ(10u, received[2].size());
    EXPECT_EQ(5u, received[3].size());
    EXPECT_EQ(
        packed("24000000 1c00 0100 00000000 @ 07 01 0000 1000 0500 30313233343536373839 0000"),
        sim::hexOf(received[2] + received[3] + received[4]));

    kernel().setSendResults({10, -ENOBUFS, -EAGAIN});
    EXPECT_EQ(-1, channel->sendToKernelMsg(7, 5, "0123456789", 11));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "[ERROR]: sendto failed\n"));
}

TEST_F(AudioChannelTest, AChannelWithoutASocketDoesNothing) {
    start();
    const std::string name(63, 'm'), made = "D audio kernel native genetlink module:";
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, "E [ERROR]: module is null\n\n"},
        {&name[0], "E [ERROR]: module length exceeds limit\n\n"},
        {&name[1], made + &name[1] + "\n\n"},  // not run yet
        {"other", made + "other\n\nE [ERROR]: bind  socket err: Address already in use\n\n" +
                      "E [ERROR]: create or bind Netlink socket err \n\n"}};
    for (const auto& [module, lines] : cases) {
        said();
        const sp<Channel> idle = new Channel(&owner, module, &show);
        if (module != &name[1]) idle->run("kelvo_audio_mic_check");
        idle->join();
        EXPECT_EQ(-22, idle->sendToKernelMsg(1, 1, "x", 2));
        EXPECT_EQ(0, idle->getFamilyId());
        EXPECT_EQ(-22, idle->recvGenlMsg());
        EXPECT_EQ(-1, idle->createGenlSocket(17));
        EXPECT_EQ(lines + R"(E [ERROR]: sendToKernelMsg param invalid

E [ERROR]: sendGenlMsg param invalid

E [ERROR]: send_cmd err, ret is -22 

E [ERROR]: recvGenlMsg param invalid

E [ERROR]: create_nl_socket  socket err: Protocol not supported

)",
                  said());
    }
}

TEST_F(AudioChannelTest, EndsItsThreadWhenTheFamilyIsNotFound) {
    const auto refused = [](int length, int type, int badLength) {
        return "E [ERROR]: recv err, rep_len is " + std::to_string(length) +
               ", msg.n_hd.nlmsg_type is " + std::to_string(type) + ", NLMSG_OK((&msg.n_hd) is " +
               std::to_string(badLength) + " \n\n";
    };
    const std::string name = "0f0002006175645f6b6e6c5f6e740000", id = "060001001c000000",
                      head = "2c00000010000000000000000000000001020000", after = head.substr(2);
    const std::pair<std::string, std::string> cases[] = {
        // the reply, and the line if it has one
        {"", refused(56, 2, 0)},  // the kernel's own
        {head.substr(0, 30), refused(15, 16, 1)},
        {head + name + id.substr(0, 14), refused(43, 16, 1)},
        {"0f" + after + name + id, refused(44, 16, 1)},
        {"2d" + after + name + id, refused(44, 16, 1)},
        {head + id + name, ""},  // other order, no id, id 0
        {head + name + "060003001c000000", ""},
        {head + name + "0600010000000000", ""},
        {head + "0000" + name.substr(4) + id,
         ""},  // lengths that lead nowhere, or out of the frame
        {head + "0300" + name.substr(4) + id, ""},
        {head + "1300" + name.substr(4) + id, ""},
        {head + "ffff" + name.substr(4) + id, ""},
        {"10000000" + head.substr(8, 24), ""},
        {"28" + after + name + id.substr(0, 8), ""}};
    for (const auto& [reply, line] : cases) {
        kernel().setAnswer(reply.empty() ? Kernel::Answer::kNoFamily : Kernel::Answer::kNothing);
        start(1);
        if (!reply.empty()) kernel().pushRaw(sim::bytesOfHex(reply));
        channel->join();
        EXPECT_THAT(said(), testing::EndsWith("nla_data=aud_knl_nt\n\n" + line +
                                              "E [ERROR]: get_family_id err\n\n"))
            << reply;
        EXPECT_EQ(-1, channel->sendGenlMsg(16, 1, 1, "x", 2)) << "not -22, it keeps the number";
    }
    start(1);  // an answer that comes late and ends after the id
    EXPECT_TRUE(channel->isRunning());
    kernel().pushRaw(sim::bytesOfHex("2a" + after + name + id.substr(0, 12)));
    EXPECT_TRUE(kernel().waitRegistered(kTimeout));
}

TEST_F(AudioChannelTest, AfterAFailedRegistrationTheSocketsNumberIsClosedAgainAtTheEnd) {
    int fd = -1;
    std::string lines;
    // Replaces the socket between the two messages, on the channel's own thread.
    phone().log().observe([&](const sim::Log::Record& record) {
        const std::string line(record.message);
        if (sscanf(line.c_str(), "threadLoop: mGenlFd=%d", &fd) == 1) dup2(STDERR_FILENO, fd);
        lines += sim::Log::letter(record.priority) + (" " + line);
    });
    sp<Channel> failing = new Channel(&owner, "knl_nt_com", &show);
    failing->run("kelvo_audio_mic_check");
    failing->join();
    phone().log().observe(nullptr);
    EXPECT_THAT(lines, testing::EndsWith("E [ERROR]: sendto failed\n"
                                         "E [ERROR]: sendGenlMsg cmd 1 err ,ret is -1 \n"));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD)) << "closed";
    dup2(STDERR_FILENO, fd);  // the number belongs to another file
    failing.clear();
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (fcntl(fd, F_GETFD) >= 0) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

TEST_F(AudioChannelTest, TakesAFrameForWhatItsLengthsAndTypesSay) {
    start();
    for (unsigned size = 0; size <= 276; ++size) {
        const int got = static_cast<int>(size);
        // Bytes that the attribute claims beyond the frame are zero.
        std::string expected = taken(std::max(got, 24) - 24);
        if (size < 23) expected = "E [ERROR]:p_na->nla_type err ,0\n\n";
        if (size < 16) expected = refused(got, size > 4 ? 28 : 0, true, size);
        EXPECT_EQ(expected, answer(frame(size).substr(0, size))) << size;
        if (size < 16 || size == 276) continue;
        EXPECT_EQ(refused(got, 28, true, 276), answer(frame(276).substr(0, size)));
    }
    for (const unsigned claimed : {0u, 15u, 277u, 0x80000000u, 0xffffffffu})
        EXPECT_EQ(refused(276, 28, true, claimed), answer(frame(claimed)));
    EXPECT_EQ(refused(276, 28, true, 280), answer(frame(280) + "more")) << "cut as a datagram";
    EXPECT_EQ(refused(276, 2, false, 276), answer(frame(276, 256, 1, NLMSG_ERROR)));
    for (const uint16_t type : {0, 2, 0x8001, 65535}) {
        const std::string line = "E [ERROR]:p_na->nla_type err ," + std::to_string(type) + "\n\n";
        EXPECT_EQ(line, answer(frame(276, 1000, type)));
    }
    for (const uint16_t length : {0, 1, 2, 3, 4, 5, 8, 12, 13, 255, 256, 257, 65535}) {
        std::string expected = "E [ERROR]:p_na->nla_len = " + std::to_string(length);
        expected += length < 4 ? " < 4\n\n" : " > 256\n\n";
        if (length >= 4 && length <= 256) expected = taken(length - 4);
        EXPECT_EQ(expected, answer(frame(276, length)));
    }
    EXPECT_EQ(taken(252), answer(frame(16))) << "the length may stop at the header";
    EXPECT_EQ(taken(252), answer(frame(276, 256, 1, 3))) << "any type but that of an error";
    EXPECT_EQ(taken(252), answer(frame(276) + "more"));
}

// Without a hook, messages are only logged.
TEST_F(AudioChannelTest, AHundredThousandPacketsArriveInOrderAndInTheSameMemory) {
    start(2, nullptr);
    size_t early = 0;
    for (int batch = 0; batch < 1000; ++batch) {
        std::string expected, last;
        said();
        for (int i = 1000; i < 1100; ++i) {
            ASSERT_TRUE(push(i));
            last = "recv cmd=0, len=5, payload:" + std::to_string(i) + "\n";
            expected += "D " + last + "\n";
        }
        ASSERT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, last));
        ASSERT_EQ(expected, said());
        if (batch == 100) early = mallinfo2().uordblks;
    }
    EXPECT_LT(mallinfo2().uordblks, early + 90000) << "a byte a packet would be too much";
}

TEST_F(AudioChannelTest, WhatASlowHookMissesIsOneFailedReceive) {
    static std::mutex gate;
    std::unique_lock<std::mutex> shut(gate);
    start(2, [](void*, kernel_to_native_packet*) { return std::lock_guard(gate), true; });
    ASSERT_TRUE(push(0));
    ASSERT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "recv cmd=0, len=2, payload:0\n"));
    int sent = 1;
    while (push(sent)) ++sent;
    for (int lost = 0; lost < 1000; ++lost) EXPECT_FALSE(push(-1));
    shut.unlock();
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=1 \n", sent));
    ASSERT_TRUE(push(sent));
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=1 \n", sent + 1));
    const std::string lines = said(), failed = refused(-1, 0, true, 0);
    EXPECT_NE(lines.npos, lines.find(failed));
    EXPECT_EQ(lines.rfind(failed), lines.find(failed)) << "once";
}

}  // namespace
}  // namespace android
