#include "sim/kernel/gpu.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>

#include <fstream>
#include <system_error>

#include "gpu/KelvoGpuMinidump.h"
#include "gpu/KelvoGpuMinidumpFactory.h"
#include "sim/base/line_file.h"
#include "sim/control/request.h"
#include "sim/control/server.h"
#include "sim/kernel/sysfs_attributes.h"
#include "sim/shell/shell.h"
#include "tests/support/phone_fixture.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using sim::Gpu;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr char kTag[] = "KelvoGpuMinidump";
const std::string kArchives = "/data/kelvo/mmdump/gpu/";
// Longer than the 64-byte buffers of some of its readers.
const std::string kVersion = "V12.1." + std::string(80, '0');

// The log lines of a reported fault: the service's, then the monitor's.
std::string reported(const std::string& id) {
    const std::string info = "EventID,410,Reason," + id + "\n";
    return "I pelto_event_peltoserver_feedback$" + info + "D " + info;
}

// Logs the events given to it.
class Service : public BnPeltoService {
  public:
    void setEvent(const String8& type, const String8& info) override {
        __android_log_print(ANDROID_LOG_INFO, kTag, "%s$%s", type.c_str(), info.c_str());
    }
    status_t registerNativeClient(const sp<IPeltoNativeClient>&) override { return OK; }
    void notifyVideoStutter(const String8&, int) override {}
    void updateSFStateFlag(bool) override {}
    void updateTopActivity(int64_t) override {}
    void setEventToNative(const String8&, const String8&) override {}
    void setDebugLog(bool) override {}
};

// A phone whose clock is held at 2024-03-05 14:07:09, its local time being UTC.
class GpuTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        monitor = &make();
        setenv("TZ", "UTC", 1);
        holdClock(1709647629s);
    }
    // Never destroyed: destroying a started monitor ends the process.
    KelvoGpuMinidump& make() {
        static auto& kept = *new std::vector<std::shared_ptr<KelvoGpuMinidump>>;
        return *kept.emplace_back(KelvoGpuMinidumpFactory::create());
    }
    void start() {
        setReadOnly("ro.build.version.ota", kVersion);
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
    bool logs(const std::string& text, int times = 1) {
        return waitLogged("D KelvoGpuMinidump: " + text, times);
    }
    // A read-only property can otherwise be set only once.
    void setReadOnly(const std::string& key, const std::string& value) {
        unlink((phone().runDir() + "/properties/" + key).c_str());
        ASSERT_TRUE(setProperty(key, value));
    }
    int polls() { return phone().attributes().polls(); }
    int dumpOpens() { return phone().attributes().opens(Gpu::kDump); }
    std::string host(const std::string& name) { return phone().fsDir() + kArchives + name; }
    // The content of the archived file whose name has this suffix.
    std::string packed(const std::string& archive, const std::string& ending) {
        const std::string tar =
            "tar --wildcards -xOzf '" + host(archive) + "' '*" + ending + "' > ";
        EXPECT_EQ(0, system((tar + phone().fsDir() + "/packed").c_str())) << archive;
        return contents("/packed");
    }
    static std::string named(const std::string& id) {
        return "gpudump@" + id + "@" + kVersion + "@_2024-03-05_14-07-09";
    }

    const sp<Service> service = new Service;
    KelvoGpuMinidump* monitor = nullptr;
};

TEST_F(GpuTest, RunsUnlessTheMemoryIsSmallAndOptimised) {
    for (const auto& [size, optimize, runs] :
         {std::tuple("4", "true", false), std::tuple(" 4GB", "1", false),
          std::tuple("4", "false", true), std::tuple("6", "true", true),
          std::tuple("", "true", true)}) {
        setReadOnly("ro.kelvo.memory.size", size);
        setReadOnly("ro.kelvo.mm_memory.optimize", optimize);
        forgetLog();
        KelvoGpuMinidump& made = make();
        EXPECT_EQ(runs, made.init(service)) << size << optimize;
        EXPECT_EQ(runs, made.init(nullptr)) << "a second call starts nothing";
        EXPECT_EQ(!runs, logged("I KelvoGpuMinidump: KelvoFennix isDisable4G set false"));
        EXPECT_EQ(runs, logged("D KelvoGpuMinidump: init 1"));
    }
}

// In child processes, since a monitor whose thread has ended cannot be destroyed.
TEST_F(GpuTest, EndsWithItsOwnerOrItsTimestampAndIsAnErrorWithoutAThread) {
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

    pthread_attr_t endless;
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, SIZE_MAX / 4 * 3);
    ASSERT_EQ(0, pthread_setattr_default_np(&endless));
    EXPECT_THROW(monitor->init(service), std::system_error);
    EXPECT_THROW(monitor->getLogBytread("name"), std::system_error);
    EXPECT_TRUE(commands().empty());
}

TEST_F(GpuTest, AnEventIsOnePassWhateverTheTimestampHolds) {
    start();
    EXPECT_EQ(2, polls()) << "an attribute never read is ready";
    EXPECT_EQ(1, dumpOpens());
    int passes = 2;
    for (const char* timestamp : {"0\n", ""}) {
        fault("h", "x", timestamp);
        settle();
        EXPECT_EQ(++passes, polls());
        EXPECT_EQ(passes - 1, dumpOpens()) << "also without a collection";
    }
    EXPECT_EQ(
        "D pelto hashid read error 2, hashchar[0]=0\nD pelto hashid read error 0, hashchar[0]=\n",
        said(kTag));
    collect("h");
    EXPECT_EQ(5, polls());
    EXPECT_EQ(4, dumpOpens() - 1) << "one of them the copy";
    EXPECT_EQ(1, monitor->getFileCount());
}

TEST_F(GpuTest, AFaultWaitsUnreadUntilDumpingIsAllowed) {
    start();
    for (const int faults : {1, 3}) {
        const int before = polls(), opens = dumpOpens();
        for (int i = 1; i <= faults; ++i) fault(std::to_string(i), "x", "9\n", "1\n");
        for (int second = 0; second < 3; ++second) {
            ASSERT_TRUE(waitForSleepers(1));
            EXPECT_EQ(before + second, polls()) << "one look a second";
            advance(1s);
        }
        ASSERT_TRUE(waitForSleepers(1));
        EXPECT_EQ(opens, dumpOpens());
        EXPECT_EQ("", said(kTag));
        phone().gpu().setControl("0\n");
        advance(1s);
        ASSERT_TRUE(logs("EventID,410,Reason," + std::to_string(faults)));
        pause();
        settle();
        EXPECT_EQ(reported(std::to_string(faults)), said(kTag)) << "the last one, once";
    }
    EXPECT_EQ(2, monitor->getFileCount());
    for (const char* control : {"0\n", "1\n", "", "x0"}) {
        phone().gpu().setControl(control);
        EXPECT_EQ(*control == '0', KelvoGpuMinidump::allowGpuDump()) << control;
    }
}

TEST_F(GpuTest, CollectsAFaultIntoOneArchive) {
    start();
    collect("5a1f0c", "snapshot");
    const std::string name = named("5a1f0c"), path = kArchives + name;
    EXPECT_THAT(commands(), ElementsAre("/system/bin/dmesg > " + path + "_dmesg1.txt",
                                        "logcat -d -v threadtime > " + path + "_android1.txt",
                                        "/system/bin/dmesg > " + path + "_dmesg2.txt",
                                        "logcat -d -v threadtime > " + path + "_android2.txt",
                                        "tar -czf " + path + ".tar.gz " + path + "*",
                                        "chmod 0777 " + path + ".tar.gz",
                                        "rm -rf " + path + "*.txt", "rm -rf " + path + "*.snap"));
    EXPECT_THAT(names(kArchives), ElementsAre(name + ".tar.gz"));
    EXPECT_EQ("snapshot", packed(name + ".tar.gz", ".snap"));
    EXPECT_THAT(packed(name + ".tar.gz", "_android1.txt"),
                testing::HasSubstr(" D KelvoGpuMinidump: EventID,410,Reason,5a1f0c\n"));
    EXPECT_EQ(
        "101286\t134600\tgpuGrivoEvents\trenderthreadNoDraw\t1709647629000\t0\t3\tgpuMinidump\n",
        phone().stats().read());
    std::string comm;
    std::ifstream("/proc/self/task/" + std::to_string(log().back().tid) + "/comm") >> comm;
    EXPECT_EQ("KelvoGpuMinidum", comm);
    EXPECT_EQ(reported("5a1f0c"), said(kTag));
}

TEST_F(GpuTest, ItsReaderIsAwaitedWhileTheClockIsMovedOn) {
    start();
    ASSERT_TRUE(phone().control().serve());
    fault("h");
    const sim::Fd waiting = sim::connectToControl(phone().runDir());
    send(waiting.get(), "gpu\0await-reader", 16, 0);
    EXPECT_TRUE(sim::controlRequest(phone().folder(), {"clock", "await-sleepers", "1"}).ok);
    EXPECT_TRUE(sim::controlRequest(phone().folder(), {"clock", "advance", "20"}).ok);
    char answer[100] = "";
    recv(waiting.get(), answer, sizeof(answer) - 1, 0);
    EXPECT_STREQ(".ok", answer);
}

TEST_F(GpuTest, IdsAreUsedAsRead) {
    start();
    const std::string digits(64, '7');
    using Case = std::array<std::string, 3>;  // timestamp, hash id, resulting id
    std::vector<Case> cases{
        {"77\n", "", "77"}, {digits, "", digits.substr(1)}, {"\n"}, {"7\n", digits + "8", digits}};
    for (const char* id : {"a/../../../../../../x", "h\n", "a b", "a/*", "a;b|c&$(d)`e`>f"})
        cases.push_back({"7\n", id, id});
    for (const auto& [timestamp, hashId, id] : cases) {
        forgetLog();
        collect(hashId, "x", timestamp);
        EXPECT_THAT(said(kTag), testing::StartsWith(reported(id)));
        EXPECT_THAT(commands().back(),
                    testing::StartsWith("rm -rf " + kArchives + "gpudump@" + id + "@" + kVersion));
    }
    EXPECT_EQ(9, monitor->getFileCount());
}

TEST_F(GpuTest, TenFaultsInARowTwoOfThemDuringACollection) {
    start();
    for (int i = 1; i <= 7; ++i) collect(std::to_string(i));
    fault("8");
    ASSERT_TRUE(waitForSleepers(1));
    fault("9");
    fault("10");  // before the ninth is read
    pause();
    ASSERT_TRUE(logs("EventID,410,Reason,10"));
    pause();
    settle();
    std::string expected;
    for (const char* id : {"1", "2", "3", "4", "5", "6", "7", "8", "10"}) expected += reported(id);
    EXPECT_EQ(expected, said(kTag));
    EXPECT_EQ(9, monitor->getFileCount());
    EXPECT_EQ(11, polls());

    collect("11");
    EXPECT_EQ(10u, names(kArchives).size());
    collect("12");
    EXPECT_EQ(0, monitor->getFileCount()) << "the eleventh has all of them removed";
    EXPECT_TRUE(names(kArchives).empty());
}

TEST_F(GpuTest, ADeviceThatFailsDoesNotSpin) {
    start();
    sim::Attributes::Faults faults;
    faults.readError = EIO;
    phone().attributes().setFaults(Gpu::kTimestamp, faults);
    for (int i = 1; i <= 3; ++i) {
        fault("h");
        ASSERT_TRUE(logs("pelto hashid read error -1, hashchar[0]=", i));
        ASSERT_TRUE(waitForSleepers(1));
        EXPECT_EQ(1 + i, polls());
        advance(1s);
        settle();
    }
    EXPECT_EQ(4, dumpOpens());

    const int before = polls();
    phone().gpu().vanish();
    const std::string gone = "gpu minidump control openfile error No such file or directory, ";
    for (int second = 0; second < 5; ++second) {
        ASSERT_TRUE(waitForSleepers(1));
        EXPECT_EQ(before + second, polls()) << "one pass a second";
        EXPECT_TRUE(logged("D KelvoGpuMinidump: " + gone + "sleep for a while!", second + 1));
        advance(1s);
    }
    ASSERT_TRUE(waitForSleepers(1));
    std::thread asking([] { EXPECT_FALSE(KelvoGpuMinidump::allowGpuDump()); });
    EXPECT_TRUE(waitForSleepers(2)) << "asked by others it pauses too";
    advance(1s);
    asking.join();
}

TEST_F(GpuTest, WhatFailsIsLoggedAndTheRestCollected) {
    start();
    phone().gpu().makeUnreadable(Gpu::kHashId);
    phone().gpu().makeUnreadable(Gpu::kDump);
    phone().faults().fail("chmod", 3);
    collect("h");
    const std::string archive = named("9") + ".tar.gz";
    const std::string chmod = "D cmds: chmod 0777 " + kArchives + archive + ", 768\n";
    EXPECT_EQ("D snapshot_hashid file open failed,error -1, Permission denied\n" + reported("9") +
                  "D open platform dumpfile error: Permission denied\n" + chmod +
                  "D fopen platform dumpfile error=Permission denied\n",
              said(kTag));
    EXPECT_NE("", packed(archive, "_android2.txt"));
    EXPECT_EQ("", phone().stats().read());
    phone().gpu().appear();

    const std::string gone = phone().fsDir() + "/gone";
    ASSERT_EQ(0, rename(host("").c_str(), gone.c_str()));
    collect("missing");
    monitor->removefile();
    EXPECT_TRUE(logs("open kelvo dumpfile error: No such file or directory"));
    EXPECT_TRUE(logs("removefile opendir failed, error=No such file or directory"));
    EXPECT_EQ(2, monitor->getFileCount()) << "counted all the same";
}

TEST_F(GpuTest, PrunesWhatIsNamedAnArchiveAmongTheFirstTwentyEntries) {
    for (const char* name : {"x.tar.gz.bak", "tar.gz", "a tar.gz b", "keep.tar", "keep.gz"})
        file(kArchives + name, "");
    mkdir(host("keep1.tar.gz").c_str(), 0700);
    mknod(host("keep2.tar.gz").c_str(), S_IFSOCK | 0600,
          0);  // its type shares a bit with directories
    mknod(host("fifo.tar.gz").c_str(), S_IFIFO | 0600, 0);
    int count = 0;
    for (const int archives : {0, 12, 25, 1000}) {
        for (int i = 0; i < archives; ++i) file(kArchives + std::to_string(i) + ".tar.gz", "");
        Texts expected = names(kArchives);
        DIR* directory = opendir(host("").c_str());
        const dirent* entry = readdir(directory);
        for (int i = 0; i < 20 && entry != nullptr; ++i, entry = readdir(directory)) {
            if (strchr(".k", entry->d_name[0]) != nullptr) continue;
            expected.erase(std::find(expected.begin(), expected.end(), entry->d_name));
            --count;
        }
        closedir(directory);
        monitor->removefile();
        EXPECT_EQ(expected, names(kArchives));
        EXPECT_EQ(count, monitor->getFileCount());
    }
}

TEST_F(GpuTest, CopiesTheDevicesBlocksOverWhatIsThere) {
    const size_t kMaxBytes = 41951232;
    for (const size_t size : {size_t{0}, size_t{1}, size_t{4095}, size_t{4096}, size_t{4097},
                              kMaxBytes, kMaxBytes + 1}) {
        const std::string path = "/data/" + std::to_string(size), snapshot = Gpu::snapshotOf(size);
        fault("", snapshot);
        EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile(path.c_str()));
        EXPECT_TRUE(snapshot.substr(0, kMaxBytes) == contents(path)) << size;
    }
    fault("", "new");
    file("/data/copy", "older text");
    EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile("/data/copy"));
    EXPECT_EQ("newer text", contents("/data/copy"));
    // Short reads count as blocks.
    fault("", Gpu::snapshotOf(10243));
    phone().gpu().shortenReads(1);
    umask(0);
    EXPECT_TRUE(KelvoGpuMinidump::copyDumpFile("/data/short"));
    EXPECT_EQ(Gpu::snapshotOf(10242), contents("/data/short"));
    struct stat status;
    EXPECT_EQ(0, stat((phone().fsDir() + "/data/short").c_str(), &status));
    EXPECT_EQ(0777u, status.st_mode & 07777u);
}

TEST_F(GpuTest, TimeAndVersionWantSixtyFourBytes) {
    char text[100] = "kept";
    EXPECT_EQ(-1, KelvoGpuMinidump::getCurrentTime(text, 63));
    KelvoGpuMinidump::getOtaVersion(nullptr, 64);
    KelvoGpuMinidump::getOtaVersion(text, 63);
    EXPECT_STREQ("kept", text);
    EXPECT_TRUE(logged("E KelvoGpuMinidump: Invalid time buffer"));
    EXPECT_TRUE(logged("E KelvoGpuMinidump: getOtaVersion buf is null", 2));
    setReadOnly("ro.build.version.ota", std::string(91, 'v'));
    KelvoGpuMinidump::getOtaVersion(text, 64);
    EXPECT_EQ(std::string(63, 'v'), text);
}

}  // namespace
}  // namespace android
