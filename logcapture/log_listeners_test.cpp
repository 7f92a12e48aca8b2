// The listeners for events that ask for logs: exception reports, audio dumps, the kernel log.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <utils/ThreadStartControl.h>

#include <fstream>
#include <future>

#include "event/PeltoEventDisptch.h"
#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoDmesgThread.h"
#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/KelvoWexRaiseException.h"
#include "sim/kernel/kernel_log.h"
#include "sim/userspace/reports.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::MatchesRegex;

constexpr char kDump[] = "KelvoAudioDumpsysLogThread";
constexpr char kKernelLog[] = "KelvoDmesgThread";
constexpr char kReport[] = "KelvoWexRaiseException";
constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";

class LogListenersTest : public PhoneTest {
  protected:
    template <typename T>
    static sp<T> make(const std::string& info) {
        return new T(String8(info));
    }
    static void report(const char* type, const std::string& info) {
        PeltoEventDisptch::getInstance().setEvent(String8(type), String8(info));
    }
    // The record of the report that a capture event raises.
    std::string recordOf(const std::string& info) {
        forgetLog();
        report("pelto_event_multimedia_capture_logs", info);
        EXPECT_TRUE(waitLogged("D KelvoWexRaiseException: ~KelvoWexRaiseException()"));
        return phone().reports().after(0).back().record;
    }

    bool waitAsleep() { return waitLogged("D KelvoDmesgThread: KelvoDmesgThread going to sleep"); }
    void pause(int64_t nanoseconds = 10000000) {
        ASSERT_TRUE(waitForSleepers(1));
        advance(std::chrono::nanoseconds(nanoseconds));
    }
    void dumpFile(const std::string& name, int millis) {
        file(kDirectory + name, "");
        fs::last_write_time(host(kDirectory + name),
                            fs::file_time_type(std::chrono::milliseconds(millis)));
    }
    void dumpFiles(int count, const std::string& prefix) {
        for (int i = 0; i < count; ++i) dumpFile(prefix + std::to_string(i), 7000 + i * 617 % 1000);
    }
    // The commands that a request of a dump runs before it starts.
    std::string prune() {
        make<KelvoAudioDumpsysLogThread>("t");
        return ran();
    }
};

TEST_F(LogListenersTest, RaisesTheSameBytesOnEveryBuild) {
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
    writer->handleEvent("pelto_event_multimedia_capture_logs $A0345,7,/p/,/t/,not mine");
    EXPECT_EQ("D KelvoPeltoLogWriter()\n", said("KelvoPeltoLogWriter"));
    holdClock(std::chrono::seconds(0x65a1b2c3));
    std::string expected =
        "\xc3\xb2\xa1\x65\0\0\0\0\x45\x63\x00\x10\0\0\0\0\0\0\0\0\0\0\0\0"
        "\x29\x02\0\0\x20\0\0\0name of it"s;
    expected.resize(288);
    EXPECT_EQ(expected, recordOf("A0345,43,/p/,/t/,name of it,more"));
    // The phone's seconds have 32 bits; the name always ends.
    holdClock(std::chrono::seconds(0x80000001));
    expected = "\x01\0\0\x80\xff\xff\xff\xff\xad\x2b\x03\x10"s + std::string(20, '\0') +
               std::string(255, 'n') + '\0';
    EXPECT_EQ(expected, recordOf("f2bad,0,/p/,/t/," + std::string(300, 'n')));
    EXPECT_EQ(std::string(280, '\0'), recordOf(",A0345,,1,,/p/,,/t/,").substr(8));
    EXPECT_EQ(
        "E init, log info error!\nE getWexExceptionId: eventid is wrong\n"
        "D ~KelvoWexRaiseException()\n",
        said(kReport));
    phone().reports().refuse(true);
    recordOf("");
    EXPECT_EQ(1, count(said(kReport), "E WexRaiseException: error, wex_raise_exception failed\n"));
    EXPECT_EQ(3u, phone().reports().after(0).size());
}

TEST_F(LogListenersTest, TranslatesIdsAndLogTypes) {
    const auto reporter = make<KelvoWexRaiseException>("");
    said(kReport);
    std::string results;
    for (const char* id :
         {"a2fff", "A1345", "7fffffff", " 0abc", "a0-12", "x2zzzz", "80000000", "A034"})
        results += String8::format("%s=%x ", id, reporter->getWexExceptionId(String8(id))).c_str();
    for (const char* type :
         {"1", "2", "4", "8", "16", "64", "128", "288", "000000001", "0000000260", "512", ""}) {
        const auto logs = static_cast<long long>(reporter->getWexAtomicLogs(String8(type)));
        results += String8::format("%s=%llx ", type, logs).c_str();
    }
    EXPECT_EQ(
        "a2fff=10032fff A1345=345 7fffffff=fff  0abc=10006abc a0-12=100060a0 x2zzzz=10032000 "
        "80000000=10006000 A034=0 "
        "1=20 2=1 4=0 8=208 16=800 64=0 128=80 288=2000000000 000000001=20 0000000260=0 512=0 =0 ",
        results);
    EXPECT_EQ(R"(E Invalid argument....
E Out of Range error...
E getWexExceptionId: eventid is wrong
V getWexAtomicLogs: STACK_TRACE, nothing need to do now
D getWexAtomicLogs: SYSTRACE log
V getWexAtomicLogs: QXDM_LOG, nothing need to do now
D getWexAtomicLogs: ADSP_MINIDUMP_LOG log
D getWexAtomicLogs: PCM_DUMP log, for pcm dump
D getWexAtomicLogs: PCM_DUMP log, for adsp txt log
)",
              said(kReport));
}

TEST_F(LogListenersTest, CopiesTheTombstonesForAStackTrace) {
    fs::remove_all(host("/data/persist_log/wex"));
    make<KelvoWexRaiseException>("A0345,4,/p/,/t/,n");
    EXPECT_EQ(R"(V init(), eventId=A0345, logType=4
D checkPath :sizeof(path)=256, logPath.size()=36, path=/data/persist_log/wex/exception_log/
D checkPath : log path(/data/persist_log/wex/exception_log/) not exist errno=2, create it!
V checkPath : path /data exist
V checkPath : path /data/persist_log exist
V checkPath : path /data/persist_log/wex not exist, create it
V checkPath : created path /data/persist_log/wex.
V checkPath : path /data/persist_log/wex/exception_log not exist, create it
V checkPath : created path /data/persist_log/wex/exception_log.
V getTombstoneFiles cmd:cp /data/tombstones/* /data/persist_log/wex/exception_log/
D cmds failed: cp /data/tombstones/* /data/persist_log/wex/exception_log/, err=256
V getTombstoneFiles cmd:chmod 0777 /data/persist_log/wex/exception_log/*
D cmds failed: chmod 0777 /data/persist_log/wex/exception_log/*, err=256
D ~KelvoWexRaiseException()
)",
              said(kReport));
    make<KelvoWexRaiseException>("A0345,0000000260,/p/,/t/,n");
    EXPECT_THAT(said(kReport),
                testing::HasSubstr("wex/exception_log/ exist.\nV getTombstoneFiles cmd:cp"));

    fs::remove_all(host("/data/persist_log/wex"));
    file("/data/persist_log/wex", "");
    make<KelvoWexRaiseException>("A0345,4,/p/,/t/,n");
    EXPECT_EQ(0, count(said(kReport), "getTombstoneFiles cmd:")) << "there is no directory";
}

TEST_F(LogListenersTest, RemovesTheOldestOfTenDumpFiles) {
    const std::string removal = std::string("rm -rf ") + kDirectory + "/";
    // With the directory these names have a character too many; cut, they name no file.
    const std::string longest(218, 'n');
    dumpFiles(10, longest);
    EXPECT_EQ("rm -rf \n", prune());
    dumpFile(longest, 7999);
    EXPECT_EQ(removal + longest + "\n", prune());

    fs::remove_all(host(kDirectory));
    dumpFiles(100, "f");
    for (int files = 100; files >= 10; --files) {
        const std::string first = fs::directory_iterator(host(kDirectory))->path().filename();
        EXPECT_EQ(removal + first + "\n", prune()) << "the first listed of equal seconds";
    }
    fs::create_directory(host(kDirectory) + "directory");
    fs::create_symlink("f0", host(kDirectory) + "link");
    EXPECT_EQ("", prune()) << "directories and links do not count";
    dumpFile("old", 6999);
    dumpFile("new", 8000);
    phone().faults().fail("rm", 1);
    said(kDump);
    EXPECT_EQ(removal + "old\n", prune());
    dumpFile("$HOME", 1000);
    EXPECT_EQ("", prune());
    EXPECT_EQ("D cmds failed: " + removal + "old, err=256\nD ~KelvoAudioDumpsysLogThread()\n" +
                  "E isParamInvalid, invalid param!\nD ~KelvoAudioDumpsysLogThread()\n",
              said(kDump));
}

TEST_F(LogListenersTest, SetsTheDumpTypeBeforeItStartsTheService) {
    fs::remove_all(host(kDirectory));
    const auto thread = make<KelvoAudioDumpsysLogThread>("a,b c");
    phone().faults().hang("audiodumpinfo");
    EXPECT_TRUE(thread->threadLoop());
    EXPECT_EQ("E DUMP_PATH open failed.\nD start audio dump info, mDumpType:a,b c\n", said(kDump));
    // The lines of init show the order: it refuses the type and does not start the service twice.
    EXPECT_TRUE(make<KelvoAudioDumpsysLogThread>(std::string(92, 'x'))->threadLoop());
    EXPECT_EQ(
        "E Unable to set property 'kelvo.audio.dumpinfo.type': property value too long\n"
        "I service 'audiodumpinfo' requested start, but it is already running\n",
        said("init"));
    EXPECT_EQ("a,b c", property("kelvo.audio.dumpinfo.type"));
    EXPECT_FALSE(make<KelvoAudioDumpsysLogThread>("")->threadLoop());
    EXPECT_EQ("E DUMP_PATH open failed.\nE invalid mDumpType.\nD ~KelvoAudioDumpsysLogThread()\n",
              said(kDump));
    // It repeats while its owner keeps it.
    ASSERT_EQ(OK, thread->start("pelto_dump", 0, 0));
    EXPECT_TRUE(
        waitLogged("D KelvoAudioDumpsysLogThread: start audio dump info, mDumpType:a,b c", 3));
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(LogListenersTest, TakesOneRequestAtATime) {
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
    phone().faults().hang("audiodumpinfo");
    thread_control::hold("pelto_dump");
    for (int i = 0; i < 10; ++i) report("pelto_event_multimedia_audio_dumpsys", "codec,7");
    ASSERT_TRUE(waitLogged("D KelvoPeltoLogWriter: dumpsysAudioInfo", 10));
    // The writer drops each worker under its lock: once the lock is free, the worker is gone.
    writer->caputureLogs(String8(""));
    thread_control::release("pelto_dump");
    ASSERT_TRUE(waitLogged("D KelvoAudioDumpsysLogThread: ~KelvoAudioDumpsysLogThread()", 10));
    EXPECT_EQ(9, count(said("init"), "requested start, but it is already running\n"));

    // A dump waits for a report, also when both fail.
    thread_control::refuse("pelto_dump");
    phone().reports().refuse(true);
    phone().faults().hang("cp");
    auto capture =
        std::async(std::launch::async, [&] { writer->caputureLogs(String8("A0345,4,/p/,/t/,n")); });
    ASSERT_TRUE(phone().faults().waitHanging("cp"));
    forgetLog();
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
    EXPECT_TRUE(log().empty());
    phone().faults().release("cp");
    capture.get();
    dump.get();
    EXPECT_EQ(
        "E error, WexRaiseException failed\nD dumpsysAudioInfo\n"
        "E cannot start audio dumpsys thread, error:-2147483648\n",
        said("KelvoPeltoLogWriter"));
}

TEST_F(LogListenersTest, KernelLogThreadDumpsWhatTheKernelSaidSinceTheLastDump) {
    holdClock();
    thread_control::hold(kKernelLog);
    const auto thread = KelvoDmesgThread::createLogThread();
    EXPECT_EQ(nullptr, KelvoDmesgThread::createLogThread());
    thread->handleEvent("event_audio_detect_dump_log$mic");  // before it sleeps: dropped
    thread_control::release(kKernelLog);
    ASSERT_TRUE(waitAsleep());
    thread->handleEvent("event_audio_detect_dump_log $mic");
    const int tid = static_cast<int>(thread->getTid());
    EXPECT_THAT(said(kKernelLog), MatchesRegex(R"(D KelvoDmesgThread: createLogThread\(\)
D KelvoDmesgThread onFirstRef
D KelvoDmesgThread: createLogThread\(\)
D handleEvent event event_audio_detect_dump_log.mic
D handleEvent eventInfo mic
D dumpKernelLog
I KelvoDmesgThread 0x[0-9a-f]+ tid=)" + std::to_string(tid) +
                                               R"( ready to run
D KelvoDmesgThread going to sleep
D handleEvent event event_audio_detect_dump_log .mic
)"));
    const int priority = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    EXPECT_EQ(setpriority(PRIO_PROCESS, 0, -19) == 0 ? -19 : 0, priority) << "where it is allowed";

    const std::string dump = "/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt";
    for (const char* text : {"first", "second"}) {
        phone().kernelLog().append(text);
        phone().faults().hang("dmesg");
        report("event_audio_detect_dump_log", "mic");
        ASSERT_TRUE(phone().faults().waitHanging("dmesg"));
        thread->dumpKernelLog();  // dropped, as during the pause
        phone().faults().release("dmesg");
        pause(9999999);
        // Enough requests to catch a worker that has not slept long enough.
        for (int i = 0; i < 1000; ++i) thread->dumpKernelLog();
        pause(1);
        ASSERT_TRUE(waitAsleep());
        EXPECT_EQ(1, count(said(kKernelLog), "D dumpKernelLog signal\n"));
        EXPECT_EQ(3, count(ran(), "\n"));
        EXPECT_THAT(contents(dump), MatchesRegex(std::string("[^\n]+] ") + text + "\n"));
    }

    fs::remove_all(host("/data/ruvi"));
    phone().faults().fail("chmod", 5);
    report("event_audio_detect_dump_log", "i$j");
    pause();
    ASSERT_TRUE(waitAsleep());
    EXPECT_THAT(said(kKernelLog), MatchesRegex(
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

    thread->requestExit();
    thread->dumpKernelLog();
    pause();
    EXPECT_EQ(OK, thread->join()) << "it ends after one more dump";
    EXPECT_EQ(6, count(ran(), "\n"));
}

TEST_F(LogListenersTest, KernelLogThreadEndsWhenItComesBeforeThePublication) {
    // A busy listener holds the dispatcher's lock and so blocks the registration in the
    // constructor.
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
    phone().faults().hang("cp");
    report("pelto_event_multimedia_capture_logs", "A0345,4,/p/,/t/,n");
    ASSERT_TRUE(phone().faults().waitHanging("cp"));
    auto made = std::async(std::launch::async, &KelvoDmesgThread::createLogThread);
    EXPECT_TRUE(waitLogged("E KelvoDmesgThread: KelvoDmesgThread readyToRun status -19"));
    phone().faults().release("cp");
    const sp<KelvoDmesgThread> thread = made.get();
    EXPECT_EQ(NO_INIT, thread->join());
    thread->dumpKernelLog();
    EXPECT_EQ(0, count(said(kKernelLog), "dumpKernelLog signal"));
}

}  // namespace
}  // namespace android
