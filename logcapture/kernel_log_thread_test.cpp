#include <sys/resource.h>

#include <future>

#include "logcapture/KelvoDmesgThread.h"
#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/testing/capture_test.h"
#include "sim/kernel/kernel_log.h"

namespace android {
namespace {

constexpr char kTag[] = "KelvoDmesgThread";
constexpr char kDumpLog[] = "event_audio_detect_dump_log";

class KernelLogThreadTest : public CaptureTest {
  protected:
    KernelLogThreadTest() : CaptureTest(kTag) {}
    void SetUp() override {
        PhoneTest::SetUp();
        holdClock();
        thread_control::hold(kTag);
    }
    bool waitAsleep() { return waitLogged("D KelvoDmesgThread: KelvoDmesgThread going to sleep"); }
    // Waits until the worker sleeps and everything is published; skips the log so far.
    sp<KelvoDmesgThread> started() {
        const sp<KelvoDmesgThread> thread = KelvoDmesgThread::createLogThread();
        thread_control::release(kTag);
        EXPECT_TRUE(waitAsleep());
        said();
        return thread;
    }
    void pause(std::chrono::nanoseconds length = 10ms) {
        ASSERT_TRUE(waitForSleepers(1));
        advance(length);
    }
};

TEST_F(KernelLogThreadTest, DumpsWhatTheKernelSaidSinceTheLastDump) {
    const std::string dump = "/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt";
    const auto thread = started();
    for (const std::string text : {"first", "second"}) {
        phone().kernelLog().append(text);
        phone().faults().hang("dmesg");
        report(kDumpLog, "mic");
        ASSERT_TRUE(phone().faults().waitHanging("dmesg"));
        thread->dumpKernelLog();  // dropped, as during the pause
        phone().faults().release("dmesg");
        pause(10ms - 1ns);
        // Enough requests to catch a worker that has not slept long enough.
        for (int i = 0; i < 1000; ++i) thread->dumpKernelLog();
        pause(1ns);
        ASSERT_TRUE(waitAsleep());
        EXPECT_EQ(1, count(said(), "D dumpKernelLog signal\n"));
        EXPECT_EQ(3, count(ran(), "\n"));
        EXPECT_THAT(contents(dump), EndsWith("] " + text + "\n"));
    }
    EXPECT_EQ(1, count(contents(dump), "\n"));

    fs::remove_all(phone().fsDir() + "/data/ruvi");
    phone().faults().fail("chmod", 5);
    report(kDumpLog, "i$j");
    pause();
    ASSERT_TRUE(waitAsleep());
    EXPECT_THAT(said(), testing::MatchesRegex(
                            R"(D handleEvent event event_audio_detect_dump_log.i.j
D handleEvent eventInfo i
D dumpKernelLog
D dumpKernelLog signal
D KelvoDmesgThread waking up
D KelvoDmesgThread: touch /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt, err=256 \(.+\)
D KelvoDmesgThread: chmod 777 /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt, err=1280 \(.+\)
D KelvoDmesgThread: dmesg -c > /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt, err=256 \(.+\)
D KelvoDmesgThread going to sleep
)"));
}

TEST_F(KernelLogThreadTest, StartsWhenItComesAfterThePublication) {
    const auto thread = KelvoDmesgThread::createLogThread();
    EXPECT_EQ(nullptr, KelvoDmesgThread::createLogThread());
    thread->handleEvent(std::string(kDumpLog) + "$mic");  // before it sleeps: dropped
    thread_control::release(kTag);
    ASSERT_TRUE(waitAsleep());
    thread->handleEvent(std::string(kDumpLog) + " $mic");
    char ready[100];
    snprintf(ready, sizeof ready, "I KelvoDmesgThread %p tid=%d ready to run\n",
             static_cast<void*>(thread.get()), static_cast<int>(thread->getTid()));
    EXPECT_EQ(R"(D KelvoDmesgThread: createLogThread()
D KelvoDmesgThread onFirstRef
D KelvoDmesgThread: createLogThread()
D handleEvent event event_audio_detect_dump_log$mic
D handleEvent eventInfo mic
D dumpKernelLog
)" + std::string(ready) +
                  R"(D KelvoDmesgThread going to sleep
D handleEvent event event_audio_detect_dump_log $mic
)",
              said());
    EXPECT_EQ("", ran());
    EXPECT_EQ(OK, thread->initCheck());
    const int priority = getpriority(PRIO_PROCESS, static_cast<id_t>(thread->getTid()));
    EXPECT_EQ(setpriority(PRIO_PROCESS, 0, -19) == 0 ? -19 : 0, priority) << "where it is allowed";

    thread->requestExit();
    thread->dumpKernelLog();
    pause();
    EXPECT_EQ(OK, thread->join()) << "it ends after one more dump";
    EXPECT_EQ(3, count(ran(), "\n"));
}

TEST_F(KernelLogThreadTest, EndsAtOnceWhenItComesBeforeThePublication) {
    thread_control::release(kTag);
    // A busy listener holds the dispatcher's lock and so blocks the registration in the
    // constructor.
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter();
    phone().faults().hang("cp");
    report("pelto_event_multimedia_capture_logs", "A0345,4,/p/,/t/,n");
    ASSERT_TRUE(phone().faults().waitHanging("cp"));
    auto made = std::async(std::launch::async, &KelvoDmesgThread::createLogThread);
    EXPECT_TRUE(waitLogged("E KelvoDmesgThread: KelvoDmesgThread readyToRun status -19"));
    phone().faults().release("cp");
    const sp<KelvoDmesgThread> thread = made.get();
    EXPECT_EQ(NO_INIT, thread->join());
    thread->dumpKernelLog();
    EXPECT_EQ(0, count(said(), "dumpKernelLog signal"));
    EXPECT_EQ(OK, thread->initCheck()) << "by now";
}

}  // namespace
}  // namespace android
