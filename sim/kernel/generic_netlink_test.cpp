// The bytes and errors are those of a real kernel.
#include "sim/kernel/generic_netlink.h"

#include <linux/netlink.h>

#include "phone/phone.h"
#include "sim/base/text.h"
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
    Fd opened() { return Fd(phone::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC)); }
    // The address of a port, for one call.
    const sockaddr* port(uint32_t id, uint32_t groups = 0) {
        mAddress = {AF_NETLINK, 0, id, groups};
        return reinterpret_cast<const sockaddr*>(&mAddress);
    }
    // 0 or the errno.
    int bound(const Fd& fd, const sockaddr* address) {
        return phone::bind(fd.get(), address, sizeof(mAddress)) == 0 ? 0 : errno;
    }
    void SetUp() override {
        PhoneTest::SetUp();
        mFd = opened();
        ASSERT_EQ(0, bound(mFd, port(100001)));
    }
    // Sends the bytes and waits until the kernel has received them.
    void send(const std::string& hex) {
        const std::string bytes = bytesOfHex(hex);
        ASSERT_TRUE(writeAll(mFd.get(), bytes.data(), bytes.size()));
        ASSERT_TRUE(phone().netlink().waitReceived(++mSent));
    }
    // The next datagram in hex, or "" when there is none, or the error.
    std::string received(size_t size = 4096) {
        std::string bytes(size, '\0');
        const ssize_t got =
            phone::recvfrom(mFd.get(), bytes.data(), size, MSG_DONTWAIT, nullptr, nullptr);
        if (got < 0) return errno == EAGAIN ? "" : strerror(errno);
        return hexOf({bytes.data(), static_cast<size_t>(got)});
    }

    Fd mFd;
    sockaddr_nl mAddress{};
    size_t mSent = 0;
};

TEST_F(GenericNetlinkTest, AnswersTheLookUp) {
    send(kLookUp);
    EXPECT_EQ(packed("5c000000 1000 0000 00000000 a1860100 01 02 0000"
                     "0f00 0200 6175645f6b6e6c5f6e74 00 00"
                     "0600 0100 1c00 0000 0800 0300 01000000 0800 0400 00000000"
                     "0800 0500 01000000 1800 0600 1400 0100 0800 0100 01000000"
                     "0800 0200 0a000000"),
              received());
    phone().netlink().setAnswer(GenericNetlink::Answer::kNoFamily);
    send(kLookUp);
    EXPECT_EQ(packed("38000000 0200 0000 00000000 a1860100 feffffff") + packed(kLookUp),
              received());
}

TEST_F(GenericNetlinkTest, SendsThePacketsOfTheModuleOnceItIsRegistered) {
    EXPECT_EQ("nobody has registered with the audio module", tell("audio 0 1"));
    send(kRegistration);
    EXPECT_EQ("", received()) << "a registration is not answered";
    EXPECT_EQ(packed(kRegistration), tell("audio-received"));
    EXPECT_EQ("ok", tell("audio-await"));
    EXPECT_EQ("ok", tell("audio -1 abcdefghijklmnopqrstu"));
    EXPECT_EQ(packed("38000000 1c00 0000 00000000 00000000 01 01 0000 2200 0100"
                     "ffffffff 16000000 6162636465666768696a6b6c6d6e6f707172737475 00 0000"),
              received());
    EXPECT_EQ("ok", tell("audio-raw 0aFf"));
    EXPECT_EQ("0aff", received());
    phone().netlink().push(1, std::string(300, 'x'));
    EXPECT_EQ(2 * 276u, received(276).size()) << "cut as a datagram";
    while (phone().netlink().push(1, "x") == GenericNetlink::Pushed::kQueued) {
    }
    EXPECT_EQ(strerror(ENOBUFS), received()) << "after a loss one receive fails";
    EXPECT_EQ(2 * 36u, received().size());
}

TEST_F(GenericNetlinkTest, RefusesAsTheKernelDoes) {
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
        EXPECT_EQ(error, reply.empty() ? "" : reply.substr(32, 8)) << request;
    }
    const auto error = [](ssize_t result) { return result == -1 ? errno : 0; };
    EXPECT_EQ(ECONNREFUSED,
              error(phone::sendto(mFd.get(), "x", 1, 0, port(100001), sizeof(mAddress))));
    EXPECT_EQ(EAFNOSUPPORT, error(phone::socket(AF_INET, SOCK_STREAM, 0)));
    EXPECT_EQ(EPROTONOSUPPORT, error(phone::socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE)));
    EXPECT_EQ(ESOCKTNOSUPPORT, error(phone::socket(AF_NETLINK, SOCK_STREAM, NETLINK_GENERIC)));
    mAddress.nl_family = AF_INET;
    EXPECT_EQ(EAFNOSUPPORT, bound(mFd, reinterpret_cast<const sockaddr*>(&mAddress)));

    Fd second = opened();
    EXPECT_EQ(EADDRINUSE, bound(second, port(100001)));
    EXPECT_EQ(EOPNOTSUPP, bound(second, port(100002, 1)));
    EXPECT_EQ(0, bound(second, port(100002)));
    EXPECT_EQ(EINVAL, bound(second, port(100003)));
    mFd = Fd();
    EXPECT_EQ(0, bound(opened(), port(100001))) << "free as soon as it is closed";
    EXPECT_EQ(0, bound(opened(), port(0)));
}

}  // namespace
}  // namespace sim
