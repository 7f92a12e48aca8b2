#include <gmock/gmock.h>
#include <sys/socket.h>

#include <future>

#include "sim/base/fd.h"
#include "sim/control/server.h"
#include "sim/kernel/display_kernel.h"
#include "tests/support/phone_fixture.h"

namespace sim {
namespace {

using Texts = std::vector<std::string>;

class ControlTest : public PhoneTest {
  protected:
    void serve() {
        phone().control().add("echo", [](const Texts& texts) { return Reply{true, texts}; });
        phone().control().add("big", [](const Texts& texts) {
            return Reply{true, {std::string(std::stoul(texts.at(0)), 'x')}};
        });
        phone().control().add("wait", [](const Texts&) {
            return Reply{false, {"nothing came"}, std::chrono::seconds(1)};
        });
        phone().control().add("hang", [this](const Texts&) {
            mHung.get_future().wait();
            return Reply{true, {}};
        });
        ASSERT_TRUE(phone().control().serve());
    }
    // The reply in one text, or why there is none.
    std::string request(const Texts& words, std::chrono::milliseconds timeout = kTimeout) {
        try {
            const Reply reply = controlRequest(phone().folder(), words, timeout);
            const std::string kind = reply.ok ? "ok" : kErrorWords[static_cast<int>(reply.error)];
            return kind + ":" + joinTexts(reply.texts);
        } catch (const std::exception& error) {
            return error.what();
        }
    }
    std::promise<void> mHung;  // ends "hang"
    // The longest argument of "echo".
    const std::string mLongest = std::string(kMaxRequestBytes - sizeof("echo"), 'x');
};

TEST_F(ControlTest, AnswersOrSaysInOneLineWhyNot) {
    const std::string path = phone().runDir() + "/control";
    EXPECT_EQ(path + ": nobody serves this phone", request({"echo"}));
    serve();
    EXPECT_EQ(joinTexts({"ok:a", "", "b c\n"}), request({"echo", "a", "", "b c\n"}));
    EXPECT_EQ("ok:" + mLongest, request({"echo", mLongest}));
    // Behind "ok" and a NUL: one full datagram, one byte more, and the longest reply.
    for (const size_t size : {65533, 65534, (4 << 20) - 3})
        EXPECT_EQ("ok:" + std::string(size, 'x'), request({"big", std::to_string(size)}));
    EXPECT_EQ("error:the answer is too long", request({"big", "4194302"}));
    EXPECT_EQ("usage:there is no command 'x'", request({"x", "y"}));
    EXPECT_EQ("no command is named", request({""}));
    EXPECT_EQ("an argument of 'echo' holds a NUL", request({"echo", std::string(1, '\0')}));
    EXPECT_EQ("the arguments of 'echo' are too long", request({"echo", mLongest + "x"}));
    EXPECT_FALSE(phone().control().serve());
    EXPECT_TRUE(logged("E sim_control: " + path + ": is served already"));
}

TEST_F(ControlTest, LimitsHowLongAProcessIsSilentApartFromWhatACommandWaitsFor) {
    constexpr std::chrono::milliseconds kShort{200};
    serve();
    EXPECT_EQ("timeout:nothing came", request({"wait"}, kShort));
    const std::string silent = "process " + std::to_string(getpid()) + " does not answer";
    EXPECT_EQ("timeout:" + silent, request({"hang"}, kShort));
    mHung.set_value();
    EXPECT_EQ("ok:a", request({"echo", "a"}));
}

TEST_F(ControlTest, DropsHostileClientsAndEvictsTheOldest) {
    serve();
    for (const std::string& bytes : {std::string("\0echo", 5), mLongest + mLongest}) {
        const Fd client = connectToControl(phone().runDir());
        send(client.get(), bytes.data(), bytes.size(), 0);
        char byte;
        EXPECT_EQ(0, recv(client.get(), &byte, 1, 0)) << "hangs up";
        EXPECT_TRUE(logged("W sim_control: no request: " + std::to_string(bytes.size()) +
                           " bytes; the connection is closed"));
    }
    std::vector<Fd> others;
    for (size_t i = 0; i < Control::kMaxConnections; ++i)
        others.push_back(connectToControl(phone().runDir()));
    send(others.back().get(), "big\0004000000", 11, 0);  // more than its socket holds, never read
    EXPECT_EQ("ok:a", request({"echo", "a"})) << "in the place of the oldest";
    for (Fd& other : others) {
        other = connectToControl(phone().runDir());
        send(other.get(), "big\0004000000", 11, 0);
    }
    auto late = std::async(std::launch::async, [&] { return request({"echo", "b"}); });
    for (std::string block(kMaxRequestBytes + 1, ' '); block[0] != '.';)
        ASSERT_LT(0, recv(others.front().get(), block.data(), block.size(), 0)) << "not closed";
    EXPECT_EQ("ok:b", late.get()) << "in the place of the only one that has its answer";
}

TEST_F(ControlTest, CommandsRefuseWrongArguments) {
    const auto refuse = [&](const char* why, const std::vector<std::string>& commands) {
        for (const std::string& command : commands)
            EXPECT_THAT(tell(command), testing::StartsWith(why)) << command;
    };
    refuse("nobody ", {"audio 0 1", "display 7 a@@b"});
    refuse("usage: audio", {"audio 1", "audio-await 1", "audio-received x"});
    refuse("'", {"audio 1x text", "audio-raw 00f", "audio-answer maybe"});
    refuse("gpu: ", {"gpu", "gpu crash", "gpu fault --size", "gpu fault --size 67108865",
                     "gpu fault --size -1", "gpu fault --after 1", "gpu vanish --after x",
                     "gpu unreadable x", "gpu short-reads", "gpu appear x"});
    refuse("fault: ",
           {"fault", "fault disk", "fault program dmesg fail 0", "fault program dmesg fail 256",
            "fault reports take more", "fault program paint run"});
    EXPECT_EQ("gpu: --hash is too long", tell("gpu fault --hash " + std::string(4097, 'h')));
    const auto channel = phone().displayKernel().open();
    for (size_t i = 0; i < DisplayChannel::kMaxRecords; ++i)
        EXPECT_EQ("ok", tell("display 7 a@@b"));
    EXPECT_EQ("the queue is full", tell("display 7 a@@b"));
}

}  // namespace
}  // namespace sim
