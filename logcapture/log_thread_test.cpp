#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/testing/capture_test.h"

namespace android {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

constexpr char kTag[] = "KelvoPeltoLogThread";

class LogThreadTest : public CaptureTest {
  protected:
    LogThreadTest() : CaptureTest(kTag) {}
    void SetUp() override {
        PhoneTest::SetUp();
        setenv("TZ", "XYZ-5:30", 1);
        holdClock(1709647629s);
    }
    // Runs the three steps on this thread; returns their command lines.
    std::string capture(const std::string& info) {
        make<KelvoPeltoLogThread>(info)->threadLoop();
        return ran();
    }
    // Replaces each "%" by the time stamp.
    static std::string timed(std::string text) {
        while (text.find('%') != text.npos) text.replace(text.find('%'), 1, "2024-03-05_19-37-09");
        return text;
    }
    fs::perms modeOf(const std::string& path) {
        return fs::status(phone().fsDir() + path).permissions();
    }
};

TEST_F(LogThreadTest, LeavesADatedArchiveAndNothingElse) {
    const auto worker = [&](const char* types) {
        return make<KelvoPeltoLogThread>("E1,"s + types + ",/data/x/E1/,/data/arch/,name,ignored");
    };
    thread_control::hold("capture");
    ASSERT_EQ(OK, worker("127")->start("capture", 0, 0));
    // Its owner drops it before it begins, so it runs once.
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
    EXPECT_EQ(fs::perms::all, modeOf(timed("/data/arch/name@%.tar.gz")));
    EXPECT_THAT(names("/data/x"), testing::IsEmpty());
    EXPECT_EQ(0, count(said(), "Unknown log type!"));

    const auto thread = worker("0");
    ASSERT_EQ(OK, thread->start("capture", 0, 0));
    EXPECT_TRUE(waitLogged("E KelvoPeltoLogThread: Unknown log type!", 14)) << "until it is quit";
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(LogThreadTest, TakesEachClearBitOfTheLogTypeForUnknown) {
    std::string results;
    for (const std::string type : {"3", "0", "4", "96", "128", "-1", "9999999", "00000001"}) {
        const std::string run = capture("E1," + type + ",/data/x/E1/,/data/arch/,n");
        results += type + ": " + std::to_string(count(run, "/data/x/E1/20")) + "+" +
                   std::to_string(count(said(), "E Unknown log type!\n")) + ", ";
        EXPECT_THAT(run, EndsWith("rm -rf /data/x/E1/\n"));
    }
    EXPECT_EQ("3: 2+5, 0: 0+7, 4: 0+6, 96: 0+5, 128: 0+7, -1: 6+0, 9999999: 6+0, 00000001: 0+0, ",
              results)
        << "captures and lines of each type";
}

TEST_F(LogThreadTest, FindsTheArchivesParentByLengthAlone) {
    std::string firsts;
    for (const char* paths : {"E1,99999999,/E1/", "E1,99999999,/data/abcdef", "E1,99999999,E1/",
                              ",longer,,99999999,/x/,"}) {
        const std::string run = capture(paths + ",/t/,n"s);
        firsts += run.substr(0, run.find('\n') + 1);
    }
    EXPECT_EQ(timed("tar -czf /t/n@%.tar.gz -C  E1\ntar -czf /t/n@%.tar.gz -C /data/ab E1\n"
                    "rm -rf E1/\nrm -rf /x/\n"),
              firsts);
    said();
    EXPECT_EQ("rm -rf \n", capture(",E1,,1,,a/,,b/,"));
    EXPECT_EQ("E init, log info error!\nD ~KelvoPeltoLogThread()\n", said());
}

TEST_F(LogThreadTest, SkipsACommandWithAShellCharacter) {
    const int kRefused[] = {1, 0, 3, 2, 2};  // per field that holds the character
    for (const std::string& odd : {"|"s, "&"s, ";"s, "`"s, "$"s}) {
        for (size_t field = 0; field < 5; ++field) {
            SCOPED_TRACE(odd + std::to_string(field));
            std::string fields[] = {"E1", "1", "/data/p", "/data/t", "n"};
            fields[field] += odd;
            const std::string run = capture(fields[0] + "," + fields[1] + "," + fields[2] +
                                            "/E1/," + fields[3] + "/," + fields[4]);
            const std::string lines = said(), open = "chmod 0777 " + fields[field];
            EXPECT_EQ(kRefused[field], count(lines, "E isParamInvalid, invalid param!\n"));
            // Making directories has no guard: they exist, and the phone's shell refuses the
            // command.
            EXPECT_EQ(count(run, odd), count(run, open)) << run;
            EXPECT_EQ(field == 2 || field == 3, exists(fields[field]));
            EXPECT_EQ(exists(fields[field]), count(lines, "D cmds: " + open + ", 32256\n") == 1);
        }
    }
}

TEST_F(LogThreadTest, SkipsTheCaptureWithoutItsDirectories) {
    file("/data/file", "");
    for (const char* info : {"E1,1,/data/file/E1/,/t/,n", "E1,1,/data/p/,/data/file/E1/,n"}) {
        EXPECT_EQ(0, count(capture(info), "logcat"));
        EXPECT_THAT(
            said(),
            HasSubstr("D checkPath : log path(/data/file/E1/) not exist errno=20, create it!\n"
                      "E checkPath : create path /data/file/E1 fail errno=20\n"));
    }
    // Only components that end in "/" are made; a long path is cut.
    const std::string longPath = "/data/q/" + std::string(4096, 'l') + "/";
    for (const std::string& path : {"/data/q/last"s, "/data/q/nul\0/"s, ""s, "r/"s, longPath})
        EXPECT_TRUE(make<KelvoPeltoLogThread>("")->checkPath(String8(path)));
    EXPECT_THAT(said(), HasSubstr("log path(" + longPath.substr(0, 255) + ") not exist errno=2,"));
    EXPECT_THAT(names("/data/q"), testing::IsEmpty());
    EXPECT_TRUE(exists("/r"));
}

TEST_F(LogThreadTest, LogsAFailedCommandAndRunsTheOthers) {
    for (const char* program : {"logcat", "perfetto", "tar", "chmod", "rm"})
        phone().faults().fail(program, 1);
    phone().faults().fail("dmesg", sim::Shell::kNotFound);
    capture("E1,127,/data/x/E1/,/data/arch/,n");
    EXPECT_THAT(said(), EndsWith(timed(R"(D cmds: chmod 0777 /data/arch, 256
D cmds failed: logcat -v threadtime -d > /data/x/E1/%_android.txt, err=256
D cmds failed: dmesg > /data/x/E1/%_dmesg.txt, err=32512
D cmds failed: perfetto --config :test --out /data/x/E1/%_systrace.perfetto-trace, err=256
D cmds failed: tar -czf, mEventId=E1, err=256
D cmds failed: chmod, err=256
D cmds failed: rm -rf /data/x/E1/, err=256
D ~KelvoPeltoLogThread()
)")));
    EXPECT_EQ(fs::perms::owner_all, modeOf("/data/arch")) << "not opened to everybody";
}

TEST_F(LogThreadTest, WritesTheLocalTimeIntoAWholeBuffer) {
    for (const auto& [zone, time] :
         {std::pair("XYZ+3", "05_11-07-09"), std::pair("XYZ-9", "05_23-07-09")}) {
        setenv("TZ", zone, 1);
        EXPECT_THAT(capture("E1,9,/p/E1/,/t/,n"), HasSubstr("tar -czf /t/n@2024-03-"s + time));
    }
    char time[64] = "as before";
    const auto thread = make<KelvoPeltoLogThread>("");
    said();
    EXPECT_EQ(-1, thread->getCurrentTime(nullptr, 64));
    EXPECT_EQ(-1, thread->getCurrentTime(time, 63));
    EXPECT_STREQ("as before", time);
    holdClock(0s);
    EXPECT_EQ(-1, thread->getCurrentTime(time, 64));
    EXPECT_STREQ("", time);
    EXPECT_EQ("E Invalid time buffer\nE Invalid time buffer\nE Unable to get time\n", said());
    EXPECT_THAT(capture("E1,9,/p/E1/,/t/,n"), HasSubstr("tar -czf /t/n@.tar.gz -C /p E1\n"));
}

}  // namespace
}  // namespace android
