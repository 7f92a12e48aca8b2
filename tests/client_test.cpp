// The client program as scripts see it: output, exit codes, one line per error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/service_fixture.h"

using namespace android;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class ClientTest : public ServiceTest {
  protected:
    // Stops the service that a test has started by `phone start`.
    void TearDown() override {
        pelto({"phone", "stop"});
        ServiceTest::TearDown();
    }
};

TEST_F(ClientTest, stopsNobodyElse) {
    Program byHand(hostCommand({"--threads", "1"}));
    ASSERT_TRUE(byHand.awaitReady());
    EXPECT_EQ(run(hostCommand()).code, 4);
    const Result second = phoneStart();
    EXPECT_EQ(second.code, 1);
    EXPECT_THAT(second.errors, HasSubstr("already published"));
    // A record whose process number belongs to another process.
    std::ofstream(phone().runDir() + "/daemons/peltoserviced") << getpid() << " 1\n";
    EXPECT_THAT(pelto({"phone", "stop"}).errors, HasSubstr("not started by phone start"));
    EXPECT_EQ(pelto({"phone", "status"}).code, 0);
}

TEST_F(ClientTest, failsWhenItsOutputIsNotTaken) {
    ASSERT_EQ(phoneStart().code, 0);
    const auto toFullDisk = [](Program::Words command) {
        command.insert(command.begin(), {"sh", "-c", "exec \"$@\" >/dev/full", "sh"});
        return command;
    };
    EXPECT_EQ(run(toFullDisk(command({"phone", "status"}))).code, 1);
    EXPECT_EQ(run(toFullDisk(command({"logcat", "-d"}))).code, 1);
    Program watcher(toFullDisk(watchCommand()));
    ASSERT_TRUE(watcher.awaitReady());
    EXPECT_EQ(pelto({"send", "test_event", "info"}).code, 0);
    EXPECT_EQ(watcher.wait(), 1);
}

TEST_F(ClientTest, callsAServiceThatStartsAgainHoweverItEnded) {
    for (const int signal : {SIGTERM, SIGINT, SIGKILL, SIGTERM}) {
        Program host(hostCommand());
        ASSERT_TRUE(host.awaitReady());
        EXPECT_EQ(pelto({"send", "any"}).code, 0);
        host.signal(signal);
        EXPECT_EQ(host.wait(), signal == SIGKILL ? -SIGKILL : 0);
        EXPECT_EQ(host.errors(), "");
        EXPECT_EQ(pelto({"send", "any"}).code, 4);
    }
}

TEST_F(ClientTest, makesAPhoneInANewFolderAlone) {
    const std::string folder = phone().folder() + "/fs/data/other";
    EXPECT_EQ(pelto({"phone", "start", "--no-service", "--phone", folder}).code, 0);
    EXPECT_TRUE(std::filesystem::exists(folder + "/fs/data/tombstones"));
    refuses({"phone", "start", "--phone", phone().folder() + "/fs/data"}, 1, "neither empty nor");
    refuses({"getprop", "--phone", folder + "/none"}, 3, "pelto phone start");
}

TEST_F(ClientTest, watchesWhatIsSent) {
    Program host(hostCommand());
    ASSERT_TRUE(host.awaitReady());
    Program plain(watchCommand());
    Program json(watchCommand({"--json", "--count", "4"}));
    ASSERT_TRUE(plain.awaitReady());
    ASSERT_TRUE(json.awaitReady());

    EXPECT_EQ(pelto({"send", "kind", "a\nb\\\xff"}).code, 0);
    const std::string input = phone().folder() + "/input";
    std::ofstream(input) << "first key:1,text:with blanks\n\nsecond";
    EXPECT_EQ(run(command({"send", "--stdin"}), input).code, 0);
    EXPECT_EQ(pelto({"send", "unseen", "--native-only"}).code, 0);
    EXPECT_EQ(pelto({"debug", "on"}).code, 0);

    EXPECT_EQ(plain.line(), "kind a\\nb\\\\\xff");
    EXPECT_EQ(plain.line(), "first key:1,text:with blanks");
    EXPECT_EQ(plain.line(), "second ");
    EXPECT_EQ(plain.line(), "pelto_event_audio_set_debug_log 1");
    const auto event = nlohmann::json::parse(json.line());
    EXPECT_EQ(event["type"], "kind");
    EXPECT_EQ(event["info"], "a\nb\\\xef\xbf\xbd");
    EXPECT_GT(event["time_ms"], 0);
    EXPECT_EQ(json.wait(), 0);

    // A line too big for a call fails, and the next one is not sent.
    std::ofstream(input) << "big " << std::string(1045000, 'x') << "\nafter\n";
    const Result big = run(command({"send", "--stdin"}), input);
    EXPECT_EQ(big.code, 1);
    EXPECT_THAT(big.errors, HasSubstr("line 1: too big"));

    refuses({"watch", "--timeout", "0.01", "--count", "1"}, 5, "0 of 1");
    EXPECT_EQ(pelto({"watch", "--timeout", "0.01"}).code, 0);
    host.signal(SIGTERM);
    EXPECT_EQ(plain.wait(), 4);
    EXPECT_EQ(plain.output(), "");
    EXPECT_THAT(plain.errors(), HasSubstr("the service has ended"));
}

TEST_F(ClientTest, readsAndSetsProperties) {
    EXPECT_EQ(pelto({"setprop", "ro.one", "a\nb"}).code, 0);
    EXPECT_EQ(pelto({"setprop", "two", ""}).code, 0);
    EXPECT_EQ(property("ro.one"), "a\nb");
    EXPECT_EQ(pelto({"getprop", "ro.one"}).output, "a\\nb\n");
    EXPECT_EQ(pelto({"getprop", "three"}).output, "\n");
    EXPECT_EQ(pelto({"getprop"}).output, "[ro.one]: [a\\nb]\n[two]: []\n");
    refuses({"setprop", "ro.one", "c"}, 1, "'ro.one'");
    refuses({"setprop", "a..b", "c"}, 1, "invalid property name");
    refuses({"setprop", "a", std::string(92, 'x')}, 1, "too long");
}

TEST_F(ClientTest, showsAndFollowsTheLog) {
    __android_log_write(ANDROID_LOG_INFO, "one", "early");
    __android_log_write(ANDROID_LOG_WARN, "two", "loud");
    const std::string line = "[-0-9]+ [:.0-9]+ +[0-9]+ +[0-9]+ ";
    EXPECT_THAT(pelto({"logcat", "-d", "one:i", "*:s"}).output,
                MatchesRegex("-+ beginning of main\n" + line + "I one +: early\n"));
    EXPECT_THAT(pelto({"logcat", "-d", "-s", "*:w"}).output, HasSubstr("loud"));

    Program follower(command({"logcat", "--until", "^la+ter$", "--timeout", "40"}));
    EXPECT_THAT(follower.line(), HasSubstr("early"));
    __android_log_write(ANDROID_LOG_INFO, "one", "laater");
    __android_log_write(ANDROID_LOG_INFO, "one", "after");
    EXPECT_EQ(follower.wait(), 0) << follower.errors();
    EXPECT_THAT(follower.output(), MatchesRegex("[^\n]+ loud\n[^\n]+ laater\n"));
    EXPECT_EQ(pelto({"logcat", "--until", "never", "--timeout", "0.01"}).code, 5);

    EXPECT_EQ(pelto({"logcat", "-c"}).code, 0);
    EXPECT_EQ(pelto({"logcat", "-t", "5"}).output, "--------- beginning of main\n");
}

TEST_F(ClientTest, listsArchivesByTheirNames) {
    for (const char* name :
         {"gpudump@5a1f@V12.1@_2024-03-05_14-07-09.tar.gz",
          "gpudump@a@b@0@_2024-03-05_14-07-09.tar.gz", "gpudump@@0@_2024-03-05_14-07.tar.gz",
          "mic@2024-03-05_14-07-09.tar.gz", "x.tar.gz", "x.tar.gz.bak", "directory.tar.gz/y.tar.gz",
          ".tar.gz"}) {
        file(std::string("/data/a/") + name, "12345");
    }
    std::filesystem::create_symlink("/etc", phone().fsDir() + "/data/a/link");
    std::filesystem::create_symlink("/etc/passwd", phone().fsDir() + "/data/a/l.tar.gz");

    std::vector<std::string> found;
    std::istringstream lines(pelto({"archives", "list", "--json", "/data/a"}).output);
    for (std::string line; std::getline(lines, line);) {
        const auto archive = nlohmann::json::parse(line);
        EXPECT_EQ(archive["bytes"], 5) << line;
        std::string facts;
        for (const char* key : {"kind", "name", "version", "time"})
            facts += archive[key].get<std::string>() + "|";
        found.push_back(facts);
    }
    const std::string time = "2024-03-05_14-07-09|";
    EXPECT_THAT(found, ElementsAre("other||||", "other|y|||", "gpu|5a1f|V12.1|" + time,
                                   "other|gpudump@@0@_2024-03-05_14-07|||", "gpu|a@b|0|" + time,
                                   "capture|mic||" + time, "other|x|||"));
    EXPECT_EQ(pelto({"archives", "list", "/data/a/directory.tar.gz"}).output,
              "other                                 5 bytes  y  "
              "/data/a/directory.tar.gz/y.tar.gz\n");
}

TEST_F(ClientTest, saysWhyACaptureFails) {
    file("/data/x/text", "");
    const struct {
        Words words;
        int code;
        std::string why;
    } cases[] = {
        {{}, 2, "INFO is required"},
        {{"one,two,three,four"}, 2, "five fields"},
        {{"A0345,1,/data/x/A0345/,/data/x/,a&b"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/../outside/,name"}, 1, "made (cmds failed: tar -czf,"},
        // Captures nothing: tar leaves an empty archive.
        {{"A0345,12345678,/data/x/A0345/,/data/x/,name"}, 1, "made (cmds failed: tar -czf,"},
        // The capture directory matches the pattern of the archive's name, and is not removed.
        {{"n@$.tar.gz,1,/data/x/n@$.tar.gz/,/data/x/,n"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/data/x/,name", "--phone", phone().fsDir()}, 3, "not a phone's"},
    };
    for (const auto& wrong : cases) {
        const Result result = run(captureCommand(wrong.words));
        EXPECT_EQ(result.code, wrong.code) << wrong.why;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr(wrong.why));
    }
    EXPECT_THAT(names("/data/x"),
                ElementsAre("n@$.tar.gz", MatchesRegex("name@[-_0-9]+.tar.gz"), "text"));
    EXPECT_FALSE(std::filesystem::exists(phone().folder() + "/outside"));
}

}  // namespace
