// One run of a phone from start to stop, driven by the client program: start-up, every kind of
// input with its effects, and a stop that leaves nothing behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "sim/kernel/gpu.h"
#include "tests/support/service_fixture.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;

namespace fs = std::filesystem;

namespace {

class StoryTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        // Makes this process the parent of orphans; the emulator does not support it.
        mAdopts = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
        EXPECT_TRUE(mAdopts || !emulator().empty());
        ASSERT_TRUE(fs::create_directory(mTemporary));
        setenv("TMPDIR", mTemporary.c_str(), 1);
    }

    void does(const Words& words) {
        const Result result = pelto(words);
        EXPECT_EQ(result.code, 0) << words[0] << ": " << result.errors;
    }
    nlohmann::json json(const Words& words) {
        const std::string text = pelto(words).output;
        return nlohmann::json::parse(text.substr(0, text.find('\n')));
    }
    // Waits until the phone's log has a message that matches.
    void logs(const std::string& tag, const std::string& expression) {
        does({"logcat", "-s", tag, "--until", expression, "--timeout", "40"});
    }
    // The lines that the watcher received before `last`.
    std::vector<std::string> watchedUpTo(const std::string& last) {
        std::vector<std::string> lines;
        for (std::string line = mWatcher->line(); line != last; line = mWatcher->line()) {
            lines.push_back(line);
            if (line.empty()) break;
        }
        return lines;
    }
    std::vector<std::string> watchedSoFar() {
        does({"send", "so_far"});
        return watchedUpTo("so_far ");
    }
    // The log lines of the service's main thread, each "TAG: MESSAGE".
    std::vector<std::string> mainThreadsLog() {
        std::vector<std::string> found;
        std::istringstream lines(pelto({"logcat", "-d"}).output);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string date, time, priority, message;
            int pid = 0, tid = 0;
            fields >> date >> time >> pid >> tid >> priority >> std::ws;
            std::getline(fields, message);
            if (pid == mPid && tid == mPid) found.push_back(message);
        }
        return found;
    }

    void starts() {
        EXPECT_EQ(json({"phone", "status", "--json"})["service"]["published"], false);
        const Result started = phoneStart();
        ASSERT_EQ(started.code, 0) << started.errors;
        const auto status = json({"phone", "status", "--json"});
        EXPECT_EQ(status["folder"], phone().folder());
        EXPECT_EQ(status["properties"], 0);
        EXPECT_GT(status["log_bytes"], 0);
        EXPECT_GE(status["service"]["uptime_s"], 0);
        mPid = status["service"]["pid"];
        EXPECT_THAT(started.output, EndsWith("process " + std::to_string(mPid) + "\n"));
        EXPECT_EQ(phoneStart().output, started.output);  // already running
    }

    void hasStartedInOrder() {
        EXPECT_THAT(
            mainThreadsLog(),
            ElementsAre(
                "KelvoPeltoLogWriter: KelvoPeltoLogWriter()",
                "PeltoEventDisptch: registerEventListener mEventListeners size 1",
                "PeltoEventDisptch: registerEventListener mEventListeners size 2",
                "KelvoAudioKernelNativeCom: audio kernel native genetlink module:knl_nt_com",
                "KelvoGpuMinidump: KelvoGpuMinidump::KelvoGpuMinidump", "KelvoGpuMinidump: init 1",
                "KelvoDmesgThread: KelvoDmesgThread: createLogThread()",
                "KelvoDmesgThread: KelvoDmesgThread onFirstRef",
                "PeltoEventDisptch: registerEventListener mEventListeners size 3",
                "PeltoService: PeltoService", "peltoserviced: peltoservice published, 16 threads"));
    }

    void hasItsThreads() {
        logs("KelvoDmesgThread", "going to sleep");  // logged by the thread that is ready last
        std::vector<std::string> names;
        for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(mPid) + "/task")) {
            std::getline(std::ifstream(task.path() / "comm"), names.emplace_back());
        }
        EXPECT_THAT(names, IsSupersetOf({"pelto_looper", "kelvo_fb_pelto", "kelvo_audio_mic",
                                         "KelvoGpuMinidum", "KelvoDmesgThrea"}));
    }

    void answersTestEvents() {
        mWatcher = std::make_unique<Program>(watchCommand());
        ASSERT_TRUE(mWatcher->awaitReady());
        does({"send", "pelto_event_for_test", "value0:7,value1:8,string0:hello,string1:phone"});
        logs("EventTest", "value0:7 value1:8 string0:hello string1:phone$");
        const std::string asks = "pelto_event_for_test_to_native",
                          info = "value0:2,value1:3,string0:";
        does({"send", asks, info + "event_to_native"});
        EXPECT_THAT(
            watchedUpTo("pelto_event_for_test_from_native value0:4,value1:5,"
                        "string0:evetn_frome_native,string1:evetn_frome_native"),
            ElementsAre(HasSubstr("pelto_event_for_test "), asks + " " + info + "event_to_native"));
    }

    void suppressesReports() {
        does({"stutter", "HwuiDetect", "40"});
        does({"sf-state", "on"});
        does({"stutter", "HwuiDetect", "41"});
        does({"stutter", "CodecDetect", "--", "-1"});
        does({"sf-state", "off"});
        does({"stutter", "HwuiDetect", "42"});
        const std::string start = "pelto_event_video_stutter_ext detectName#";
        EXPECT_THAT(watchedSoFar(),
                    ElementsAre(start + "HwuiDetect#frameGap#40", start + "CodecDetect#frameGap#-1",
                                start + "HwuiDetect#frameGap#42"));
        logs("PeltoService", "^notifyVideoStutter return, not report frameGap:41$");
    }

    void limitsTopActivity() {
        const std::string update = "pelto_event_video_update_top_activity ";
        does({"top-activity", "600000"});
        does({"top-activity", "600000"});
        EXPECT_THAT(watchedSoFar(), ElementsAre(update));
        does({"clock", "advance", "600.5"});
        does({"top-activity", "600000"});
        EXPECT_THAT(watchedSoFar(), ElementsAre(update));
    }

    void raisesReports() {
        Program follower(command({"reports", "--follow", "--json", "--count", "2"}));
        EXPECT_EQ(pelto({"crash", "audioserver", "stuck"}).output,
                  "/data/tombstones/tombstone_00\n");
        does({"capture", "A0345", "--logs", "android,tombstones", "--name", "mic"});
        const auto first = nlohmann::json::parse(follower.line());
        EXPECT_EQ(first["number"], 1);
        EXPECT_EQ(first["id"], 0x10006345);
        EXPECT_EQ(first["logs"], 0x20);
        EXPECT_THAT(first["log_names"], ElementsAre("android log"));
        EXPECT_EQ(first["name"], "mic");
        EXPECT_EQ(contents("/data/persist_log/wex/exception_log/tombstone_00"),
                  contents("/data/tombstones/tombstone_00"));

        does({"control", "fault", "reports", "refuse"});
        does({"capture", "A0345"});
        logs("KelvoPeltoLogWriter", "error, WexRaiseException failed");
        does({"control", "fault", "reports", "take"});
        does({"capture", "B2001", "--logs", "pcm"});
        EXPECT_EQ(nlohmann::json::parse(follower.line())["logs"], uint64_t{1} << 37);
        EXPECT_EQ(follower.wait(), 0) << follower.errors();
        EXPECT_THAT(pelto({"reports"}).output, HasSubstr("id 0x10032001  capture  pcm dump"));
    }

    void dumpsOnRequest() {
        does({"audio-dump", "mic,all"});
        logs("audiodumpinfo", "^wrote ");
        const std::string dumps = "/data/persist_log/TMP/audio_dumpsys";
        EXPECT_THAT(contents(dumps + "/" + names(dumps).at(0)), HasSubstr("dump type: mic,all\n"));
        does({"kernel", "log", "mic stuck"});
        does({"dump-dmesg"});
        logs("KelvoDmesgThread", ": dmesg -c > .*, err=0");
        EXPECT_THAT(contents("/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt"),
                    EndsWith("stuck\n"));
        watchedSoFar();
    }

    void hearsTheKernel() {
        does({"kernel", "audio", "0", "1"});
        EXPECT_THAT(watchedUpTo("event_audio_mic_state state:1"), IsEmpty());
        does({"kernel", "audio", "1", "257"});
        EXPECT_THAT(watchedUpTo("event_audio_mic_status status:1"), IsEmpty());
        const std::string feedback = "MM_FB_EventID#7#fps#30#scene#game";
        does({"kernel", "display", "7", "fps@@30$$NULL$$scene@@game"});
        EXPECT_THAT(watchedUpTo("pelto_event_peltoserver_feedback " + feedback), IsEmpty());
        logs("PeltoService", "^notifySurfaceFlinger transact ret=0$");
        EXPECT_EQ(pelto({"compositor"}).output, "7 " + feedback + "\n");
    }

    void archivesGpuFaults() {
        does({"gpu", "await"});
        does({"gpu", "fault", "--hash", "5a1f0c", "--size", "9000"});
        EXPECT_THAT(watchedUpTo("pelto_event_peltoserver_feedback EventID,410,Reason,5a1f0c"),
                    IsEmpty());
        does({"clock", "advance", "20", "--sleepers", "1"});
        does({"gpu", "await"});
        const auto archive = json({"archives", "list", "--json"});
        EXPECT_EQ(archive["kind"], "gpu");
        EXPECT_EQ(archive["name"], "5a1f0c");

        const std::string before = pelto({"archives", "list"}).output;
        does({"gpu", "fault", "--hash", "late", "--control", "1"});
        does({"clock", "advance", "1", "--sleepers", "1"});
        EXPECT_EQ(pelto({"archives", "list"}).output, before);
        does({"gpu", "control", "0"});
        does({"clock", "advance", "1", "--sleepers", "1"});
        EXPECT_THAT(watchedUpTo("pelto_event_peltoserver_feedback EventID,410,Reason,late"),
                    IsEmpty());
        const auto statistic = json({"stats", "--json"});
        EXPECT_EQ(statistic["code"], 101286);
        EXPECT_EQ(statistic["source"], "gpuMinidump");
        EXPECT_THAT(pelto({"stats"}).output, HasSubstr("101286 134600 gpuGrivoEvents "));
    }

    void stops() {
        EXPECT_EQ(pelto({"phone", "stop"}).output,
                  "peltoservice stopped, process " + std::to_string(mPid) + "\n");
        EXPECT_EQ(mWatcher->wait(), 4);
        EXPECT_EQ(mWatcher->output(), "");
        EXPECT_EQ(mainThreadsLog().back(), "peltoserviced: stopped");
        EXPECT_EQ(pelto({"phone", "status"}).code, 4);
        EXPECT_EQ(pelto({"phone", "stop"}).output, "no process of the phone ran\n");
    }

    void leavesNothingBehind() {
        int status = 0;
        EXPECT_EQ(waitpid(-1, &status, WNOHANG), mAdopts ? mPid : -1);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process still runs";
        EXPECT_TRUE(fs::remove(mTemporary)) << "something is in the temporary directory";
        for (const auto& entry : fs::recursive_directory_iterator(phone().folder())) {
            EXPECT_TRUE(entry.is_regular_file() || entry.is_directory()) << entry.path();
            if (entry.path().parent_path().filename() == "daemons") {
                EXPECT_EQ(entry.path().filename(), ".lock");
            }
        }
        EXPECT_EQ(fs::file_size(phone().runDir() + "/peltoserviced.log"), 0u);
    }

    bool mAdopts = false;
    pid_t mPid = 0;  // of the service
    std::unique_ptr<Program> mWatcher;
    const std::string mTemporary = testing::TempDir() + "pelto-story-" + std::to_string(getpid());
};

TEST_F(StoryTest, goesFromStartUpToACleanStop) {
    ASSERT_NO_FATAL_FAILURE(starts());
    hasStartedInOrder();
    hasItsThreads();
    answersTestEvents();
    suppressesReports();
    limitsTopActivity();
    raisesReports();
    dumpsOnRequest();
    hearsTheKernel();
    archivesGpuFaults();
    stops();
    leavesNothingBehind();
}

}  // namespace
