#include <utils/ThreadControl.h>

#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/testing/capture_test.h"
#include "sim/reports.h"

namespace android {
namespace {

constexpr char kCapture[] = "pelto_event_multimedia_capture_logs";
constexpr char kDump[] = "pelto_event_multimedia_audio_dumpsys";
constexpr char kDumps[] = "/data/persist_log/TMP/audio_dumpsys";

class LogWriterTest : public CaptureTest {
  protected:
    LogWriterTest() : CaptureTest("KelvoPeltoLogWriter") {}
    void SetUp() override {
        PhoneTest::SetUp();
        writer = new KelvoPeltoLogWriter();
    }
    sp<KelvoPeltoLogWriter> writer;
};

TEST_F(LogWriterTest, ACaptureEventBecomesAReport) {
    file("/data/tombstones/tombstone_07", "stack");
    writer->handleEvent(std::string(kCapture) + " $A0345,7,/p/,/t/,not mine");
    report(kCapture, "A0345,7,/p/,/t/,camera");
    report(kCapture, "");
    ASSERT_TRUE(waitDestroyed("KelvoWexRaiseException", 2));
    const auto reports = phone().reports().after(0);
    ASSERT_EQ(2u, reports.size());
    EXPECT_THAT(reports[0].text(),
                testing::EndsWith("id 0x10006345  camera  android log, kernel log"));
    EXPECT_THAT(reports[1].text(), testing::EndsWith("id 0x00000000  (no name)  no logs"));
    EXPECT_EQ("stack", contents("/data/persist_log/wex/exception_log/tombstone_07"));
    EXPECT_EQ("D KelvoPeltoLogWriter()\n", said());

    phone().reports().refuse(true);
    report(kCapture, "A0345,1,/p/,/t/,refused");
    EXPECT_TRUE(waitSaid(ANDROID_LOG_ERROR, "error, WexRaiseException failed"));
}

TEST_F(LogWriterTest, TenDumpEventsAtOnceAreTenDumps) {
    thread_control::hold("pelto_dump");
    for (int i = 0; i < 10; ++i) report(kDump, "codec,7");
    ASSERT_TRUE(waitSaid(ANDROID_LOG_DEBUG, "dumpsysAudioInfo", 10));
    // The writer lets go of each under its lock: once that can be taken again, it has.
    writer->caputureLogs(String8(""));
    thread_control::release("pelto_dump");
    ASSERT_TRUE(waitDestroyed("KelvoAudioDumpsysLogThread", 10));
    EXPECT_EQ("codec,7", property("kelvo.audio.dumpinfo.type"));
    EXPECT_EQ(10u, names(kDumps).size());
    EXPECT_EQ("", ran());
    writer->dumpsysAudioInfo(String8("codec,8"));
    EXPECT_THAT(ran(), testing::StartsWith(std::string("rm -rf ") + kDumps));
}

TEST_F(LogWriterTest, AThreadThatCannotStartIsALine) {
    thread_control::refuse("pelto_dump");
    said();
    writer->dumpsysAudioInfo(String8("t"));
    EXPECT_TRUE(waitDestroyed("KelvoAudioDumpsysLogThread"));
    EXPECT_EQ("D dumpsysAudioInfo\nE cannot start audio dumpsys thread, error:-2147483648\n",
              said());
}

}  // namespace
}  // namespace android
