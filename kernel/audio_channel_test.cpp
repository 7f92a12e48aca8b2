// The channel to the audio kernel module: the messages it sends, failures of its set-up, the frames
// it accepts and refuses, and its load.
#include <fcntl.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "kernel/GenlFrame.h"
#include "kernel/KelvoAudioKernelNativeCom.h"
#include "sim/base/text.h"
#include "sim/kernel/generic_netlink.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using Channel = KelvoAudioKernelNativeCom;
using Kernel = sim::GenericNetlink;
constexpr char kTag[] = "KelvoAudioKernelNativeCom";

// A channel to the simulated kernel, whose hook logs its packets.
class AudioChannelTest : public PhoneTest {
  protected:
    Kernel& kernel() { return phone().netlink(); }
    // The fixture's said(); each message has a newline of its own.
    std::string said() { return PhoneTest::said(kTag); }

    // Runs a channel; returns once it has sent `messages` to the kernel. Never destroys it: its
    // thread may still run, or its socket's number may be in use elsewhere.
    void start(size_t messages = 2, Channel::Hook hook = &show) {
        static auto& kept = *new std::vector<sp<Channel>>;
        channel = kept.emplace_back(new Channel(&owner, "knl_nt_com", hook));
        const size_t before = kernel().received().size();
        ASSERT_EQ(OK, channel->run("kelvo_audio_mic_check"));
        ASSERT_TRUE(kernel().waitReceived(before + messages));
    }
    // A message of the kernel's history in hex, and one with "@" for this process's port id.
    std::string received(size_t number) {
        EXPECT_TRUE(kernel().waitReceived(number));
        return sim::hexOf(kernel().received()[number - 1]);
    }
    static std::string packed(std::string frame) {
        const uint32_t port = static_cast<uint32_t>(getpid()) + 100000;
        frame.replace(frame.find('@'), 1, sim::hexOf({reinterpret_cast<const char*>(&port), 4}));
        return sim::hexOf(sim::bytesOfHex(frame));
    }
    static std::string refused(int received, int type, bool badLength, unsigned claimed) {
        return "E [ERROR]: recv err, rcv_len is " + std::to_string(received) +
               ", msg.n_hd.nlmsg_type is " + std::to_string(type) +
               ",!NLMSG_OK((&msg.n_hd), rcv_len) is " + std::to_string(badLength) +
               " , msg.n_hd.nlmsg_len is " + std::to_string(claimed) + "\n\n";
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
        __android_log_print(ANDROID_LOG_INFO, kTag, "hook %s", packet->payload);
        return false;
    }

    static inline int owner = 0;
    sp<Channel> channel;
};

TEST_F(AudioChannelTest, RegistersReceivesAndSends) {
    start();
    EXPECT_EQ(packed("24000000 1000 0100 00000000 @ 03 01 0000 10000200 6175645f6b6e6c5f6e74 0000"),
              received(1));
    EXPECT_EQ(packed("24000000 1c00 0100 00000000 @ 01 01 0000 10000100 6b6e6c5f6e745f636f6d 0000"),
              received(2));
    kernel().pushRaw("bad");
    kernel().push(1, "abcdefghijklmnopqrstu");
    EXPECT_TRUE(waitLogged("D KelvoAudioKernelNativeCom: hook ret=0 \n"));
    EXPECT_THAT(said(), testing::MatchesRegex(R"(D audio kernel native genetlink module:knl_nt_com

D nlmsg_type 16, genl_cmd 3, nla_type 2, nla_data=aud_knl_nt

D threadLoop: mGenlFd=[0-9]+, mFamilyId=28

D nlmsg_type 28, genl_cmd 1, nla_type 1, nla_data=knl_nt_com

E .+ 6578530

D recv cmd=1, len=22, payload:abcdefghijklmnopqrstu

I hook abcdefghijklmnopqrstu
D hook ret=0 

)"));

    const std::string middle = " 1c00 0100 00000000 @ 07 01 0000 ", text(252, 'x'),
                      most = "14010000" + middle + "00010500" + sim::hexOf(text.substr(2)) + "0000";
    const std::pair<int32_t, std::string> cases[] = {
        {1, "1c000000" + middle + "0600 0500 00000000"},
        {3, "1c000000" + middle + "0800 0500 78780000"},
        {251, most},
        {252, most}};
    size_t count = 2;
    for (const auto& [len, frame] : cases) {
        const int32_t result = channel->sendToKernelMsg(7, 5, &text[0], len);
        EXPECT_EQ(packed(frame), received(++count));
        EXPECT_EQ(packed(frame).size(), 2 * static_cast<size_t>(result));
        EXPECT_EQ(len > 251, logged("E KelvoAudioKernelNativeCom: [ERROR]: data len=252 > 256\n"));
    }
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, nullptr, 3));
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, &text[0], 0));

    kernel().setSendResults({-EAGAIN, 10, 0, -EAGAIN, 5});
    EXPECT_EQ(21, channel->sendToKernelMsg(7, 5, "0123456789", 11));
    EXPECT_EQ(
        packed("24000000 1c00 0100 00000000 @ 07 01 0000 1000 0500 30313233343536373839 0000"),
        received(7) + received(8) + received(9));
    kernel().setSendResults({10, -ENOBUFS});
    EXPECT_EQ(-1, channel->sendToKernelMsg(7, 5, "0123456789", 11));
}

TEST_F(AudioChannelTest, DoesNothingWithoutASocket) {
    start();
    const std::string name(63, 'm'), made = "D audio kernel native genetlink module:";
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, "E [ERROR]: module is null\n\n"},
        {&name[0], "E [ERROR]: module length exceeds limit\n\n"},
        {&name[1], made + &name[1] + "\n\nE [ERROR]: bind  socket err: Address already in use\n\n" +
                       "E [ERROR]: create or bind Netlink socket err \n\n"}};
    for (const auto& [module, lines] : cases) {
        said();
        const sp<Channel> idle = new Channel(&owner, module, &show);
        idle->run("kelvo_audio_mic_check");
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
    const std::string name = "0f0002006175645f6b6e6c5f6e740000", id = "060001001c000000",
                      head = "2c00000010000000000000000000000001020000", after = head.substr(2),
                      bad = "E [ERROR]: recv err, rep_len is ", ok = ", NLMSG_OK((&msg.n_hd) is ";
    const std::pair<std::string, std::string> cases[] = {
        // the reply, and the line if it has one
        {"", bad + "56, msg.n_hd.nlmsg_type is 2" + ok + "0 \n\n"},  // the kernel's own
        {head + name + id.substr(0, 14), bad + "43, msg.n_hd.nlmsg_type is 16" + ok + "1 \n\n"},
        {head + id + name, ""},  // other order
        {head + "0300" + name.substr(4) + id, ""},
        {head + "ffff" + name.substr(4) + id, ""},
        {"29" + after + name + id.substr(0, 10), ""}};
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
    start(1, nullptr);
    EXPECT_TRUE(channel->isRunning());
    kernel().pushRaw(sim::bytesOfHex("1e" + after + "04000200" + id.substr(0, 12)));  // shortest
    EXPECT_TRUE(kernel().waitRegistered(kTimeout));
    for (int i = 0; i < 2; ++i) kernel().push(0, "no hook");
    EXPECT_TRUE(waitLogged("D KelvoAudioKernelNativeCom: recv cmd=0, len=8, payload:no hook\n", 2));
}

// After a failed set-up a socket pair takes the place of the closed socket: this thread receives
// from it, and the channel closes the socket's number again at its end.
TEST_F(AudioChannelTest, TakesAFrameForWhatItsLengthsAndTypesSay) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends));
    kernel().setSendResults({100, -EPERM});
    channel = new Channel(&owner, "knl_nt_com", &show);
    channel->run("kelvo_audio_mic_check");
    channel->join();
    const std::string failed = said();
    EXPECT_THAT(failed, testing::EndsWith("E [ERROR]: sendto failed\n\n"
                                          "E [ERROR]: sendGenlMsg cmd 1 err ,ret is -1 \n\n"));
    const int fd = atoi(&failed[failed.find("mGenlFd=") + 8]);
    ASSERT_EQ(-1, fcntl(fd, F_GETFD)) << "closed";
    dup2(ends[0], fd);
    EXPECT_EQ(-1, channel->recvGenlMsg());
    EXPECT_EQ(refused(-1, 0, true, 0), said());
    const std::string type = "E [ERROR]:p_na->nla_type err ,",
                      length = "E [ERROR]:p_na->nla_len = ",
                      taken = "D recv cmd=1684234849, len=-10000795, payload:",
                      whole = taken + frame(0).substr(32) + "\n\n";
    const std::pair<std::string, std::string> cases[] = {
        {frame(15).substr(0, 15), refused(15, 28, true, 15)},
        {frame(15), refused(276, 28, true, 15)},
        {frame(277) + "more", refused(276, 28, true, 277)},  // cut as a datagram
        {frame(UINT32_MAX), refused(276, 28, true, UINT32_MAX)},
        {frame(276, 256, 1, NLMSG_ERROR), refused(276, 2, false, 276)},
        {frame(16).substr(0, 16), type + "0\n\n"},
        {frame(276, 1000, 0x8001), type + "32769\n\n"},
        {frame(276, 257), length + "257 > 256\n\n"},
        {frame(276, 3), length + "3 < 4\n\n"},
        {frame(16), whole},  // the length may stop at the header
        {frame(276, 4), "D recv cmd=0, len=0, payload:\n\n"},
        {frame(33).substr(0, 33), taken + "i\n\n"},  // claimed beyond the frame: zeros
        {frame(276, 256, 1, 3) + "more", whole}};
    for (const auto& [datagram, lines] : cases) {
        send(ends[1], datagram.data(), datagram.size(), 0);
        const int32_t bytes = static_cast<int32_t>(std::min<size_t>(datagram.size(), 276));
        EXPECT_EQ(lines[0] == 'E' ? -1 : bytes, channel->recvGenlMsg()) << lines;
        EXPECT_EQ(lines, said());
    }
    channel.clear();
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (fcntl(fd, F_GETFD) >= 0) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

}  // namespace
}  // namespace android
