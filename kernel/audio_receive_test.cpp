// Which frames the running channel takes, and how it bears many.
#include <linux/netlink.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>

#include "kernel/testing/channel_fixture.h"
#include "sim/log.h"

namespace android {
namespace {

class AudioReceiveTest : public ChannelTest {
  protected:
    void SetUp() override {
        ChannelTest::SetUp();
        start();
    }
    // A frame of 276 bytes with the command 258 and the text "abc...", its lengths as given.
    static std::string frame(uint32_t nlmsgLen, uint16_t nlaLen = 256, uint16_t nlaType = 1,
                             uint16_t type = 28) {
        std::string bytes(276, '\0');
        const auto put = [&](size_t offset, auto value) {
            bytes.replace(offset, sizeof(value), reinterpret_cast<const char*>(&value),
                          sizeof(value));
        };
        put(0, nlmsgLen);
        put(4, type);
        put(20, nlaLen);
        put(22, nlaType);
        put(24, int32_t{258});
        put(28, uint32_t{0xfffffffe});
        for (size_t i = 32; i < 276; ++i) bytes[i] = static_cast<char>('a' + i % 26);
        return bytes;
    }
    void expectRefused(const std::string& line, const std::string& datagram) {
        EXPECT_EQ(Texts{line}, linesFor(datagram));
        EXPECT_TRUE(packets.empty());
    }
    // The packet is made of so many bytes of that frame's data, and zeros.
    void expectPacket(size_t count, const std::string& datagram) {
        kernel_to_native_packet expected{};
        memcpy(&expected, frame(0).data() + 24, count);
        EXPECT_EQ((Texts{"recv cmd=" + std::to_string(expected.cmd) +
                             ", len=" + std::to_string(static_cast<int32_t>(expected.len)) +
                             ", payload:" + expected.payload + "\n",
                         "hook ret=0 \n"}),
                  linesFor(datagram));
        ASSERT_EQ(1u, packets.size());
        EXPECT_EQ(0, memcmp(&expected, &packets[0], sizeof(expected)));
    }
};

TEST_F(AudioReceiveTest, EveryLengthOfAFrame) {
    for (unsigned size = 0; size <= 276; ++size) {
        SCOPED_TRACE(size);
        const std::string whole = frame(size).substr(0, size);
        if (size < 16) {
            expectRefused(recvError(static_cast<int>(size), size > 4 ? 28 : 0, true, size), whole);
        } else if (size < 23) {
            expectRefused("[ERROR]:p_na->nla_type err ,0\n", whole);
        } else {  // what the attribute claims beyond the bytes is zero
            expectPacket(size < 24 ? 0 : size - 24, whole);
        }
        if (size >= 16 && size < 276)
            expectRefused(recvError(static_cast<int>(size), 28, true, 276),
                          frame(276).substr(0, size));
    }
}

TEST_F(AudioReceiveTest, LengthsAndTypesThatAreNotRight) {
    for (const unsigned claimed : {0u, 15u, 277u, 0x80000000u, 0xffffffffu})
        expectRefused(recvError(276, 28, true, claimed), frame(claimed));
    expectRefused(recvError(276, 28, true, 280), frame(280) + "more");  // cut as a datagram
    expectRefused(recvError(276, 2, false, 276), frame(276, 256, 1, NLMSG_ERROR));
    for (const uint16_t type : {0, 2, 0x8001, 65535})
        expectRefused("[ERROR]:p_na->nla_type err ," + std::to_string(type) + "\n",
                      frame(276, 1000, type));
    for (const uint16_t length : {257, 65535})
        expectRefused("[ERROR]:p_na->nla_len = " + std::to_string(length) + " > 256\n",
                      frame(276, length));
    for (const uint16_t length : {0, 1, 2, 3})
        expectRefused("[ERROR]:p_na->nla_len = " + std::to_string(length) + " < 4\n",
                      frame(276, length));
    for (const uint16_t length : {4, 5, 8, 12, 13, 255, 256})
        expectPacket(length - 4u, frame(276, length));
    expectPacket(252, frame(16));              // the length may stop at the header
    expectPacket(252, frame(276, 256, 1, 3));  // any type but that of an error
    expectPacket(252, frame(276) + "more");
    EXPECT_EQ(244u, strlen(packets[0].payload)) << "a text that fills its attribute ends behind it";
}

// A hook that counts, and stops at a gate.
class FloodTest : public ChannelTest {
  protected:
    void SetUp() override {
        ChannelTest::SetUp();
        start(2, &count);
    }
    static bool count(void* owner, kernel_to_native_packet* packet) {
        auto* const test = static_cast<FloodTest*>(static_cast<ChannelTest*>(owner));
        std::unique_lock<std::mutex> lock(test->mMutex);
        EXPECT_EQ(test->mCount, atoi(packet->payload)) << "in order, none twice";
        ++test->mCount;
        test->mChanged.notify_all();
        test->mChanged.wait(lock, [&] { return test->mOpen; });
        return true;
    }
    bool waitCount(int least) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kPatience, [&] { return mCount >= least; });
    }
    void setGate(bool open) {
        std::lock_guard<std::mutex> lock(mMutex);
        mOpen = open;
        mChanged.notify_all();
    }
    bool push(int number) {
        return kernel().push(0, std::to_string(number)) == sim::GenericNetlink::Pushed::kQueued;
    }
    static size_t residentPages() {
        size_t all = 0, resident = 0;
#ifdef __SANITIZE_ADDRESS__  // keeps what is freed
        return resident;
#endif
        std::ifstream("/proc/self/statm") >> all >> resident;
        return resident;
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    int mCount = 0;
    bool mOpen = true;
};

TEST_F(FloodTest, AHundredThousandPacketsArriveInTheSameMemory) {
    phone().log().observe(nullptr);
    size_t early = 0;
    constexpr int kPackets = 100000;
    for (int sent = 0; sent < kPackets; ++sent) {
        ASSERT_TRUE(waitCount(sent - 100));
        ASSERT_TRUE(push(sent));
        if (sent == kPackets / 10) early = residentPages();
    }
    EXPECT_TRUE(waitCount(kPackets));
    EXPECT_LT(residentPages(), early + 4 * 256) << "pages, of which 4 MiB more are let pass";
}

TEST_F(FloodTest, WhatASlowHookMissesIsOneFailedReceive) {
    setGate(false);
    ASSERT_TRUE(push(0));
    ASSERT_TRUE(waitCount(1));
    int sent = 1;
    while (push(sent)) ++sent;
    for (int lost = 0; lost < 1000; ++lost) EXPECT_FALSE(push(-1));
    setGate(true);
    EXPECT_TRUE(waitCount(sent));
    ASSERT_TRUE(push(sent));
    EXPECT_TRUE(waitCount(sent + 1));
    const Texts lines = logLines(kTag);
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), recvError(-1, 0, true, 0)));
}

TEST_F(ChannelTest, WithoutAHookMessagesAreOnlyLogged) {
    start(2, nullptr);
    kernel().push(0, "1");
    kernel().push(0, "2");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "recv cmd=0, len=2, payload:2\n"));
    EXPECT_FALSE(logged(ANDROID_LOG_DEBUG, kTag, "hook ret=0 \n"));
}

}  // namespace
}  // namespace android
