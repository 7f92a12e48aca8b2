#include <utils/ThreadControl.h>

#include <filesystem>

#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/testing/capture_test.h"
#include "sim/clock.h"
#include "sim/root.h"

namespace android {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kTag[] = "KelvoPeltoLogThread";

class LogThreadTest : public CaptureTest {
  protected:
    LogThreadTest() : CaptureTest(kTag) {}
    void SetUp() override {
        PhoneTest::SetUp();
        setenv("TZ", "XYZ-5:30", 1);
        holdClock();
        advance(std::chrono::seconds(1709647629) -
                std::chrono::nanoseconds(sim::Clock::get().wallNanos()));
    }
    // The three steps on this thread; the command lines they asked for.
    std::string capture(const std::string& info) {
        make<KelvoPeltoLogThread>(info)->threadLoop();
        return ran();
    }
    void start(const std::string& info) {
        ASSERT_EQ(OK, make<KelvoPeltoLogThread>(info)->start("capture", 0, 0));
    }
    // With the time stamp in the place of each "%".
    std::string timed(std::string text) {
        while (text.find('%') != text.npos) text.replace(text.find('%'), 1, "2024-03-05_19-37-09");
        return text;
    }
    // As the workstation's tar lists them, sorted.
    std::string members(const std::string& archive) {
        const std::string command = "tar tf '" + phone().fsDir() + archive +
                                    "' | LC_ALL=C sort > '" + phone().fsDir() + "/list'";
        EXPECT_EQ(0, system(command.c_str()));
        return contents("/list");
    }
};

TEST_F(LogThreadTest, OnePassLeavesADatedArchiveAndNothingElse) {
    const std::string archive = timed("/data/arch/name@%.tar.gz");
    thread_control::hold("capture");
    start("E1,127,/data/x/E1/,/data/arch/,name,ignored");
    // Its owner has let go before it begins, so it runs once.
    ASSERT_TRUE(thread_control::awaitHeld("capture"));
    said();
    thread_control::release("capture");
    ASSERT_TRUE(waitDestroyed(kTag));
    EXPECT_EQ(timed(R"(chmod 0777 /data/x
chmod 0777 /data/x/E1
chmod 0777 /data/arch
logcat -v threadtime -d > /data/x/E1/%_android.txt
dmesg > /data/x/E1/%_dmesg.txt
dumpsys media.audio_flinger > /data/x/E1/%_audioflinger.txt
dumpsys media.audio_policy > /data/x/E1/%_audiopolicy.txt
dumpsys audio > /data/x/E1/%_audio.txt
perfetto --config :test --out /data/x/E1/%_systrace.perfetto-trace
tar -czf /data/arch/name@%.tar.gz -C /data/x E1
chmod 0777 /data/arch/name@%.tar.gz
rm -rf /data/x/E1/
)"),
              ran());
    EXPECT_EQ(timed("E1/\nE1/%_android.txt\nE1/%_audio.txt\nE1/%_audioflinger.txt\n"
                    "E1/%_audiopolicy.txt\nE1/%_dmesg.txt\nE1/%_systrace.perfetto-trace\n"),
              members(archive));
    EXPECT_EQ(fs::perms::all, fs::status(phone().fsDir() + archive).permissions());
    EXPECT_THAT(names("/data/x"), testing::IsEmpty());
    EXPECT_EQ(0, count(said(), "Unknown log type!"));
}

TEST_F(LogThreadTest, ThePassRepeatsUntilItsOwnerQuits) {
    const auto thread = make<KelvoPeltoLogThread>("E1,0,/data/x/E1/,/data/arch/,name");
    ASSERT_EQ(OK, thread->start("capture", 0, 0));
    EXPECT_TRUE(waitSaid(ANDROID_LOG_ERROR, "Unknown log type!", 14));
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
    EXPECT_EQ(1u, names("/data/arch").size());
}

TEST_F(LogThreadTest, EachClearBitOfTheLogTypeIsUnknown) {
    const struct {
        const char* type;
        int captures;
        int unknown;
    } kCases[] = {{"3", 2, 5},       {"0", 0, 7},  {"4", 0, 6},       {"96", 0, 5},
                  {"128", 0, 7},     {"-1", 6, 0}, {"none", 0, 7},    {"0x1", 0, 7},
                  {"0000001", 1, 6}, {" 2", 1, 6}, {"9999999", 6, 0}, {"00000001", 0, 0}};
    for (const auto& [type, captures, unknown] : kCases) {
        const std::string run = capture(std::string("E1,") + type + ",/data/x/E1/,/data/arch/,n");
        EXPECT_EQ(captures, count(run, "/data/x/E1/20")) << type;
        EXPECT_EQ(unknown, count(said(), "E Unknown log type!\n")) << type;
        EXPECT_THAT(run, EndsWith(timed("tar -czf /data/arch/n@%.tar.gz -C /data/x E1\n"
                                        "chmod 0777 /data/arch/n@%.tar.gz\nrm -rf /data/x/E1/\n")));
    }
}

TEST_F(LogThreadTest, TheArchivesParentIsFoundByLengthAlone) {
    const std::pair<const char*, const char*> kCases[] = {
        {"E1,99999999,/data/x/E1/", " -C /data/x E1\n"},
        {"E1,99999999,/E1/", " -C  E1\n"},
        {"E1,99999999,/data/abcdef", " -C /data/ab E1\n"},
        {"a,99999999,ab/", " -C  a\n"},
        {"E1,99999999,E1/", ""},
        {"longer,99999999,/x/", ""}};
    for (const auto& [info, parent] : kCases) {
        const std::string tar = timed("tar -czf /t/n@%.tar.gz") + parent;
        EXPECT_THAT(capture(std::string(info) + ",/t/,n"),
                    StartsWith(*parent != '\0' ? tar : "rm"));
    }
}

TEST_F(LogThreadTest, InformationThatIsTooShortLeavesAnEmptyDelete) {
    for (const char* info : {"", ",,,,,,", "E1", "E1,1,/data/x/E1/,/t/", ",E1,,1,,a/,,b/,"}) {
        EXPECT_EQ("rm -rf \n", capture(info)) << info;
        EXPECT_EQ("E init, log info error!\nD ~KelvoPeltoLogThread()\n", said()) << info;
    }
    EXPECT_THAT(capture(",E1,,99999999,/p/E1/,,/t/,n,"), EndsWith("rm -rf /p/E1/\n"));
}

TEST_F(LogThreadTest, ACommandWithAShellCharacterIsSkipped) {
    const int kRefused[] = {1, 0, 3, 2, 2};  // by the field that holds the character
    for (const char character : std::string("|&;`$")) {
        for (size_t field = 0; field < 5; ++field) {
            std::string fields[] = {"E1", "1", "/data/p", "/data/t", "n"};
            fields[field] += character;
            const std::string run = capture(fields[0] + "," + fields[1] + "," + fields[2] +
                                            "/E1/," + fields[3] + "/," + fields[4]);
            const std::string lines = said(), open = "chmod 0777 " + fields[field];
            EXPECT_EQ(kRefused[field], count(lines, "E isParamInvalid, invalid param!\n"));
            // Making directories knows no guard: they are there, and the phone's shell refuses.
            const bool directory = field == 2 || field == 3;
            EXPECT_EQ(count(run, {character}), count(run, open)) << run;
            EXPECT_EQ(directory, count(lines, "D cmds: " + open + ", 32256\n") == 1) << lines;
            EXPECT_EQ(directory, exists(fields[field])) << fields[field];
        }
    }
}

TEST_F(LogThreadTest, DirectoriesThatCannotBeMadeSkipTheCapture) {
    file("/data/file", "");
    EXPECT_EQ(timed("tar -czf /t/n@%.tar.gz -C /data/file E1\nchmod 0777 /t/n@%.tar.gz\n"
                    "rm -rf /data/file/E1/\n"),
              capture("E1,1,/data/file/E1/,/t/,n"));
    EXPECT_THAT(said(), HasSubstr("D checkPath : log path(/data/file/E1/) not exist errno=20, "
                                  "create it!\nE checkPath : create path /data/file/E1 fail "
                                  "errno=20\n"));
    phone().root().fillDisk(true);
    capture("E1,1,/data/new/E1/,/data/arch/,n");
    EXPECT_THAT(said(), HasSubstr("E checkPath : create path /data/new fail errno=28\n"));
    phone().root().fillDisk(false);

    // Only what a "/" ends is made, and a path is cut.
    const std::string longPath = "/data/q/" + std::string(4096, 'l') + "/";
    for (const std::string& path :
         {std::string("/data/q/last"), std::string(), std::string("r/"), longPath})
        EXPECT_TRUE(make<KelvoPeltoLogThread>("")->checkPath(String8(path)));
    EXPECT_THAT(said(), HasSubstr("log path(" + longPath.substr(0, 255) + ") not exist errno=2,"));
    EXPECT_THAT(names("/data/q"), testing::IsEmpty());
    EXPECT_TRUE(exists("/r"));
}

TEST_F(LogThreadTest, AFailedCommandIsALineAndTheOthersRun) {
    for (const char* program : {"logcat", "perfetto", "tar", "chmod", "rm"})
        phone().shell().fail(program, 1);
    phone().shell().fail("dmesg", sim::Shell::kNotFound);
    capture("E1,19,/data/x/E1/,/data/arch/,n");
    const std::string lines = said();
    for (const char* line :
         {"D cmds: chmod 0777 /data/x, 256\n",
          "D cmds failed: logcat -v threadtime -d > /data/x/E1/%_android.txt, err=256\n",
          "D cmds failed: dmesg > /data/x/E1/%_dmesg.txt, err=32512\n",
          "D cmds failed: perfetto --config :test --out /data/x/E1/%_systrace.perfetto-trace, "
          "err=256\n",
          "D cmds failed: tar -czf, mEventId=E1, err=256\nD cmds failed: chmod, err=256\n"
          "D cmds failed: rm -rf /data/x/E1/, err=256\n"}) {
        EXPECT_THAT(lines, HasSubstr(timed(line)));
    }
    for (const char* program : {"logcat", "tar", "rm"}) phone().shell().fail(program, 0);
    phone().root().fillDisk(true);
    capture("E1,1,/data/x/E1/,/data/arch/,n");
    EXPECT_EQ(2, count(said(), "D cmds failed: logcat") + !exists("/data/x/E1"));
}

TEST_F(LogThreadTest, OddCharactersHarmNothingElse) {
    file("/data/keep/file", "kept");
    for (const std::string& odd :
         {std::string("\n"), std::string(" "), std::string("'"), std::string("\""),
          std::string("/.."), std::string("/../../../.."), std::string(4096, 'l')}) {
        for (size_t field = 0; field < 5; ++field) {
            std::vector<std::string> fields{"E1", "1", "/data/x/E1/", "/data/arch/", "n"};
            fields[field] += odd;
            said();
            capture(fields[0] + "," + fields[1] + "," + fields[2] + "," + fields[3] + "," +
                    fields[4]);
            // Behind the mask anything is ignored; elsewhere a command line says what it met.
            if (odd.size() == 1) {
                EXPECT_EQ(field == 1 ? 0 : 1, count(said(), "cmds failed: ") > 0) << odd << field;
            }
            EXPECT_EQ("kept", contents("/data/keep/file"));
        }
    }
}

TEST_F(LogThreadTest, AHangingCommandHoldsItsThreadAlone) {
    phone().shell().hang("dmesg");
    start("E1,2,/data/x/E1/,/data/arch/,n");
    ASSERT_TRUE(phone().shell().waitHanging("dmesg"));
    EXPECT_THAT(capture("E2,1,/data/y/E2/,/data/arch/,m"), EndsWith("rm -rf /data/y/E2/\n"));
    phone().shell().release("dmesg");
    EXPECT_TRUE(waitDestroyed(kTag, 2));
    EXPECT_EQ(2u, names("/data/arch").size());
}

TEST_F(LogThreadTest, TheTimeNeedsItsWholeBufferAndAClock) {
    char time[64] = "as before";
    const auto thread = make<KelvoPeltoLogThread>("");
    said();
    EXPECT_EQ(-1, thread->getCurrentTime(nullptr, 64));
    EXPECT_EQ(-1, thread->getCurrentTime(time, 63));
    EXPECT_STREQ("as before", time);
    advance(-std::chrono::nanoseconds(sim::Clock::get().wallNanos()));
    EXPECT_EQ(-1, thread->getCurrentTime(time, 64));
    EXPECT_STREQ("", time);
    EXPECT_THAT(capture("E1,9,/p/E1/,/t/,n"), HasSubstr("tar -czf /t/n@.tar.gz -C /p E1\n"));
    const std::string lines = said();
    EXPECT_EQ(2, count(lines, "E Invalid time buffer\n"));
    EXPECT_EQ(2, count(lines, "E Unable to get time\n"));
}

}  // namespace
}  // namespace android
