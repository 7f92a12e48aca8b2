// Requests of audio dumps, and the dump files that each request prunes first.
#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <future>

#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/testing/capture_test.h"
#include "sim/userspace/reports.h"

namespace android {
namespace {

constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";

class AudioDumpTest : public CaptureTest {
  protected:
    AudioDumpTest() : CaptureTest("KelvoAudioDumpsysLogThread") {}

    // A dump file, modified this long after the start of the phone's clock.
    void dumpFile(const std::string& name, int seconds, int millis = 0) {
        file(kDirectory + name, "");
        const timespec times[] = {{}, {seconds, millis * 1000000}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, host(name).c_str(), times, 0));
    }
    void dumpFiles(int count, const std::string& prefix = "f") {
        for (int i = 0; i < count; ++i) dumpFile(prefix + std::to_string(i), 7, i * 617 % 1000);
    }
    std::string host(const std::string& name) { return phone().fsDir() + kDirectory + name; }
    size_t files() { return names(kDirectory).size(); }
    // The commands of the constructor alone.
    std::string prune() {
        make<KelvoAudioDumpsysLogThread>("t");
        return ran();
    }
    static std::string removal(const std::string& name) {
        return std::string("rm -rf ") + kDirectory + "/" + name;
    }
};

TEST_F(AudioDumpTest, RemovesTheOldestOfTenFiles) {
    dumpFiles(8);
    dumpFile("old", 6);
    fs::create_directory(host("directory"));
    fs::create_symlink("f0", host("link"));
    EXPECT_EQ("", prune()) << "directories and links do not count";
    dumpFile("new", 8);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_EQ(11u, files());

    dumpFile("$HOME", 1);
    said();
    EXPECT_EQ("", prune());
    fs::rename(host("$HOME"), host("old"));
    phone().faults().fail("rm", 1);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_EQ(
        "E isParamInvalid, invalid param!\nD ~KelvoAudioDumpsysLogThread()\n"
        "D cmds failed: " +
            removal("old") + ", err=256\nD ~KelvoAudioDumpsysLogThread()\n",
        said());
}

TEST_F(AudioDumpTest, RemovesTheFirstListedOfEqualSeconds) {
    dumpFiles(100);
    for (int i = 0; i < 3; ++i) {
        const std::string first = fs::directory_iterator(host(""))->path().filename();
        EXPECT_EQ(removal(first) + "\n", prune());
    }
}

TEST_F(AudioDumpTest, RemovesNoneOfFilesThatCannotBeExamined) {
    // With the directory these names have a character too many; cut, they name no file.
    const std::string longest(218, 'n');
    dumpFiles(10, longest);
    EXPECT_EQ("rm -rf \n", prune());
    fs::rename(host(longest + "0"), host(longest));
    EXPECT_EQ(removal(longest) + "\n", prune());
    EXPECT_EQ(9u, files());
}

TEST_F(AudioDumpTest, SetsTheTypeBeforeItStartsTheService) {
    fs::remove_all(host(""));
    const auto thread = make<KelvoAudioDumpsysLogThread>("a,b c");
    fs::create_directories(host(""));
    phone().faults().hang("audiodumpinfo");
    EXPECT_TRUE(thread->threadLoop());
    EXPECT_EQ("E DUMP_PATH open failed.\nD start audio dump info, mDumpType:a,b c\n", said());
    // The lines of init show the order: it refuses the type and does not start the service twice.
    EXPECT_TRUE(make<KelvoAudioDumpsysLogThread>(std::string(92, 'x'))->threadLoop());
    EXPECT_EQ(
        "E Unable to set property 'kelvo.audio.dumpinfo.type': property value too long\n"
        "I service 'audiodumpinfo' requested start, but it is already running\n",
        PhoneTest::said("init"));
    EXPECT_FALSE(make<KelvoAudioDumpsysLogThread>("")->threadLoop());
    EXPECT_EQ("E invalid mDumpType.\nD ~KelvoAudioDumpsysLogThread()\n", said());
    EXPECT_EQ("a,b c", property("kelvo.audio.dumpinfo.type"));
    phone().services().awaitStopped();  // releases the service
    EXPECT_THAT(contents(kDirectory + names(kDirectory).at(0)),
                testing::StartsWith("dump type: a,b c\n"));
    // It repeats while its owner keeps it.
    ASSERT_EQ(OK, thread->start("pelto_dump", 0, 0));
    EXPECT_TRUE(
        waitLogged("D KelvoAudioDumpsysLogThread: start audio dump info, mDumpType:a,b c", 3));
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(AudioDumpTest, TenEventsAtOnceAreTenRequestsAndOneDump) {
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
    phone().faults().hang("audiodumpinfo");
    thread_control::hold("pelto_dump");
    for (int i = 0; i < 10; ++i) report("pelto_event_multimedia_audio_dumpsys", "codec,7");
    ASSERT_TRUE(waitLogged("D KelvoPeltoLogWriter: dumpsysAudioInfo", 10));
    // The writer drops each worker under its lock: once the lock is free, the worker is gone.
    writer->caputureLogs(String8(""));
    thread_control::release("pelto_dump");
    ASSERT_TRUE(waitDestroyed("KelvoAudioDumpsysLogThread", 10));
    EXPECT_TRUE(
        logged("I init: service 'audiodumpinfo' requested start, but it is already running", 9));
    phone().services().awaitStopped();  // releases the commands that hang
    EXPECT_EQ(1u, files());
    EXPECT_EQ("", ran());
}

TEST_F(AudioDumpTest, WaitsForAReportAlsoWhenBothFail) {
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
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
        PhoneTest::said("KelvoPeltoLogWriter"));
}

}  // namespace
}  // namespace android
