#include <unistd.h>
#include <utils/ThreadStartControl.h>

#include <fstream>
#include <future>
#include <thread>

#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/testing/capture_test.h"
#include "sim/userspace/reports.h"

namespace android {
namespace {

constexpr char kCapture[] = "pelto_event_multimedia_capture_logs";
constexpr char kDump[] = "pelto_event_multimedia_audio_dumpsys";

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
}

TEST_F(LogWriterTest, TenDumpEventsAtOnceAreTenRequestsAndOneDump) {
    phone().faults().hang("audiodumpinfo");
    thread_control::hold("pelto_dump");
    for (int i = 0; i < 10; ++i) report(kDump, "codec,7");
    ASSERT_TRUE(waitLogged("D KelvoPeltoLogWriter: dumpsysAudioInfo", 10));
    // The writer drops each worker under its lock: once the lock is free, the worker is gone.
    writer->caputureLogs(String8(""));
    thread_control::release("pelto_dump");
    ASSERT_TRUE(waitDestroyed("KelvoAudioDumpsysLogThread", 10));
    EXPECT_TRUE(
        logged("I init: service 'audiodumpinfo' requested start, but it is already running", 9));
    EXPECT_EQ("codec,7", property("kelvo.audio.dumpinfo.type"));
    phone().services().awaitStopped();  // releases the commands that hang
    EXPECT_EQ(1u, names("/data/persist_log/TMP/audio_dumpsys").size());
    EXPECT_EQ("", ran());
}

TEST_F(LogWriterTest, AnActionWaitsForTheOtherAlsoWhenBothFail) {
    thread_control::refuse("pelto_dump");
    phone().reports().refuse(true);
    phone().faults().hang("cp");
    auto capture =
        std::async(std::launch::async, [&] { writer->caputureLogs(String8("A0345,4,/p/,/t/,n")); });
    ASSERT_TRUE(phone().faults().waitHanging("cp"));
    said();
    std::promise<pid_t> id;
    auto dump = std::async(std::launch::async, [&] {
        id.set_value(gettid());
        writer->dumpsysAudioInfo(String8("t"));
    });
    // Waits until the thread sleeps at the lock or has ended.
    const std::string stat = "/proc/self/task/" + std::to_string(id.get_future().get()) + "/stat";
    std::string number, name, state;
    while (std::ifstream(stat) >> number >> name >> state && state != "S")
        std::this_thread::yield();
    EXPECT_EQ("", said());
    phone().faults().release("cp");
    capture.get();
    dump.get();
    EXPECT_EQ(
        "E error, WexRaiseException failed\nD dumpsysAudioInfo\n"
        "E cannot start audio dumpsys thread, error:-2147483648\n",
        said());
}

}  // namespace
}  // namespace android
