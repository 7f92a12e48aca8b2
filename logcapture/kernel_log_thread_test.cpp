#include <utils/ThreadControl.h>

#include <atomic>
#include <filesystem>

#include "logcapture/KelvoDmesgThread.h"
#include "logcapture/testing/capture_test.h"
#include "sim/kernel_log.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;

constexpr char kTag[] = "KelvoDmesgThread";
constexpr char kDumpLog[] = "event_audio_detect_dump_log";
constexpr char kFile[] = "/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt";
constexpr char kAsleep[] = "KelvoDmesgThread going to sleep";

class KernelLogThreadTest : public CaptureTest {
  protected:
    KernelLogThreadTest() : CaptureTest(kTag) {}
    void SetUp() override {
        PhoneTest::SetUp();
        thread_control::hold(kTag);
    }
    // The worker asleep, everything published.
    sp<KelvoDmesgThread> started() {
        const sp<KelvoDmesgThread> thread = KelvoDmesgThread::createLogThread();
        thread_control::release(kTag);
        EXPECT_TRUE(waitSaid(ANDROID_LOG_DEBUG, kAsleep));
        return thread;
    }
    // The pause behind a dump, then asleep again for the n-th time.
    void settle(int sleeps) {
        ASSERT_TRUE(waitForSleepers(1));
        advance(10ms);
        ASSERT_TRUE(waitSaid(ANDROID_LOG_DEBUG, kAsleep, sleeps));
    }
};

TEST_F(KernelLogThreadTest, ADumpHoldsWhatTheKernelSaidSinceTheLast) {
    holdClock();
    phone().kernelLog().append("first");
    started();
    report(kDumpLog, "mic");
    settle(2);
    EXPECT_THAT(contents(kFile), EndsWith("] first\n"));
    phone().kernelLog().append("second");
    report(kDumpLog, "mic");
    settle(3);
    EXPECT_EQ(1, count(contents(kFile), "\n"));
    EXPECT_THAT(contents(kFile), EndsWith("] second\n"));

    said();
    ran();
    std::filesystem::remove_all(phone().fsDir() + "/data/ruvi");
    phone().shell().fail("chmod", 5);
    report(kDumpLog, "i$j");
    settle(1);
    EXPECT_THAT(said(), testing::MatchesRegex(
                            R"(D handleEvent event event_audio_detect_dump_log.i.j
D handleEvent eventInfo i
D dumpKernelLog
D dumpKernelLog signal
D KelvoDmesgThread waking up
D KelvoDmesgThread: touch [^ ]*, err=256 \(.+\)
D KelvoDmesgThread: chmod 777 [^ ]*, err=1280 \(.+\)
D KelvoDmesgThread: dmesg -c > [^ ]*, err=256 \(.+\)
D KelvoDmesgThread going to sleep
)"));
    EXPECT_EQ(R"(touch /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt
chmod 777 /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt
dmesg -c > /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt
)",
              ran());
}

TEST_F(KernelLogThreadTest, OfTenRequestsAtOnceOneIsADump) {
    holdClock();
    const auto thread = started();
    phone().shell().hang("dmesg");
    thread->dumpKernelLog();
    ASSERT_TRUE(phone().shell().waitHanging("dmesg"));
    for (int i = 0; i < 9; ++i) thread->dumpKernelLog();
    phone().shell().release("dmesg");
    ASSERT_TRUE(waitForSleepers(1));
    thread->dumpKernelLog();
    settle(2);
    EXPECT_EQ(3, count(ran(), "\n"));
    const std::string lines = said();
    EXPECT_EQ(11, count(lines, "D dumpKernelLog\n"));
    EXPECT_EQ(1, count(lines, "D dumpKernelLog signal\n"));
}

TEST_F(KernelLogThreadTest, ARequestBeforeItSleepsIsDroppedAndOtherEventsAreNoRequests) {
    const auto thread = KelvoDmesgThread::createLogThread();
    thread->handleEvent(std::string(kDumpLog) + "$mic");
    EXPECT_EQ(nullptr, KelvoDmesgThread::createLogThread());
    thread_control::release(kTag);
    ASSERT_TRUE(waitSaid(ANDROID_LOG_DEBUG, kAsleep));
    EXPECT_EQ(0, count(said(), "dumpKernelLog signal"));
    thread->handleEvent("event_audio_detect_dump_log $mic");
    EXPECT_EQ("D handleEvent event event_audio_detect_dump_log $mic\n", said());
    EXPECT_EQ("", ran());
}

TEST_F(KernelLogThreadTest, StartsWhenItComesAfterThePublication) {
    const auto thread = started();
    char line[100];
    snprintf(line, sizeof line, "I KelvoDmesgThread %p tid=%d ready to run\n",
             static_cast<void*>(thread.get()), static_cast<int>(thread->getTid()));
    EXPECT_EQ("D KelvoDmesgThread: createLogThread()\nD KelvoDmesgThread onFirstRef\n" +
                  std::string(line) + "D KelvoDmesgThread going to sleep\n",
              said());
    EXPECT_EQ(OK, thread->initCheck());
    thread->requestExit();
    thread->dumpKernelLog();
    EXPECT_EQ(OK, thread->join()) << "it ends after one more dump";
    EXPECT_EQ(3, count(ran(), "\n"));
}

// Holds the dispatcher, and so the registration inside the constructor, until the worker has ended.
struct Blocker : EventListener {
    explicit Blocker(std::function<void()> toDo) : body(std::move(toDo)) {
        mEventTypes.add("block");
        PeltoEventDisptch::getInstance().registerEventListener(this);
    }
    void handleEvent(std::string) override { body(); }
    const std::function<void()> body;
};

TEST_F(KernelLogThreadTest, EndsAtOnceWhenItComesBeforeThePublication) {
    thread_control::release(kTag);
    std::atomic<bool> endedFirst{false};
    new Blocker([&] {
        __android_log_print(ANDROID_LOG_DEBUG, kTag, "blocked");
        endedFirst = waitSaid(ANDROID_LOG_ERROR, "KelvoDmesgThread readyToRun status -19");
    });
    report("block", "");
    ASSERT_TRUE(waitSaid(ANDROID_LOG_DEBUG, "blocked"));
    const auto thread = KelvoDmesgThread::createLogThread();
    EXPECT_TRUE(endedFirst);
    EXPECT_EQ(NO_INIT, thread->join());
    thread->dumpKernelLog();
    EXPECT_EQ(0, count(said(), "dumpKernelLog signal"));
    EXPECT_EQ(OK, thread->initCheck()) << "by now";
}

}  // namespace
}  // namespace android
