// The client program as scripts see it: output, exit codes, one line per error.
#include <binder/transport/frame.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <ipeltoservice/IPeltoService.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>

#include "sim/base/fd.h"
#include "sim/base/unix_socket.h"
#include "tests/support/service_fixture.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

using ClientTest = ServiceTest;

TEST_F(ClientTest, StopsOnlyWhatItStarted) {
    const ReadyProgram byHand(hostCommand({"--threads", "1"}));
    EXPECT_EQ(run(hostCommand()).code, 4);
    const Result second = phoneStart();
    EXPECT_EQ(second.code, 1);
    EXPECT_THAT(second.errors, HasSubstr("already published"));
    // A record whose process number belongs to another process.
    std::ofstream(phone().runDir() + "/daemons/peltoserviced") << getpid() << " 1\n";
    refuses({"phone", "stop"}, 1, "not started by phone start");
    EXPECT_EQ(pelto({"phone", "status"}).code, 0);
}

// The tracer here is a program that runs the service as its child and would live on without it.
TEST_F(ClientTest, NeitherWaitsForAFrozenServiceNorLeavesItBehind) {
    ASSERT_EQ(pelto({"phone", "start", "--under", "timeout 600 " + emulator()}).code, 0);
    const auto status = [&](const char* limit) {
        return pelto({"phone", "status", "--json", "--call-timeout", limit});
    };
    const pid_t pid = nlohmann::json::parse(status("40").output)["service"]["pid"];
    const std::string process = "process " + std::to_string(pid);
    refuses({"phone", "start", "--threads", "2"}, 2, process);
    ASSERT_EQ(kill(pid, SIGSTOP), 0);

    const Result silent = status("0.1");
    EXPECT_EQ(silent.code, 5);
    EXPECT_EQ(nlohmann::json::parse(silent.output)["service"]["answers"], false);
    const Words verbs[] = {
        {"send", "a"}, {"watch"}, {"compositor"}, {"gpu", "await"}, {"kernel", "audio", "0", "1"}};
    for (Words words : verbs) {
        words.insert(words.end(), {"--call-timeout", "0.1"});
        refuses(words, 5, process);
    }
    refuses({"watch", "--timeout", "0.1"}, 5, process);

    const Result stopped = pelto({"phone", "stop", "--patience", "0.1"});
    EXPECT_EQ(stopped.code, 0) << stopped.errors;
    EXPECT_THAT(stopped.output, HasSubstr("killed " + process));
    EXPECT_EQ(phoneStart().code, 0) << "nothing holds the name";
}

TEST_F(ClientTest, FailsWhenItsOutputIsNotTaken) {
    ASSERT_EQ(phoneStart().code, 0);
    const auto toFullDisk = [](Words command) {
        command.insert(command.begin(), {"sh", "-c", "exec \"$@\" >/dev/full", "sh"});
        return command;
    };
    EXPECT_EQ(run(toFullDisk(command({"phone", "status"}))).code, 1);
    EXPECT_EQ(run(toFullDisk(command({"logcat", "-d"}))).code, 1);
    ReadyProgram watcher(toFullDisk(watchCommand()));
    EXPECT_EQ(pelto({"send", "test_event", "info"}).code, 0);
    EXPECT_EQ(watcher.wait(), 1);
}

TEST_F(ClientTest, CallsAServiceThatStartsAgainHoweverItEnded) {
    for (const int signal : {SIGINT, SIGKILL, SIGTERM}) {
        ReadyProgram host(hostCommand());
        EXPECT_EQ(pelto({"send", "any"}).code, 0);
        host.signal(signal);
        EXPECT_EQ(host.wait(), signal == SIGKILL ? -SIGKILL : 0);
        EXPECT_EQ(host.errors(), "");
        EXPECT_EQ(pelto({"send", "any"}).code, 4);
    }
}

TEST_F(ClientTest, IsToldOfAServiceThatIsFull) {
    Words fewPlaces{"sh", "-c", "ulimit -n 64; exec \"$@\"", "sh"};
    const Words host = hostCommand();
    fewPlaces.insert(fewPlaces.end(), host.begin(), host.end());
    const ReadyProgram full(fewPlaces);
    using namespace android::transport;
    const FrameHeader hello{kMagic, 0, HELLO, 0, 0, 0, kVersion, 0, 0};
    const sim::Fd folder(open((phone().runDir() + "/services").c_str(), O_PATH));
    std::vector<sim::Fd> idle(64 / 4);
    for (sim::Fd& place : idle) {
        place = sim::connectSocket(folder, android::kPeltoServiceName, SOCK_STREAM);
        ASSERT_TRUE(
            sim::writeAll(place.get(), reinterpret_cast<const char*>(&hello), sizeof hello));
    }
    refuses({"send", "any"}, 1, "takes no more clients");
    idle.pop_back();
    while (pelto({"send", "any"}).code != 0) {
    }
}

TEST_F(ClientTest, AStartClearsWhatAKilledServiceHasLeft) {
    const std::string run = "/../run/", half = run + "properties/.set-";
    ReadyProgram killed(hostCommand());
    EXPECT_EQ(pelto({"control", "fault", "program", "audiodumpinfo", "hang"}).code, 0);
    EXPECT_EQ(pelto({"audio-dump", "mic"}).code, 0);
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (property("init.svc.audiodumpinfo") != "running")
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    const std::string dead = half + std::to_string(killed.pid()) + "-1",
                      living = half + std::to_string(getpid()) + "-99";
    for (const std::string& name : {dead, living, run + "reports/.new"}) file(name, "ha");
    phone().services().add("other", [] { return 0; });
    phone().faults().hang("other");
    EXPECT_TRUE(setProperty("ctl.start", "other"));
    killed.signal(SIGKILL);
    EXPECT_EQ(killed.wait(), -SIGKILL);

    const ReadyProgram host(hostCommand());
    EXPECT_EQ(property("init.svc.audiodumpinfo"), "stopped");
    EXPECT_EQ(property("init.svc.other"), "running");
    EXPECT_FALSE(exists(dead) || exists(run + "reports/.new"));
    EXPECT_TRUE(exists(living));
    EXPECT_EQ(pelto({"audio-dump", "mic"}).code, 0);
    EXPECT_EQ(
        pelto({"logcat", "-s", "audiodumpinfo", "--until", "^wrote ", "--timeout", "40"}).code, 0);
}

TEST_F(ClientTest, TheServiceEndsWithThePhonesFolder) {
    const std::string data = phone().fsDir() + "/data", folder = data + "/above/phone";
    const std::function<void()> removals[] = {
        [&] { std::filesystem::remove_all(folder); },
        [&] { std::filesystem::rename(folder, data + "/moved"); },
        [&] { std::filesystem::rename(data + "/above", data + "/moved_above"); },
    };
    for (const auto& remove : removals) {
        ASSERT_EQ(pelto({"phone", "start", "--no-service", "--phone", folder}).code, 0);
        ReadyProgram host(hostCommand({}, "/fs/data/above/phone"));
        Program log(command({"logcat", "--phone", folder}));
        EXPECT_EQ(log.line(), "--------- beginning of main");
        remove();
        EXPECT_EQ(host.wait(), 3);
        EXPECT_EQ(log.wait(), 1) << "what follows it, too";
        EXPECT_EQ(host.errors(),
                  "peltoserviced: " + folder + ": the phone's folder was deleted or moved\n");
    }
}

TEST_F(ClientTest, MakesAPhoneInANewFolderAlone) {
    const std::string folder = phone().folder() + "/fs/data/other";
    EXPECT_EQ(pelto({"phone", "start", "--no-service", "--phone", folder}).code, 0);
    EXPECT_TRUE(exists("/data/other/fs/data/tombstones"));
    refuses({"phone", "start", "--phone", phone().folder() + "/fs/data"}, 1, "neither empty nor");
    refuses({"getprop", "--phone", folder + "/none"}, 3, "pelto phone start");
}

TEST_F(ClientTest, WatchesWhatIsSent) {
    ReadyProgram host(hostCommand());
    ReadyProgram plain(watchCommand());
    ReadyProgram json(watchCommand({"--json", "--count", "4"}));
    EXPECT_EQ(pelto({"send", "kind", "a\nb\\\xff"}).code, 0);
    const std::string input = phone().folder() + "/input";
    std::ofstream(input) << "# comment\n # one\n\tfirst key:1,text:with blanks\n\n \t\nsecond";
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
    EXPECT_THAT(run(command({"send", "--stdin"}), input).errors, HasSubstr("line 1: too big"));
    std::ofstream(input) << std::string("a\0b\nafter\n", 10);
    EXPECT_THAT(run(command({"send", "--stdin"}), input).errors, HasSubstr("line 1: holds a NUL"));
    const std::string longest(1018, 'x');  // with "kind" and "$" 1023 bytes
    EXPECT_EQ(pelto({"send", "kind", longest, "--strict"}).errors, "");
    const Result longer = pelto({"send", "kind", longest + "x"});
    EXPECT_TRUE(longer.code == 0 && plain.line() == "kind " + longest);
    EXPECT_THAT(longer.errors, MatchesRegex("pelto: send: [^\n]* 1024 bytes [^\n]* 1023\n"));
    EXPECT_EQ(plain.line(), "kind " + longest + "x");
    refuses({"send", "kind", longest + "x", "--strict"}, 1, "not sent");
    std::ofstream(input) << "#\n" << std::string(1u << 20, 'x') << "\nafter\n";
    EXPECT_THAT(run(command({"send", "--stdin"}), input).errors, HasSubstr("line 2: too long"));
    Program ended(command({"watch", "--timeout", "2"}));  // with the time to register
    refuses({"watch", "--timeout", "2", "--count", "1"}, 5, "0 of 1");
    EXPECT_EQ(ended.wait(), 0) << ended.errors();
    Words inOrder{"sh", "-c", "\"$@\" watch --background --count 1 && \"$@\" send b", "sh"};
    for (const std::string& word : command({})) inOrder.push_back(word);
    EXPECT_EQ(run(inOrder).output, "b \n");
    EXPECT_EQ(plain.line(), "b ");
    host.signal(SIGTERM);
    EXPECT_EQ(plain.wait(), 4);
    EXPECT_EQ(plain.output(), "");
    EXPECT_THAT(plain.errors(), HasSubstr("the service has ended"));
}

TEST_F(ClientTest, SaysHowManyEventsAWatcherHasLost) {
    ReadyProgram host(hostCommand());
    ReadyProgram plain(watchCommand()), json(watchCommand({"--json"}));
    const std::string input = phone().folder() + "/input";
    constexpr int kEvents = 4000;
    for (std::ofstream file(input); file.tellp() < kEvents * 1002;)
        file << "kind " << std::string(996, 'x') << '\n';
    for (ReadyProgram* watcher : {&plain, &json}) watcher->signal(SIGSTOP);
    EXPECT_EQ(run(command({"send", "--stdin"}), input).code, 0);
    for (ReadyProgram* watcher : {&plain, &json}) watcher->signal(SIGCONT);
    EXPECT_EQ(pelto({"send", "last"}).code, 0);
    int events = 0, lost = 0, more = 0;
    for (std::string line; (line = plain.line()) != "last ";) {
        if (sscanf(line.c_str(), "%d events lost", &more) == 1) {
            lost += more;
        } else {
            ++events;
        }
    }
    EXPECT_GT(lost, 0);
    EXPECT_EQ(kEvents, events + lost);
    for (lost = 0; lost == 0;) lost = nlohmann::json::parse(json.line()).value("lost", 0);
    EXPECT_THAT(pelto({"logcat", "-d", "Binder:W", "*:S"}).output,
                MatchesRegex("[^\n]*\n([^\n]* (does not read|reads again)[^\n]*\n)+"));
}

TEST_F(ClientTest, ReadsAndSetsProperties) {
    EXPECT_EQ(pelto({"setprop", "ro.one", "a\nb"}).code, 0);
    EXPECT_EQ(pelto({"setprop", "two", ""}).code, 0);
    EXPECT_EQ(pelto({"getprop", "ro.one"}).output, "a\\nb\n");
    EXPECT_EQ(pelto({"getprop", "three"}).output, "\n");
    EXPECT_EQ(pelto({"getprop"}).output, "[ro.one]: [a\\nb]\n[two]: []\n");
    refuses({"setprop", "ro.one", "c"}, 1, "'ro.one'");
}

TEST_F(ClientTest, ShowsAndFollowsTheLog) {
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

TEST_F(ClientTest, ListsArchivesByTheirNames) {
    const std::string time = "2024-03-05_14-07-09", at = "@_" + time + ".tar.gz";
    // In the order of their paths.
    const std::pair<std::string, std::string> archives[] = {
        {".tar.gz", "other 5 bytes"},
        {"directory.tar.gz/y.tar.gz", "other 5 bytes y"},
        {"gpudump@5a1f@V12.1" + at, "gpu " + time + " 5 bytes 5a1f version V12.1"},
        {"gpudump@@0@_2024.tar.gz", "other 5 bytes gpudump@@0@_2024"},
        {"gpudump@a@b@0" + at, "gpu " + time + " 5 bytes a@b version 0"},
        {"mic@" + time + ".tar.gz", "capture " + time + " 5 bytes mic"},
        {"x.tar.gz", "other 5 bytes x"},
    };
    std::string expected;
    for (const auto& [name, facts] : archives) {
        file("/data/a/" + name, "12345");
        expected += facts + " /data/a/" + name + "\n";
    }
    file("/data/a/x.tar.gz.bak", "");
    std::filesystem::create_symlink("/etc", phone().fsDir() + "/data/a/link");
    std::filesystem::create_symlink("/etc/passwd", phone().fsDir() + "/data/a/l.tar.gz");
    const std::string listed = pelto({"archives", "list", "/data/a"}).output;
    EXPECT_EQ(std::regex_replace(listed, std::regex("  +"), " "), expected);
    EXPECT_EQ(pelto({"archives", "list", "--json", "/data/a/directory.tar.gz"}).output,
              R"({"path":"/data/a/directory.tar.gz/y.tar.gz","kind":"other","name":"y",)"
              R"("version":"","time":"","bytes":5})"
              "\n");
}

}  // namespace
