// What the channel sends, how it is set up, and how that fails.
#include <fcntl.h>

#include <set>
#include <thread>

#include "kernel/testing/channel_fixture.h"
#include "sim/log.h"

namespace android {
namespace {

using AudioChannelTest = ChannelTest;

TEST_F(AudioChannelTest, LooksUpTheFamilyRegistersAndReceives) {
    start();
    EXPECT_EQ(packed("24000000 1000 0100 00000000" + portId() +
                     "03 01 0000 1000 0200 6175645f6b6e6c5f6e74 0000"),
              sim::hexOf(kernel().received()[0]));
    EXPECT_EQ(packed("24000000 1c00 0100 00000000" + portId() +
                     "01 01 0000 1000 0100 6b6e6c5f6e745f636f6d 0000"),
              sim::hexOf(kernel().received()[1]));
    kernel().push(1, "257");
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag, "hook ret=0 \n"));
    Texts lines = logLines(kTag);
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ(0u, lines[2].find("threadLoop: mGenlFd=")) << lines[2];
    lines[2].erase(0, lines[2].find(','));
    EXPECT_EQ(
        (Texts{"audio kernel native genetlink module:knl_nt_com\n",
               "nlmsg_type 16, genl_cmd 3, nla_type 2, nla_data=aud_knl_nt\n", ", mFamilyId=28\n",
               "nlmsg_type 28, genl_cmd 1, nla_type 1, nla_data=knl_nt_com\n",
               "recv cmd=1, len=4, payload:257\n", "hook ret=0 \n"}),
        lines);
}

TEST_F(AudioChannelTest, SendsWhatFitsWithTheLengthsTheModuleExpects) {
    start();
    const std::string text(300, 'x');
    const auto sent = [&](int32_t len) {
        const size_t before = kernel().received().size();
        const int32_t result = channel->sendToKernelMsg(7, 5, text.data(), len);
        EXPECT_TRUE(kernel().waitReceived(before + 1));
        EXPECT_EQ(kernel().received().back().size(), static_cast<size_t>(result));
        return sim::hexOf(kernel().received().back());
    };
    const std::string middle = packed("1c00 0100 00000000" + portId() + "07 01 0000");
    EXPECT_EQ("1c000000" + middle + packed("0600 0500 00000000"), sent(1));
    EXPECT_EQ("1c000000" + middle + packed("0800 0500 78780000"), sent(3));
    EXPECT_EQ("20000000" + middle + packed("0900 0500 78787800 00000000"), sent(4));
    const std::string most =
        "14010000" + middle + "00010500" + sim::hexOf(std::string(250, 'x')) + "0000";
    for (const int32_t len : {251, 252, 300}) {
        EXPECT_EQ(most, sent(len));
        EXPECT_EQ(len > 251, logged(ANDROID_LOG_ERROR, kTag,
                                    "[ERROR]: data len=" + std::to_string(len) + " > 256\n"));
    }
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, kTag,
                       "nlmsg_type 28, genl_cmd 7, nla_type 5, nla_data=" + text.substr(50) + "\n",
                       3));
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, nullptr, 3));
    EXPECT_EQ(-22, channel->sendToKernelMsg(7, 5, text.data(), 0));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "[ERROR]: sendGenlMsg param invalid\n", 2));
    // The kernel says that it knows no such command; what it says at length comes cut.
    EXPECT_TRUE(waitLogged(ANDROID_LOG_ERROR, kTag, recvError(48, 2, false, 48), 2));
    EXPECT_TRUE(waitLogged(ANDROID_LOG_ERROR, kTag, recvError(276, 2, true, 296), 3));
}

TEST_F(AudioChannelTest, AnObjectWithoutAModuleNameDoesNothing) {
    const std::string name(63, 'm');
    const auto linesOf = [&](const char* module) {
        forgetLog();
        const sp<Channel> idle = new Channel(this, module, &note);
        if (module != name.c_str() + 1) idle->run("kelvo_audio_mic_check");
        idle->join();
        EXPECT_EQ(-22, idle->sendToKernelMsg(1, 1, "x", 2));
        EXPECT_EQ(0, idle->getFamilyId());
        EXPECT_EQ(-22, idle->recvGenlMsg());
        return logLines(kTag);
    };
    Texts lines{"[ERROR]: module is null\n", "[ERROR]: sendToKernelMsg param invalid\n",
                "[ERROR]: sendGenlMsg param invalid\n", "[ERROR]: send_cmd err, ret is -22 \n",
                "[ERROR]: recvGenlMsg param invalid\n"};
    EXPECT_EQ(lines, linesOf(nullptr));
    lines[0] = "[ERROR]: module length exceeds limit\n";
    EXPECT_EQ(lines, linesOf(name.c_str()));
    lines[0] = "audio kernel native genetlink module:" + name.substr(1) + "\n";
    EXPECT_EQ(lines, linesOf(name.c_str() + 1)) << "not running yet";
}

TEST_F(AudioChannelTest, EndsItsThreadWhenTheFamilyIsNotFound) {
    const std::string name = "0f00 0200 6175645f6b6e6c5f6e7400 00", id = "0600 0100 1c00 0000";
    const auto reply = [](const std::string& attributes) {
        return "2c000000 1000 0000 00000000 00000000 01020000" + attributes;
    };
    const auto refused = [](int length, int type, int badLength) {
        return "[ERROR]: recv err, rep_len is " + std::to_string(length) +
               ", msg.n_hd.nlmsg_type is " + std::to_string(type) + ", NLMSG_OK((&msg.n_hd) is " +
               std::to_string(badLength) + " \n";
    };
    const std::string whole = packed(reply(name + id));
    const std::pair<std::string, std::string> cases[] = {
        // the reply, and the line if it has one
        {"24000000 0200" + std::string(60, '0'), refused(36, 2, 0)},
        {whole.substr(0, 30), refused(15, 16, 1)},
        {whole.substr(0, 86), refused(43, 16, 1)},
        {"0f" + whole.substr(2), refused(44, 16, 1)},
        {"2d" + whole.substr(2), refused(44, 16, 1)},
        {reply(id + name), ""},  // in another order, without an id, with an id of 0
        {reply(name + "0600 0300 1c00 0000"), ""},
        {reply(name + "0600 0100 0000 0000"), ""},
        {reply("0000" + name.substr(4) + id), ""},  // leading nowhere, or out
        {reply("0300" + name.substr(4) + id), ""},
        {reply("1300" + name.substr(4) + id), ""},
        {reply("ffff" + name.substr(4) + id), ""},
        {"10000000 1000 0000 00000000 00000000", ""},
        {"28000000" + whole.substr(8, 72), ""},
    };
    kernel().setAnswer(sim::GenericNetlink::Answer::kNothing);
    for (const auto& [bytes, line] : cases) {
        start(1);
        forgetLog();
        EXPECT_TRUE(channel->isRunning()) << "waits for an answer";
        kernel().pushRaw(sim::bytesOfHex(bytes));
        channel->join();
        Texts expected{line, "[ERROR]: get_family_id err\n"};
        if (line.empty()) expected.erase(expected.begin());
        EXPECT_EQ(expected, logLines(kTag)) << bytes;
    }
    start(1);  // the answer comes late, and ends behind the id
    kernel().pushRaw(sim::bytesOfHex("2a" + whole.substr(2, 82)));
    EXPECT_TRUE(waitLogged(ANDROID_LOG_DEBUG, kTag,
                           "nlmsg_type 28, genl_cmd 1, nla_type 1, nla_data=knl_nt_com\n"));
    EXPECT_TRUE(channel->isRunning());
}

TEST_F(AudioChannelTest, EndsItsThreadWithoutASocket) {
    start();
    forgetLog();
    const sp<Channel> second = made("other");
    second->run("kelvo_audio_mic_check");
    second->join();
    EXPECT_EQ((Texts{"audio kernel native genetlink module:other\n",
                     "[ERROR]: bind  socket err: Address already in use\n",
                     "[ERROR]: create or bind Netlink socket err \n"}),
              logLines(kTag));
    EXPECT_EQ(-1, second->createGenlSocket(17));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag,
                       "[ERROR]: create_nl_socket  socket err: Protocol not supported\n"));
}

TEST_F(AudioChannelTest, EndsItsThreadWhenTheRegistrationCannotBeSent) {
    // Takes the socket away between the two messages, on the channel's own thread.
    Texts lines;
    phone().log().observe([&](const sim::Log::Record& record) {
        const std::string line(record.message);
        int fd = -1;
        if (sscanf(line.c_str(), "threadLoop: mGenlFd=%d", &fd) == 1) close(fd);
        lines.push_back(line);
    });
    const sp<Channel> failing = made("knl_nt_com");
    failing->run("kelvo_audio_mic_check");
    failing->join();
    phone().log().observe(nullptr);
    EXPECT_EQ((Texts{"[ERROR]: sendto failed\n", "[ERROR]: sendGenlMsg cmd 1 err ,ret is -1 \n"}),
              (Texts{lines.end() - 2, lines.end()}));
}

// The numbers of this process's open descriptors.
std::set<int> openNumbers() {
    std::set<int> open;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) open.insert(fd);
    }
    return open;
}

TEST_F(AudioChannelTest, AFailedSetUpKeepsTheSocketsNumber) {
    const std::set<int> before = openNumbers();
    kernel().setAnswer(sim::GenericNetlink::Answer::kNothing);
    auto* const failing = new Channel(this, "knl_nt_com", &note);
    sp<Channel> owner = failing;
    failing->run("kelvo_audio_mic_check");
    ASSERT_TRUE(kernel().waitReceived(1));
    const std::set<int> during = openNumbers();
    kernel().pushRaw("not a family");
    failing->join();
    EXPECT_EQ(-1, failing->sendGenlMsg(16, 1, 1, "x", 2)) << "not -22, it has a number";
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "[ERROR]: sendto failed\n"));
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (openNumbers() != before || failing->getStrongCount() > 1) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
    for (const int fd : during) {
        if (before.count(fd) == 0) dup2(STDERR_FILENO, fd);  // both ends' numbers are used again
    }
    owner.clear();
    EXPECT_EQ(during.size() - 1, openNumbers().size()) << "closed with the channel";
}

}  // namespace
}  // namespace android
