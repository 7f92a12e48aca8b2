#include "sim/control.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <stdexcept>
#include <thread>

#include "sim/control_socket.h"
#include "tests/support/phone_test.h"

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
        ASSERT_TRUE(phone().control().serve());
    }
    Reply request(const Texts& words) { return controlRequest(phone(), words); }
    std::string failure(const Texts& words) {
        try {
            request(words);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    Fd connected() { return connectToControl(phone().runDir()); }
    static bool hangsUp(const Fd& fd) {
        char byte;
        return recv(fd.get(), &byte, 1, 0) <= 0;
    }
    // What is left in front of the strings in a request of the most bytes that are taken.
    static constexpr size_t kMost = Control::kRequestBytes - sizeof("echo");
};

TEST_F(ControlTest, AnswersWithWhatTheCommandGives) {
    serve();
    for (const Texts& texts :
         {Texts{"a", "", "b c\n"}, Texts{""}, Texts{std::string(kMost, 'x')}}) {
        Texts words{"echo"};
        words.insert(words.end(), texts.begin(), texts.end());
        const Reply reply = request(words);
        EXPECT_TRUE(reply.ok);
        EXPECT_EQ(texts, reply.texts);
    }
    EXPECT_TRUE(request({"echo"}).texts.empty());
    // The reply's first string is "ok" and a NUL: lengths around one and many datagrams.
    for (const size_t size : {65532, 65533, 65534, 131069, 131070, (4 << 20) - 3})
        EXPECT_EQ(std::string(size, 'x'), request({"big", std::to_string(size)}).texts.at(0));

    const auto error = [&](const Texts& words) {
        const Reply reply = request(words);
        return reply.ok ? "ok" : reply.texts.at(0);
    };
    EXPECT_EQ("there is no command 'x'", error({"x", "y"}));
    EXPECT_EQ("stoul", error({"big", "words"}));
    EXPECT_EQ("the answer is too long", error({"big", "5000000"}));
}

TEST_F(ControlTest, SaysInOneLineWhyThereIsNoAnswer) {
    const std::string path = phone().runDir() + "/control";
    EXPECT_EQ(path + ": nobody serves this phone", failure({"echo"}));
    serve();
    EXPECT_EQ("no command is named", failure({""}));
    EXPECT_EQ("an argument of 'echo' holds a NUL", failure({"echo", std::string(1, '\0')}));
    EXPECT_EQ("the arguments of 'echo' are too long",
              failure({"echo", std::string(kMost + 1, 'x')}));
    EXPECT_FALSE(phone().control().serve());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "sim_control", path + ": is served already"));
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777u);
}

TEST_F(ControlTest, HostileAndIdleClientsKeepNobodyWaiting) {
    serve();
    for (const std::string& bytes : {std::string(1, '\0'), std::string("\0echo", 5),
                                     std::string(Control::kRequestBytes + 1, 'x')}) {
        const Fd client = connected();
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  send(client.get(), bytes.data(), bytes.size(), 0));
        EXPECT_TRUE(hangsUp(client));
        EXPECT_TRUE(logged(
            ANDROID_LOG_WARN, "sim_control",
            "no request: " + std::to_string(bytes.size()) + " bytes; the connection is closed"));
    }
    const Fd deaf = connected();  // asks for more than its socket holds, and never reads
    ASSERT_EQ(11, send(deaf.get(), "big\0004000000", 11, 0));
    std::vector<Fd> idle;
    for (size_t i = 1; i < Control::kConnections; ++i) idle.push_back(connected());
    EXPECT_EQ((Texts{"a"}), request({"echo", "a"}).texts) << "in the place of the oldest";
    EXPECT_EQ(2u, splitTexts(joinTexts({"", ""})).size());
}

}  // namespace
}  // namespace sim
