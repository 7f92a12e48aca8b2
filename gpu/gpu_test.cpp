#include "sim/kernel/gpu.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "gpu/KelvoGpuMinidump.h"
#include "gpu/KelvoGpuMinidumpFactory.h"
#include "sim/base/line_file.h"
#include "sim/kernel/sysfs_attributes.h"
#include "tests/support/event_sinks.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using sim::Gpu;
using testing::ElementsAre;

constexpr char kTag[] = "KelvoGpuMinidump";
const std::string kArchives = "/data/kelvo/mmdump/gpu/";
// Longer than the 64-byte buffers of some of its readers.
const std::string kVersion = "V12.1." + std::string(80, '0');

// The log lines of a reported fault: the service's, then the monitor's.
std::string reported(const std::string& id) {
    const std::string info = "EventID,410,Reason," + id + "\n";
    return "I pelto_event_peltoserver_feedback$" + info + "D " + info;
}

// Monitors that have not started, in a process without further threads.
class MonitorTest : public PhoneTest {
  protected:
    // Never destroyed: destroying a started monitor ends the process.
    KelvoGpuMinidump& make() {
        static auto& kept = *new std::vector<std::shared_ptr<KelvoGpuMinidump>>;
        return *kept.emplace_back(KelvoGpuMinidumpFactory::create());
    }
    bool logs(const std::string& text, int times = 1) {
        return waitLogged("D KelvoGpuMinidump: " + text, times);
    }

    const sp<IPeltoService> service = new LoggingService(kTag);
};

// A monitor that waits for faults, on a phone whose clock is held at 2024-03-05 14:07:09, its local
// time being UTC.
class GpuTest : public MonitorTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        setenv("TZ", "UTC", 1);
        holdClock(1709647629s);
        setReadOnly("ro.build.version.ota", kVersion);
        monitor = &make();
        ASSERT_TRUE(monitor->init(service));
        settle();
        forgetLog();
    }
    void settle() { ASSERT_TRUE(phone().attributes().waitIdle()); }
    void fault(const std::string& hashId, const std::string& snapshot = "x",
               const std::string& timestamp = "9\n", const std::string& control = "0\n") {
        phone().gpu().fault({timestamp, hashId, control, snapshot});
    }
    void pause(std::chrono::seconds length = 20s) {
        ASSERT_TRUE(waitForSleepers(1));
        advance(length);
    }
    void collect(const std::string& hashId, const std::string& snapshot = "x",
                 const std::string& timestamp = "9\n") {
        fault(hashId, snapshot, timestamp);
        pause();
        settle();
    }
    // A read-only property can otherwise be set only once.
    void setReadOnly(const std::string& key, const std::string& value) {
        unlink((phone().runDir() + "/properties/" + key).c_str());
        ASSERT_TRUE(setProperty(key, value));
    }
    // The polls of the timestamp, and how often the dump was opened: once to acknowledge a fault,
    // and once to copy it.
    std::pair<int, int> seen() {
        return {phone().attributes().polls(), phone().attributes().opens(Gpu::kDump)};
    }
    std::string host(const std::string& name) { return phone().fsDir() + kArchives + name; }
    static std::string named(const std::string& id) {
        return "gpudump@" + id + "@" + kVersion + "@_2024-03-05_14-07-09";
    }

    KelvoGpuMinidump* monitor = nullptr;
};

TEST_F(GpuTest, RunsUnlessTheMemoryIsSmallAndOptimised) {
    for (const auto& [size, optimize, runs] :
         {std::tuple(" 4GB", "1", false), std::tuple("4", "false", true),
          std::tuple("6", "true", true), std::tuple("", "true", true)}) {
        setReadOnly("ro.kelvo.memory.size", size);
        setReadOnly("ro.kelvo.mm_memory.optimize", optimize);
        forgetLog();
        KelvoGpuMinidump& made = make();
        EXPECT_EQ(runs, made.init(service)) << size << optimize;
        EXPECT_EQ(runs, made.init(nullptr)) << "a second call starts nothing";
        EXPECT_EQ(!runs, logged("I KelvoGpuMinidump: KelvoFennix isDisable4G set false"));
    }
}

// In child processes, since a monitor whose thread has ended cannot be destroyed. They are forked
// before this process has a thread.
TEST_F(MonitorTest, EndsWithItsOwnerOrItsTimestamp) {
    EXPECT_DEATH(KelvoGpuMinidumpFactory::create()->init(service), "terminate called");
    const auto expectEnd = [&](const char* line) {
        EXPECT_EXIT(if (make().init(service) && logs(line)) raise(SIGKILL),
                    testing::KilledBySignal(SIGKILL), "");
    };
    sim::Attributes::Faults faults;
    faults.pollError = EINTR;
    phone().attributes().setFaults(Gpu::kTimestamp, faults);
    expectEnd("pelto hashid poll error");
    phone().gpu().makeUnreadable(Gpu::kTimestamp);
    expectEnd("gpu timestamp file open failed,error -1, Permission denied");
}

TEST_F(GpuTest, TakesAnEventInOnePassAndPausesWhereItWouldSpin) {
    EXPECT_EQ(std::pair(2, 1), seen()) << "an attribute never read is ready";
    for (const char* timestamp : {"0\n", ""}) fault("h", "x", timestamp), settle();
    EXPECT_EQ(
        "D pelto hashid read error 2, hashchar[0]=0\n"
        "D pelto hashid read error 0, hashchar[0]=\n",
        said(kTag));
    EXPECT_EQ(std::pair(4, 3), seen());

    for (const char* id : {"1", "2", "3"}) fault(id, "x", "9\n", "1\n");
    for (int second = 0; second < 3; ++second) pause(1s);
    ASSERT_TRUE(waitForSleepers(1));
    EXPECT_EQ(std::pair(7, 3), seen()) << "one pass a second";
    EXPECT_EQ("", said(kTag));
    for (const char* control : {"1\n", "", "x0", "0\n"}) {
        phone().gpu().setControl(control);
        EXPECT_EQ(*control == '0', KelvoGpuMinidump::allowGpuDump()) << control;
    }
    advance(1s);
    ASSERT_TRUE(logs("EventID,410,Reason,3"));
    pause();
    settle();
    EXPECT_EQ(reported("3"), said(kTag)) << "the last one, once";
    EXPECT_EQ(std::pair(9, 5), seen());

    sim::Attributes::Faults faults;
    faults.readError = EIO;
    phone().attributes().setFaults(Gpu::kTimestamp, faults);
    fault("h");
    pause(1s);
    settle();
    EXPECT_EQ("D pelto hashid read error -1, hashchar[0]=\n", said(kTag));
    phone().gpu().vanish();
    for (int second = 0; second < 3; ++second) pause(1s);
    ASSERT_TRUE(waitForSleepers(1));
    EXPECT_EQ(std::pair(13, 6), seen());
    EXPECT_TRUE(logs(
        "gpu minidump control openfile error No such file or directory, sleep for a while!", 4));
}

TEST_F(GpuTest, CollectsAFaultIntoOneArchiveNamedByItsId) {
    phone().faults().fail("rm", 3);  // its files stay beside their archive
    collect("5a1f0c", "snapshot");

    const std::string path = kArchives + named("5a1f0c");
    EXPECT_THAT(commands(), ElementsAre("/system/bin/dmesg > " + path + "_dmesg1.txt",
                                        "logcat -d -v threadtime > " + path + "_android1.txt",
                                        "/system/bin/dmesg > " + path + "_dmesg2.txt",
                                        "logcat -d -v threadtime > " + path + "_android2.txt",
                                        "tar -czf " + path + ".tar.gz " + path + "*",
                                        "chmod 0777 " + path + ".tar.gz",
                                        "rm -rf " + path + "*.txt", "rm -rf " + path + "*.snap"));
    EXPECT_EQ("snapshot", contents(path + ".snap"));
    EXPECT_EQ(
        "101286\t134600\tgpuGrivoEvents\trenderthreadNoDraw\t1709647629000\t0\t3\tgpuMinidump\n",
        phone().stats().read());
    std::string comm;
    std::ifstream("/proc/self/task/" + std::to_string(log()[0].tid) + "/comm") >> comm;
    EXPECT_EQ("KelvoGpuMinidum", comm);
    EXPECT_EQ(reported("5a1f0c") + "D cmds: rm -rf " + path + "*.txt, 768\nD cmds: rm -rf " + path +
                  "*.snap, 768\n",
              said(kTag));

    const std::string digits(64, '7'), odd = "a b\n*;c|d&$(e)`f`>g", away = "a/../../../../../../x";
    // Timestamp, hash id and resulting id.
    const std::array<std::string, 3> cases[] = {{"77\n", "", "77"},
                                                {digits, "", digits.substr(1)},
                                                {"\n"},
                                                {"7\n", digits + "8", digits},
                                                {"7\n", odd, odd},
                                                {"7\n", away, away}};
    for (const auto& [timestamp, hashId, id] : cases) {
        collect(hashId, "x", timestamp);
        EXPECT_THAT(said(kTag), testing::StartsWith(reported(id)));
        EXPECT_THAT(commands().back(),
                    testing::StartsWith("rm -rf " + kArchives + "gpudump@" + id + "@" + kVersion));
    }
}

TEST_F(GpuTest, CollectsTheLastFaultOfACollectionAndPrunesAtTheEleventh) {
    fault("1");
    ASSERT_TRUE(waitForSleepers(1));
    fault("2");
    fault("3");  // before the second is read
    pause();
    ASSERT_TRUE(logs("EventID,410,Reason,3"));
    pause();
    settle();
    EXPECT_EQ(reported("1") + reported("3"), said(kTag));
    const long before = openFiles();
    for (int i = 4; i <= 11; ++i) collect(std::to_string(i));
    EXPECT_EQ(10u, names(kArchives).size());
    collect("12");
    EXPECT_EQ(0, monitor->getFileCount());
    EXPECT_TRUE(names(kArchives).empty());

    fs::remove_all(host(""));
    collect("missing");
    monitor->removefile();
    EXPECT_TRUE(logs("open kelvo dumpfile error: No such file or directory"));
    EXPECT_TRUE(logs("removefile opendir failed, error=No such file or directory"));
    EXPECT_EQ(1, monitor->getFileCount()) << "counted all the same";
    EXPECT_EQ(before, openFiles()) << "all are closed";
}

TEST_F(GpuTest, LogsAFailureAndCollectsTheRest) {
    phone().gpu().makeUnreadable(Gpu::kHashId);
    phone().gpu().makeUnreadable(Gpu::kDump);
    collect("h");
    EXPECT_EQ("D snapshot_hashid file open failed,error -1, Permission denied\n" + reported("9") +
                  "D open platform dumpfile error: Permission denied\n"
                  "D fopen platform dumpfile error=Permission denied\n",
              said(kTag));
    EXPECT_THAT(names(kArchives), ElementsAre(named("9") + ".tar.gz"));
    EXPECT_EQ("", phone().stats().read());
}

TEST_F(GpuTest, PrunesWhatIsNamedAnArchiveAmongTheFirstTwentyEntries) {
    for (const char* name : {"x.tar.gz.bak", "tar.gz", "a tar.gz b", "keep.tar", "keep.gz"})
        file(kArchives + name, "");
    mkdir(host("keep1.tar.gz").c_str(), 0700);
    // The type of a socket shares a bit with directories.
    mknod(host("keep2.tar.gz").c_str(), S_IFSOCK | 0600, 0);
    mknod(host("fifo.tar.gz").c_str(), S_IFIFO | 0600, 0);
    monitor->removefile();
    EXPECT_THAT(names(kArchives),
                ElementsAre("keep.gz", "keep.tar", "keep1.tar.gz", "keep2.tar.gz"));
    EXPECT_EQ(-4, monitor->getFileCount());

    fs::remove_all(host(""));
    for (int i = 0; i < 30; ++i) file(kArchives + std::to_string(i) + ".tar.gz", "");
    // In the directory's own order, with "." and "..".
    const int later =
        system(("cd " + host("") + " && exit $(ls -fa | tail -n +21 | grep -c tar)").c_str());
    monitor->removefile();
    EXPECT_EQ(WEXITSTATUS(later), names(kArchives).size());
}

TEST_F(GpuTest, CopiesTheDevicesBlocksOverWhatIsThere) {
    const size_t kMaxBytes = 41951232;
    phone().gpu().fault({"1\n", "", "1\n", Gpu::snapshotOf(kMaxBytes + 1)});
    EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile("/data/most"));
    EXPECT_EQ(kMaxBytes, fs::file_size(phone().fsDir() + "/data/most"));
    phone().gpu().fault({"1\n", "", "1\n", "new"});
    file("/data/copy", "older text");
    EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile("/data/copy"));
    EXPECT_EQ("newer text", contents("/data/copy"));
    // Short reads count as blocks.
    phone().gpu().fault({"1\n", "", "1\n", Gpu::snapshotOf(10243)});
    phone().gpu().shortenReads(1);
    umask(0);
    EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile("/data/short"));
    EXPECT_EQ(Gpu::snapshotOf(10242), contents("/data/short"));
    EXPECT_EQ(fs::perms::all, fs::status(phone().fsDir() + "/data/short").permissions());
}

TEST_F(GpuTest, WantsSixtyFourBytesForTheVersion) {
    char text[100] = "kept";
    KelvoGpuMinidump::getOtaVersion(nullptr, 64);
    KelvoGpuMinidump::getOtaVersion(text, 63);
    EXPECT_STREQ("kept", text);
    EXPECT_TRUE(logged("E KelvoGpuMinidump: getOtaVersion buf is null", 2));
    setReadOnly("ro.build.version.ota", std::string(91, 'v'));
    KelvoGpuMinidump::getOtaVersion(text, 64);
    EXPECT_EQ(std::string(63, 'v'), text);
}

}  // namespace
}  // namespace android
