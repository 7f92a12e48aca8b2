// The bytes and errors are those of a real kernel.
#include "sim/kernel/generic_netlink.h"

#include <linux/netlink.h>

#include "phone/phone.h"
#include "sim/base/text.h"
#include "sim/kernel/display_kernel.h"
#include "tests/support/phone_fixture.h"

namespace sim {
namespace {

// Port id 100001.
constexpr char kLookUp[] =
    "24000000 1000 0100 00000000 a1860100 03 01 0000"
    "1000 0200 6175645f6b6e6c5f6e74 0000";
constexpr char kRegistration[] =
    "24000000 1c00 0100 00000000 a1860100 01 01 0000"
    "1000 0100 6b6e6c5f6e745f636f6d 0000";

std::string packed(const std::string& hex) {
    return hexOf(bytesOfHex(hex));
}

class GenericNetlinkTest : public PhoneTest {
  protected:
    GenericNetlink& kernel() { return phone().netlink(); }

    Fd opened() { return Fd(phone::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC)); }
    // 0 or the errno.
    static int bound(const Fd& fd, uint32_t portId, uint32_t groups = 0) {
        sockaddr_nl address{AF_NETLINK, 0, portId, groups};
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        return phone::bind(fd.get(), generic, sizeof(address)) == 0 ? 0 : errno;
    }
    void open() {
        mFd = opened();
        ASSERT_EQ(0, bound(mFd, 100001));
    }
    // Sends the bytes and waits until the kernel has received them.
    void send(const std::string& hex) {
        const std::string bytes = bytesOfHex(hex);
        ASSERT_TRUE(writeAll(mFd.get(), bytes.data(), bytes.size()));
        ASSERT_TRUE(kernel().waitReceived(++mSent));
    }
    // The errno of a message to that port.
    int sendError(uint32_t portId) {
        const sockaddr_nl address{AF_NETLINK, 0, portId, 0};
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        return phone::sendto(mFd.get(), "x", 1, 0, generic, sizeof(address)) == 1 ? 0 : errno;
    }
    // The next datagram in hex, or the error.
    std::string received(size_t size = 4096) {
        std::string bytes(size, '\0');
        const ssize_t got =
            phone::recvfrom(mFd.get(), bytes.data(), size, MSG_DONTWAIT, nullptr, nullptr);
        return got < 0 ? strerror(errno) : hexOf({bytes.data(), static_cast<size_t>(got)});
    }
    const std::string mNothing = strerror(EAGAIN);

    Fd mFd;
    size_t mSent = 0;
};

TEST_F(GenericNetlinkTest, TheControllerAnswersTheLookUp) {
    open();
    send(kLookUp);
    EXPECT_EQ(packed("5c000000 1000 0000 00000000 a1860100 01 02 0000"
                     "0f00 0200 6175645f6b6e6c5f6e74 00 00"
                     "0600 0100 1c00 0000 0800 0300 01000000 0800 0400 00000000"
                     "0800 0500 01000000 1800 0600 1400 0100 0800 0100 01000000"
                     "0800 0200 0a000000"),
              received());
    kernel().setAnswer(GenericNetlink::Answer::kNoFamily);
    send(kLookUp);
    EXPECT_EQ(packed("38000000 0200 0000 00000000 a1860100 feffffff") + packed(kLookUp),
              received());
    kernel().setAnswer(GenericNetlink::Answer::kNothing);
    send(kLookUp);
    EXPECT_EQ(mNothing, received());
}

TEST_F(GenericNetlinkTest, ARegistrationIsNotAnsweredAndBringsThePackets) {
    open();
    EXPECT_EQ(GenericNetlink::Pushed::kNobody, kernel().push(0, "1"));
    send(kRegistration);
    EXPECT_EQ(mNothing, received());
    EXPECT_EQ(GenericNetlink::Pushed::kQueued, kernel().push(1, "abcdefghijklmnopqrstu"));
    EXPECT_EQ(packed("38000000 1c00 0000 00000000 00000000 01 01 0000 2200 0100"
                     "01000000 16000000 6162636465666768696a6b6c6d6e6f707172737475 00 0000"),
              received());
    kernel().push(1, std::string(300, 'x'));
    EXPECT_EQ(2 * 276u, received(276).size()) << "cut as a datagram";
    EXPECT_EQ(mNothing, received()) << "the rest is gone";
}

TEST_F(GenericNetlinkTest, AfterALossOneReceiveFailsAndReceptionGoesOn) {
    open();
    send(kRegistration);
    int queued = 0;
    while (kernel().push(1, "x") == GenericNetlink::Pushed::kQueued) ++queued;
    EXPECT_EQ(strerror(ENOBUFS), received());
    for (int i = 0; i < queued; ++i) ASSERT_EQ(2 * 36u, received().size()) << i;
    EXPECT_EQ(mNothing, received());
    EXPECT_EQ(GenericNetlink::Pushed::kQueued, kernel().push(1, "x"));
    EXPECT_EQ(2 * 36u, received().size());
}

TEST_F(GenericNetlinkTest, RefusesAsTheKernelDoes) {
    open();
    const std::pair<const char*, std::string> cases[] = {
        // the request and the error answered
        {"24000000 1000", ""},
        {"0f000000 1000 0100 00000000 00000000", ""},
        {"10000000 1000 0000 00000000 00000000", ""},
        {"10000000 1000 0100 00000000 00000000", "eaffffff"},
        {"14000000 1000 0100 00000000 00000000 09010000", "a1ffffff"},
        {"14000000 1000 0100 00000000 00000000 03010000", "eaffffff"},
        {"1c000000 1000 0100 00000000 00000000 03010000 0800 0200 61616161", "eaffffff"},
        {"14000000 9900 0100 00000000 00000000 01010000", "feffffff"},
        {"10000000 1000 0400 00000000 00000000", "00000000"},
    };
    for (const auto& [request, error] : cases) {
        send(request);
        const std::string reply = received();
        EXPECT_EQ(error, reply == mNothing ? "" : reply.substr(32, 8)) << request;
    }
    EXPECT_EQ(0, sendError(0));
    EXPECT_EQ(ECONNREFUSED, sendError(100001));
}

TEST_F(GenericNetlinkTest, PortIdsAreGivenOnce) {
    open();
    Fd second = opened();
    EXPECT_EQ(EADDRINUSE, bound(second, 100001));
    EXPECT_EQ(EOPNOTSUPP, bound(second, 100002, 1));
    EXPECT_EQ(0, bound(second, 100002));
    EXPECT_EQ(EINVAL, bound(second, 100003));
    mFd = Fd();
    EXPECT_EQ(0, bound(opened(), 100001)) << "free as soon as it is closed";
    EXPECT_EQ(0, bound(opened(), 0));

    EXPECT_EQ(-1, phone::socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
    EXPECT_EQ(EPROTONOSUPPORT, errno);
    EXPECT_EQ(-1, phone::socket(AF_NETLINK, SOCK_STREAM, NETLINK_GENERIC));
    EXPECT_EQ(ESOCKTNOSUPPORT, errno);
}

TEST_F(GenericNetlinkTest, TheControlCommandsPlayTheKernel) {
    open();
    EXPECT_EQ("nobody has registered with the audio module", tell("audio 0 1"));
    send(kRegistration);
    EXPECT_EQ(packed(kRegistration), tell("audio-received"));
    EXPECT_EQ("ok", tell("audio-await"));
    EXPECT_EQ("ok", tell("audio -1 1"));
    EXPECT_EQ("ffffffff020000003100", received().substr(48, 20));
    EXPECT_EQ("ok", tell("audio-raw 0aFf"));
    EXPECT_EQ("0aff", received());
    EXPECT_EQ("ok", tell("audio-answer nothing"));
    EXPECT_EQ("'maybe' is no such answer", tell("audio-answer maybe"));
    EXPECT_EQ("'1x' is not a 32-bit number", tell("audio 1x text"));
    EXPECT_EQ("'f' is not a byte in hex", tell("audio-raw 00f"));
    EXPECT_EQ("usage: audio CMD TEXT", tell("audio 1"));
    EXPECT_EQ("nobody listens to the display", tell("display 7 a@@b"));
    const auto channel = phone().displayKernel().open();
    for (size_t i = 0; i < DisplayChannel::kMaxRecords; ++i)
        EXPECT_EQ("ok", tell("display 7 a@@b"));
    EXPECT_EQ("the queue is full", tell("display 7 a@@b"));
}

}  // namespace
}  // namespace sim
