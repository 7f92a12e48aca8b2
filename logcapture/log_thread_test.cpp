// Captures into dated archives, and their directories.
#include <gmock/gmock.h>
#include <utils/ThreadStartControl.h>

#include "logcapture/KelvoPeltoLogThread.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

constexpr char kTag[] = "KelvoPeltoLogThread";

class LogThreadTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        setenv("TZ", "XYZ-5:30", 1);
        holdClock(std::chrono::seconds(1709647629));
    }
    static sp<KelvoPeltoLogThread> make(const std::string& info) {
        return new KelvoPeltoLogThread(String8(info));
    }
    // Runs the three steps on this thread; returns their command lines.
    std::string capture(const std::string& info) {
        make(info)->threadLoop();
        return ran();
    }
    // Replaces each "%" by the time stamp.
    static std::string timed(std::string text) {
        while (text.find('%') != text.npos) text.replace(text.find('%'), 1, "2024-03-05_19-37-09");
        return text;
    }
};

TEST_F(LogThreadTest, LeavesADatedArchiveAndNothingElse) {
    thread_control::hold("capture");
    ASSERT_EQ(OK, make("E1,127,/data/x/E1/,/data/arch/,name,ignored")->start("capture", 0, 0));
    // Its owner has dropped it before it begins, so it runs once.
    thread_control::release("capture");
    ASSERT_TRUE(waitLogged("D KelvoPeltoLogThread: ~KelvoPeltoLogThread()"));
    EXPECT_THAT(ran(), testing::EndsWith(timed(R"(
tar -czf /data/arch/name@%.tar.gz -C /data/x E1
chmod 0777 /data/arch/name@%.tar.gz
rm -rf /data/x/E1/
)")));
    EXPECT_TRUE(exists(timed("/data/arch/name@%.tar.gz")));
    EXPECT_THAT(names("/data/x"), testing::IsEmpty());

    const auto thread = make("E1,0,/data/x/E1/,/data/arch/,name");
    ASSERT_EQ(OK, thread->start("capture", 0, 0));
    EXPECT_TRUE(waitLogged("E KelvoPeltoLogThread: Unknown log type!", 14)) << "until it is quit";
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(LogThreadTest, ReadsTypesAndPathsFromTheInformation) {
    std::string results;
    for (const std::string type : {"3", "0", "4", "96", "127", "128", "-1", "9999999"}) {
        const std::string run = capture("E1," + type + ",/data/x/E1/,/data/arch/,n");
        results += type + ": " + std::to_string(count(run, "/data/x/E1/20")) + "+" +
                   std::to_string(count(said(kTag), "E Unknown log type!\n")) + ", ";
    }
    EXPECT_EQ("3: 2+5, 0: 0+7, 4: 0+6, 96: 0+5, 127: 6+0, 128: 0+7, -1: 6+0, 9999999: 6+0, ",
              results)
        << "captures and clear bits of each type";

    // The archive's parent is found by length alone.
    std::string firsts;
    for (const char* start : {"E1,00000001,/E1/", "E1,99999999,/data/abcdef", "E1,99999999,E1/",
                              ",longer,,99999999,/x/,"}) {
        const std::string run = capture(start + ",/t/,n"s);
        firsts += run.substr(0, run.find('\n') + 1);
    }
    EXPECT_EQ(timed("tar -czf /t/n@%.tar.gz -C  E1\ntar -czf /t/n@%.tar.gz -C /data/ab E1\n"
                    "rm -rf E1/\nrm -rf /x/\n"),
              firsts);
    said(kTag);
    EXPECT_EQ("rm -rf \n", capture(",E1,,1,,a/,,b/,"));
    EXPECT_EQ("E init, log info error!\nD ~KelvoPeltoLogThread()\n", said(kTag));
}

TEST_F(LogThreadTest, SkipsCommandsWithAShellCharacter) {
    for (const std::string odd : {"|", "&", ";", "`", "$"}) {
        const std::string open = "chmod 0777 /t" + odd;
        // Making directories has no guard: the phone's shell refuses the command.
        EXPECT_EQ("chmod 0777 /p" + odd + "\n" + open + "\n",
                  capture("E1,127,/p" + odd + "/E1,/t" + odd + "/,n"));
        const std::string lines = said(kTag);
        EXPECT_EQ(9, count(lines, "E isParamInvalid, invalid param!\n"));
        EXPECT_EQ(1, count(lines, "D cmds: " + open + ", 32256\n"));
    }
}

TEST_F(LogThreadTest, SkipsTheCaptureWithoutItsDirectories) {
    file("/data/file", "");
    for (const char* info : {"E1,1,/data/file/E1/,/t/,n", "E1,1,/data/p/,/data/file/E1/,n"}) {
        EXPECT_EQ(0, count(capture(info), "logcat"));
        EXPECT_THAT(
            said(kTag),
            HasSubstr("D checkPath : log path(/data/file/E1/) not exist errno=20, create it!\n"
                      "E checkPath : create path /data/file/E1 fail errno=20\n"));
    }
    // Only components that end in "/" are made; a long path is cut.
    const std::string longPath = "/data/q/" + std::string(4096, 'l') + "/";
    for (const std::string& path : {"/data/q/last"s, "/data/q/nul\0/"s, ""s, "r/"s, longPath})
        EXPECT_TRUE(make("")->checkPath(String8(path)));
    EXPECT_THAT(said(kTag),
                HasSubstr("log path(" + longPath.substr(0, 255) + ") not exist errno=2,"));
    EXPECT_THAT(names("/data/q"), testing::IsEmpty());
    EXPECT_TRUE(exists("/r"));
}

TEST_F(LogThreadTest, LogsAFailedCommandAndRunsTheOthers) {
    for (const char* program : {"logcat", "dmesg", "dumpsys", "perfetto", "tar", "chmod", "rm"})
        phone().faults().fail(program, 1);
    capture("E1,127,/data/x/E1/,/data/arch/,n");
    EXPECT_EQ(timed(R"(D checkPath : log path(/data/x/E1/) not exist errno=2, create it!
D cmds: chmod 0777 /data/x, 256
D cmds: chmod 0777 /data/x/E1, 256
D checkPath : log path(/data/arch/) not exist errno=2, create it!
D cmds: chmod 0777 /data/arch, 256
D cmds failed: logcat -v threadtime -d > /data/x/E1/%_android.txt, err=256
D cmds failed: dmesg > /data/x/E1/%_dmesg.txt, err=256
D cmds failed: dumpsys media.audio_flinger > /data/x/E1/%_audioflinger.txt, err=256
D cmds failed: dumpsys media.audio_policy > /data/x/E1/%_audiopolicy.txt, err=256
D cmds failed: dumpsys audio > /data/x/E1/%_audio.txt, err=256
D cmds failed: perfetto --config :test --out /data/x/E1/%_systrace.perfetto-trace, err=256
D cmds failed: tar -czf, mEventId=E1, err=256
D cmds failed: chmod, err=256
D cmds failed: rm -rf /data/x/E1/, err=256
D ~KelvoPeltoLogThread()
)"),
              said(kTag));
    const auto arch = std::filesystem::status(host("/data/arch"));
    EXPECT_EQ(std::filesystem::perms::owner_all, arch.permissions()) << "not opened to everybody";
}

TEST_F(LogThreadTest, WritesTheLocalTimeIntoAWholeBuffer) {
    setenv("TZ", "XYZ+3", 1);
    EXPECT_THAT(capture("E1,9,/p/E1/,/t/,n"), HasSubstr("tar -czf /t/n@2024-03-05_11-07-09.tar"));
    char time[64] = "as before";
    const auto thread = make("");
    said(kTag);
    EXPECT_EQ(-1, thread->getCurrentTime(time, 63));
    EXPECT_STREQ("as before", time);
    holdClock(std::chrono::seconds(0));
    EXPECT_EQ(-1, thread->getCurrentTime(time, 64));
    EXPECT_STREQ("", time);
    EXPECT_EQ("E Invalid time buffer\nE Unable to get time\n", said(kTag));
}

}  // namespace
}  // namespace android
