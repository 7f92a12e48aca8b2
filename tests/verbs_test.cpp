// The client's verbs against the service in a process of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "sim/gpu.h"
#include "tests/service_test.h"

using namespace android;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

class VerbsTest : public ServiceTest {
  protected:
    void SetUp() override {
        ServiceTest::SetUp();
        mHost.emplace(hostCommand());
        ASSERT_TRUE(mHost->awaitReady());
        watcher = record();
    }
    void TearDown() override {
        mHost.reset();
        ServiceTest::TearDown();
    }

    void does(const Words& words) {
        const Result result = pelto(words);
        EXPECT_EQ(result.code, 0) << result.errors;
    }
    nlohmann::json json(const Words& words) {
        const std::string text = pelto(words).output;
        return nlohmann::json::parse(text.substr(0, text.find('\n')));
    }
    // Until the service's processes have logged it.
    bool hostLogs(const std::string& tag, const std::string& expression) {
        return pelto({"logcat", "-s", tag, "--until", expression, "--timeout", "30"}).code == 0;
    }
    // What the watcher was told under that type, with all that was sent before.
    std::vector<std::string> told(const std::string& type) {
        const std::string last = "last" + std::to_string(mLast++);
        does({"send", last});
        EXPECT_TRUE(watcher->await(last));
        return watcher->infos(type);
    }

    sp<Recorder> watcher;

  private:
    std::optional<Program> mHost;
    int mLast = 0;
};

TEST_F(VerbsTest, refuseWhatCannotBe) {
    const struct {
        Words words;
        int code;
        std::string why;
    } cases[] = {
        {{"capture"}, 2, "ID is required"},
        {{"capture", "a,b"}, 2, "neither ','"},
        {{"capture", "A0345", "--name", ""}, 2, "--name"},
        {{"capture", "A0345", "--dir", "/data/$x"}, 2, "--dir"},
        {{"capture", "A0345", "--logs", "android,paint"}, 2, "paint"},
        {{"capture", "A0345", "--name", std::string(1000, 'x')}, 2, "too long"},
        {{"audio-dump", std::string(1000, 'x')}, 2, "too long"},
        {{"reports", "--count", "1"}, 2, "--follow"},
        {{"reports", "--follow", "--count", "1", "--timeout", "0.01"}, 5, "0 of 1"},
        {{"stutter", "HwuiDetect", "many"}, 2, "GAP"},
        {{"sf-state", "perhaps"}, 2, "perhaps"},
        {{"top-activity", "soon"}, 2, "MS"},
        {{"kernel", "audio", "x", "1"}, 1, "'x' is not a 32-bit number"},
        {{"kernel", "display", "7", std::string(70000, 'x')}, 1, "too long"},
        {{"kernel", "paint"}, 2, "paint"},
        {{"gpu", "fault", "--size", "67108865"}, 1, "no size"},
        {{"gpu", "fault", "--hash", std::string(4097, 'x')}, 1, "--hash is too long"},
        {{"clock", "advance", "--", "-1"}, 1, "'-1' is no number"},
        {{"clock", "advance", "1e9"}, 1, "'1e9' is no number"},
        {{"clock", "advance", "nan"}, 1, "'nan' is no number"},
        {{"control", "paint"}, 1, "no command 'paint'"},
        {{"control", "fault", "disk"}, 1, "disk full|free"},
    };
    for (const auto& wrong : cases) refuses(wrong.words, wrong.code, wrong.why);
}

TEST_F(VerbsTest, reportTheStateOfTheDisplay) {
    does({"stutter", "HwuiDetect", "40"});
    does({"sf-state", "on"});
    does({"stutter", "HwuiDetect", "41"});
    does({"stutter", "Other", "--", "-1"});
    does({"sf-state", "off"});
    does({"stutter", "HwuiDetect", "42"});
    EXPECT_THAT(told("pelto_event_video_stutter_ext"),
                ElementsAre("detectName#HwuiDetect#frameGap#40", "detectName#Other#frameGap#-1",
                            "detectName#HwuiDetect#frameGap#42"));
    EXPECT_TRUE(hostLogs("PeltoService", "notifyVideoStutter return, not report frameGap:41$"));

    const std::string update = "pelto_event_video_update_top_activity";
    does({"top-activity", "600000"});
    does({"top-activity", "600000"});
    EXPECT_EQ(told(update).size(), 1u);
    does({"clock", "advance", "600.5"});
    does({"top-activity", "600000"});
    EXPECT_EQ(told(update).size(), 2u);
}

TEST_F(VerbsTest, reportWhatTheKernelDoes) {
    does({"kernel", "audio", "0", "1"});
    does({"kernel", "audio", "1", "257"});
    does({"kernel", "display", "7", "fps@@30$$NULL$$scene@@game"});
    EXPECT_TRUE(watcher->await("event_audio_mic_state"));
    EXPECT_TRUE(watcher->await("event_audio_mic_status"));
    EXPECT_TRUE(watcher->await("pelto_event_peltoserver_feedback"));
    EXPECT_THAT(watcher->infos("event_audio_mic_status"), ElementsAre("status:1"));
    EXPECT_TRUE(hostLogs("PeltoService", "^notifySurfaceFlinger transact ret=0$"));
    EXPECT_EQ(pelto({"compositor"}).output, "7 MM_FB_EventID#7#fps#30#scene#game\n");
}

TEST_F(VerbsTest, aCaptureBecomesAReportWithTombstones) {
    Program follower(command({"reports", "--follow", "--json", "--count", "2"}));
    EXPECT_EQ(pelto({"crash", "audioserver", "stuck"}).output, "/data/tombstones/tombstone_00\n");
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
    EXPECT_TRUE(hostLogs("KelvoPeltoLogWriter", "error, WexRaiseException failed"));
    does({"control", "fault", "reports", "take"});
    does({"capture", "B2001", "--logs", "pcm"});
    EXPECT_EQ(nlohmann::json::parse(follower.line())["logs"], uint64_t{1} << 37);
    EXPECT_EQ(follower.wait(), 0) << follower.errors();
    EXPECT_THAT(pelto({"reports"}).output, HasSubstr("id 0x10032001  capture  pcm dump"));
}

TEST_F(VerbsTest, dumpAudioAndTheKernelsLog) {
    does({"audio-dump", "mic,all"});
    ASSERT_TRUE(hostLogs("audiodumpinfo", "^wrote "));
    const std::string dumps = "/data/persist_log/TMP/audio_dumpsys";
    EXPECT_THAT(contents(dumps + "/" + names(dumps)[0]), HasSubstr("dump type: mic,all\n"));

    does({"kernel", "log", "mic stuck"});
    ASSERT_TRUE(hostLogs("KelvoDmesgThread", "going to sleep"));
    does({"dump-dmesg"});
    ASSERT_TRUE(hostLogs("KelvoDmesgThread", ": dmesg -c > .*, err=0"));
    EXPECT_THAT(contents("/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt"), EndsWith("stuck\n"));
}

TEST_F(VerbsTest, aGpuFaultBecomesAnArchive) {
    constexpr size_t kSize = 9000;
    does({"gpu", "await"});
    does({"gpu", "fault", "--hash", "5a1f0c", "--size", std::to_string(kSize)});
    does({"clock", "advance", "20", "--sleepers", "1"});
    does({"gpu", "await"});
    const auto archive = json({"archives", "list", "--json"});
    EXPECT_EQ(archive["kind"], "gpu");
    EXPECT_EQ(archive["name"], "5a1f0c");
    const std::string path = archive["path"];
    EXPECT_EQ(json({"archives", "show", "--json", path})["members"].size(), 5u);
    EXPECT_EQ(pelto({"archives", "cat", path, ".snap"}).output, sim::Gpu::snapshotOf(kSize));
    EXPECT_THAT(told("pelto_event_peltoserver_feedback"), ElementsAre("EventID,410,Reason,5a1f0c"));

    const std::string before = pelto({"archives", "list"}).output;
    does({"gpu", "fault", "--control", "1"});
    does({"gpu", "await"});
    EXPECT_EQ(pelto({"archives", "list"}).output, before);
    const auto statistic = json({"stats", "--json"});
    EXPECT_EQ(statistic["code"], 101286);
    EXPECT_EQ(statistic["source"], "gpuMinidump");
    EXPECT_THAT(pelto({"stats"}).output, HasSubstr("101286 134600 gpuGrivoEvents "));
}

using VerbsWithoutServiceTest = ServiceTest;

TEST_F(VerbsWithoutServiceTest, sayThatItIsMissing) {
    for (const Words& words : {Words{"capture", "A0345"},
                               {"audio-dump", "x"},
                               {"dump-dmesg"},
                               {"stutter", "x", "1"},
                               {"sf-state", "on"},
                               {"top-activity", "1"},
                               {"kernel", "audio", "0", "1"},
                               {"kernel", "display", "1", "x"},
                               {"compositor"},
                               {"gpu", "fault"},
                               {"gpu", "await"},
                               {"clock", "advance", "1"},
                               {"control", "fault"}}) {
        refuses(words, 4, "pelto phone start");
    }
    EXPECT_EQ(pelto({"reports"}).code, 0);
    EXPECT_EQ(pelto({"stats"}).code, 0);
}

}  // namespace
