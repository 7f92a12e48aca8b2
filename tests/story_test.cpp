// A phone from start to stop, driven by the client program: start-up, every kind of input with its
// effects, and a stop that leaves nothing behind.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "tests/support/service_fixture.h"

using namespace testing;

namespace fs = std::filesystem;

namespace {

class StoryTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        // Makes this process the parent of orphans; false under the emulator.
        mAdopts = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
        const Result started = phoneStart();
        ASSERT_EQ(started.code, 0) << started.errors;
        EXPECT_EQ(pelto({"phone", "start"}).output, started.output);  // already running
        const auto status = nlohmann::json::parse(does({"phone", "status", "--json"}));
        EXPECT_EQ(status["folder"], phone().folder());
        EXPECT_GT(status["log_bytes"], 0);
        EXPECT_GE(status["service"]["uptime_s"], 0);
        mPid = status["service"]["pid"];
        EXPECT_THAT(started.output, EndsWith("process " + std::to_string(mPid) + "\n"));
    }

    // Runs the client, and checks that the watcher receives these events next. Returns its output.
    std::string does(const Words& words, const Words& watched = {}) {
        const Result result = pelto(words);
        EXPECT_EQ(result.code, 0) << words[0] << ": " << result.errors;
        for (const std::string& event : watched) EXPECT_EQ(mWatcher->line(), event);
        return result.output;
    }
    // Waits until the phone's log has a message that matches.
    void logs(const std::string& tag, const std::string& expression) {
        does({"logcat", "-s", tag, "--until", expression, "--timeout", "40"});
    }
    // The log lines of the service's main thread.
    std::string mainThreadsLog() {
        const std::string id = " +" + std::to_string(mPid), log = does({"logcat", "-d"});
        const std::regex line(id + id + " ([^\n]+\n)");
        std::string found;
        for (std::sregex_iterator next(log.begin(), log.end(), line), end; next != end; ++next)
            found += (*next)[1];
        return found;
    }

    void raisesReports() {
        Program follower(command({"reports", "--follow", "--json", "--count", "3"}));
        EXPECT_EQ(does({"crash", "audioserver", "stuck"}), "/data/tombstones/tombstone_00\n");
        does({"capture", "A0345", "--logs", "android,tombstones", "--name", "mic"});
        auto first = nlohmann::json::parse(follower.line());
        first.erase("time_s");
        // The id is 0x10006345.
        EXPECT_EQ(first.dump(), R"({"id":268460869,"log_names":["android log"],"logs":32,)"
                                R"("name":"mic","number":1})");
        EXPECT_EQ(contents("/data/persist_log/wex/exception_log/tombstone_00"),
                  contents("/data/tombstones/tombstone_00"));

        does({"control", "fault", "reports", "refuse"});
        refuses({"capture", "A0345", "--wait", "--timeout", "0.1"}, 5, "no report came in time");
        logs("KelvoPeltoLogWriter", "error, WexRaiseException failed");
        does({"control", "fault", "reports", "take"});
        EXPECT_THAT(does({"capture", "FFFFFFFF0", "--wait"}), HasSubstr(" id 0x00000000  capture"));
        does({"capture", "B2001", "--logs", "pcm"});
        follower.line();
        EXPECT_EQ(nlohmann::json::parse(follower.line())["logs"], uint64_t{1} << 37);
        EXPECT_EQ(follower.wait(), 0) << follower.errors();
    }

    void stopsAndLeavesNothingBehind() {
        EXPECT_EQ(does({"phone", "stop"}),
                  "peltoservice stopped, process " + std::to_string(mPid) + "\n");
        EXPECT_EQ(mWatcher->line(), "");
        EXPECT_EQ(mWatcher->wait(), 4);
        EXPECT_THAT(mainThreadsLog(), EndsWith("peltoserviced: stopped\n"));
        const Result status = pelto({"phone", "status", "--json"});
        EXPECT_EQ(status.code, 4);
        EXPECT_EQ(nlohmann::json::parse(status.output)["service"]["published"], false);
        EXPECT_EQ(does({"phone", "stop"}), "no process of the phone ran\n");

        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), mAdopts ? mPid : -1);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process still runs";
        for (const auto& entry : fs::recursive_directory_iterator(phone().folder()))
            EXPECT_TRUE(entry.is_regular_file() || entry.is_directory()) << entry.path();
        EXPECT_FALSE(fs::exists(phone().runDir() + "/daemons/peltoserviced"));
        EXPECT_EQ(fs::file_size(phone().runDir() + "/peltoserviced.log"), 0u);
    }

    bool mAdopts = false;
    pid_t mPid = 0;  // of the service
    std::unique_ptr<Program> mWatcher;
};

TEST_F(StoryTest, StartsInOrderAndStopsCleanly) {
    EXPECT_EQ(mainThreadsLog(), R"(D KelvoPeltoLogWriter: KelvoPeltoLogWriter()
D PeltoEventDisptch: registerEventListener mEventListeners size 1
D PeltoEventDisptch: registerEventListener mEventListeners size 2
D KelvoAudioKernelNativeCom: audio kernel native genetlink module:knl_nt_com
D KelvoGpuMinidump: KelvoGpuMinidump::KelvoGpuMinidump
D KelvoGpuMinidump: init 1
D KelvoDmesgThread: KelvoDmesgThread: createLogThread()
D KelvoDmesgThread: KelvoDmesgThread onFirstRef
D PeltoEventDisptch: registerEventListener mEventListeners size 3
D PeltoService: PeltoService
D peltoserviced: peltoservice published, 16 threads
)");
    raisesReports();

    mWatcher = std::make_unique<ReadyProgram>(watchCommand());
    const std::string stutter = "pelto_event_video_stutter_ext detectName#";
    does({"stutter", "HwuiDetect", "40"}, {stutter + "HwuiDetect#frameGap#40"});
    does({"sf-state", "on"});
    does({"stutter", "HwuiDetect", "41"});
    does({"stutter", "CodecDetect", "--", "-1"}, {stutter + "CodecDetect#frameGap#-1"});
    does({"sf-state", "off"});
    does({"stutter", "HwuiDetect", "42"}, {stutter + "HwuiDetect#frameGap#42"});

    const std::string update = "pelto_event_video_update_top_activity ";
    does({"top-activity", "600000"}, {update});
    does({"top-activity", "600000"});
    does({"clock", "advance", "600.5"});
    does({"top-activity", "600000"}, {update});

    const std::string test = "pelto_event_for_test_";
    const std::string asks = "value0:2,value1:3,string0:event_to_native";
    does({"send", test + "to_native", asks},
         {test + "to_native " + asks,
          test + "from_native value0:4,value1:5,string0:evetn_frome_native,"
                 "string1:evetn_frome_native"});
    does({"audio-dump", "mic,all"}, {"pelto_event_multimedia_audio_dumpsys mic,all"});
    logs("audiodumpinfo", "^wrote ");
    does({"kernel", "log", "mic stuck"});
    logs("KelvoDmesgThread", "going to sleep");
    does({"dump-dmesg"}, {"event_audio_detect_dump_log "});
    logs("KelvoDmesgThread", ": dmesg -c > .*, err=0");
    EXPECT_THAT(contents("/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt"), EndsWith("stuck\n"));

    does({"kernel", "audio", "0", "1"}, {"event_audio_mic_state state:1"});
    does({"kernel", "audio", "1", "257"}, {"event_audio_mic_status status:1"});
    const std::string feedback = "pelto_event_peltoserver_feedback ";
    const std::string item = "MM_FB_EventID#7#fps#30#scene#game";
    does({"kernel", "display", "7", "fps@@30$$NULL$$scene@@game"}, {feedback + item});
    logs("PeltoService", "^notifySurfaceFlinger transact ret=0$");
    EXPECT_EQ(does({"compositor"}), "7 " + item + "\n");

    does({"gpu", "await"});
    does({"gpu", "fault", "--hash", "5a1f0c", "--size", "9000"},
         {feedback + "EventID,410,Reason,5a1f0c"});
    does({"clock", "advance", "20", "--sleepers", "1"});
    does({"gpu", "await"});
    EXPECT_THAT(does({"archives", "list"}), ContainsRegex("^gpu  .* bytes  5a1f0c  version 0  "));
    EXPECT_THAT(does({"stats"}), StartsWith("101286 134600 gpuGrivoEvents "));
    EXPECT_THAT(does({"stats", "--json"}), ContainsRegex("^\\{\"code\":101286,.*\"gpuMinidump\"}"));
    does({"gpu", "fault", "--hash", "late", "--control", "1"});
    does({"clock", "advance", "1", "--sleepers", "1"});
    does({"send", "so_far"}, {"so_far "});
    does({"gpu", "control", "0"});
    does({"clock", "advance", "1", "--sleepers", "1"}, {feedback + "EventID,410,Reason,late"});
    stopsAndLeavesNothingBehind();
}

}  // namespace
