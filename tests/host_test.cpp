// The host program as its starter sees it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/service_test.h"

using namespace android;
using testing::HasSubstr;

namespace {

class HostTest : public ServiceTest {
  protected:
    // Names of sockets in the phone's folder.
    size_t sockets() {
        size_t found = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(phone().folder())) {
            found += entry.is_socket() ? 1 : 0;
        }
        return found;
    }
};

long lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

TEST_F(HostTest, refusesWhatItCannotDoInOneLine) {
    const Result help = run(hostProgram({"--help"}));
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.output, HasSubstr("Exit codes:"));
    const struct {
        Words words;
        int code;
        std::string reason;
    } cases[] = {
        {{}, 2, "--phone is required"},
        {{"--phone", phone().folder(), "--threads", "0"}, 2, "--threads"},
        {{"--phone", phone().folder(), "--thread", "2"}, 2, "--thread"},
        {{"--phone", phone().folder() + "/none"}, 3, "No such file"},
        {{"--phone", phone().folder() + "/fs"}, 3, "not a phone's folder"},
    };
    for (const auto& wrong : cases) {
        const Result result = run(hostProgram(wrong.words));
        EXPECT_EQ(result.code, wrong.code) << result.errors;
        EXPECT_THAT(result.errors, HasSubstr(wrong.reason));
        EXPECT_EQ(lines(result.errors), 1) << result.errors;
    }
    EXPECT_EQ(logLines("PeltoService").size(), 0u);
}

TEST_F(HostTest, aSecondOneIsRefusedAndTheFirstGoesOn) {
    Program first(hostCommand({"--threads", "1"}));
    ASSERT_TRUE(first.awaitReady());
    const Result second = run(hostCommand());
    EXPECT_EQ(second.code, 4);
    EXPECT_THAT(second.errors, HasSubstr("already published"));
    EXPECT_EQ(lines(second.errors), 1) << second.errors;
    EXPECT_EQ(send("any", ""), OK);
}

TEST_F(HostTest, stopsCleanlyOnEitherSignalAndMayStartAgain) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Program host(hostCommand());
        ASSERT_TRUE(host.awaitReady());
        EXPECT_GT(sockets(), 0u);
        ASSERT_EQ(send("any", ""), OK);
        host.signal(signal);
        EXPECT_EQ(host.wait(), 0) << signal;
        EXPECT_EQ(host.errors(), "");
        EXPECT_EQ(sockets(), 0u);
        EXPECT_EQ(service(), nullptr);
    }
}

TEST_F(HostTest, takesTheNameOfOneThatWasKilled) {
    Program killed(hostCommand());
    ASSERT_TRUE(killed.awaitReady());
    killed.signal(SIGKILL);
    EXPECT_EQ(killed.wait(), -SIGKILL);
    EXPECT_EQ(pelto({"send", "any"}).code, 4);
    Program next(hostCommand());
    ASSERT_TRUE(next.awaitReady());
    EXPECT_EQ(pelto({"send", "any"}).code, 0);
}

}  // namespace
