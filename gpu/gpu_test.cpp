#include "sim/gpu.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <fstream>
#include <system_error>

#include "gpu/KelvoGpuMinidump.h"
#include "gpu/KelvoGpuMinidumpFactory.h"
#include "sim/attributes.h"
#include "sim/clock.h"
#include "sim/line_file.h"
#include "sim/shell.h"
#include "tests/support/phone_test.h"

namespace android {
namespace {

using namespace std::chrono_literals;
using sim::Gpu;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr char kTag[] = "KelvoGpuMinidump";
const std::string kArchives = "/data/kelvo/mmdump/gpu/";
// Longer than the 64 bytes that other readers of it have.
const std::string kVersion = "V12.1." + std::string(80, '0');
const std::string kEvent = "pelto_event_peltoserver_feedback$EventID,410,Reason,";

// Notes the events given to it.
class Service : public BnPeltoService {
  public:
    void setEvent(const String8& type, const String8& info) override {
        events.push_back(std::string(type.c_str()) + '$' + info.c_str());
    }
    status_t registerNativeClient(const sp<IPeltoNativeClient>&) override { return OK; }
    void notifyVideoStutter(const String8&, int) override {}
    void updateSFStateFlag(bool) override {}
    void updateTopActivity(int64_t) override {}
    void setEventToNative(const String8&, const String8&) override {}
    void setDebugLog(bool) override {}
    Texts events;  // read only while the monitor waits
};

// A phone whose clock is held at 2024-03-05 14:07:09, its local time being UTC.
class GpuTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        monitor = &make();
        setenv("TZ", "UTC", 1);
        holdClock();
        advance(1709647629s - std::chrono::nanoseconds(sim::Clock::get().wallNanos()));
    }
    // Never destroyed: with a started monitor that ends the process.
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
        return waitLogged(ANDROID_LOG_DEBUG, kTag, text, times);
    }
    // A read-only property is otherwise set once in a phone's life.
    void setReadOnly(const std::string& key, const std::string& value) {
        unlink((phone().runDir() + "/properties/" + key).c_str());
        ASSERT_TRUE(setProperty(key, value));
    }
    int polls() { return phone().attributes().polls(); }
    int dumpOpens() { return phone().attributes().opens(Gpu::kDump); }
    std::string host(const std::string& name) { return phone().fsDir() + kArchives + name; }
    // The file in an archive whose name ends so.
    std::string packed(const std::string& archive, const std::string& ending) {
        const std::string tar = "tar --wildcards -xOzf '" + host(archive) + "' '*" + ending + "'";
        FILE* out = popen(tar.c_str(), "r");
        std::string text, block(65536, '\0');
        while (const size_t got = fread(block.data(), 1, block.size(), out))
            text.append(block, 0, got);
        EXPECT_EQ(0, pclose(out)) << archive;
        return text;
    }

    const sp<Service> service = new Service;
    KelvoGpuMinidump* monitor = nullptr;
};

TEST_F(GpuTest, RunsUnlessTheMemoryIsSmallAndOptimised) {
    struct Case {
        const char *size, *optimize;
        bool runs;
    };
    for (const Case& c : {Case{"4", "true", false},
                          {" 4GB", "1", false},
                          {"4", "false", true},
                          {"6", "true", true},
                          {"", "true", true}}) {
        setReadOnly("ro.kelvo.memory.size", c.size);
        setReadOnly("ro.kelvo.mm_memory.optimize", c.optimize);
        forgetLog();
        KelvoGpuMinidump& made = make();
        EXPECT_EQ(c.runs, made.init(service)) << c.size << c.optimize;
        EXPECT_EQ(c.runs, made.init(nullptr)) << "a second call starts nothing";
        EXPECT_EQ(!c.runs, logged(ANDROID_LOG_INFO, kTag, "KelvoFennix isDisable4G set false"));
        EXPECT_EQ(c.runs, logged(ANDROID_LOG_DEBUG, kTag, "init 1"));
    }
}

// In processes of their own, as nobody may join the monitor's thread when it has ended.
TEST_F(GpuTest, EndsWithItsOwnerOrItsTimestamp) {
    EXPECT_DEATH(KelvoGpuMinidumpFactory::create()->init(service), "terminate called");
    const auto expectEnd = [&](const char* line) {
        EXPECT_EXIT(
            {
                if (make().init(service) && logs(line)) raise(SIGKILL);
                _exit(1);
            },
            testing::KilledBySignal(SIGKILL), "");
    };
    sim::Attributes::Faults faults;
    faults.pollError = EINTR;
    phone().attributes().setFaults(Gpu::kTimestamp, faults);
    expectEnd("pelto hashid poll error");
    phone().gpu().makeUnreadable(Gpu::kTimestamp);
    expectEnd("gpu timestamp file open failed,error -1, Permission denied");
}

TEST_F(GpuTest, AThreadThatCannotBeCreatedIsASystemError) {
    pthread_attr_t endless;
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, SIZE_MAX / 4 * 3);
    ASSERT_EQ(0, pthread_setattr_default_np(&endless));
    EXPECT_THROW(monitor->init(service), std::system_error);
    EXPECT_THROW(monitor->getLogBytread("name"), std::system_error);
    EXPECT_TRUE(commands().empty());
}

TEST_F(GpuTest, AnEventIsOnePassAllowedOrNot) {
    start();
    EXPECT_EQ(2, polls()) << "an attribute never read is ready";
    EXPECT_EQ(1, dumpOpens());
    fault("h", "x", "5\n", "1\n");
    settle();
    EXPECT_EQ(3, polls());
    EXPECT_EQ(1, dumpOpens());
    EXPECT_THAT(logLines(kTag), ElementsAre());
    fault("h", "x", "0\n");
    settle();
    EXPECT_EQ(4, polls());
    EXPECT_EQ(2, dumpOpens()) << "acknowledged without a collection";
    fault("h", "x", "");
    settle();
    EXPECT_THAT(logLines(kTag), ElementsAre("pelto hashid read error 2, hashchar[0]=0",
                                            "pelto hashid read error 0, hashchar[0]="));
    collect("h");
    EXPECT_EQ(6, polls());
    EXPECT_EQ(5, dumpOpens());
    EXPECT_EQ(1, monitor->getFileCount());
}

TEST_F(GpuTest, CollectsAFaultIntoOneArchive) {
    start();
    collect("5a1f0c", "snapshot");
    const std::string name = "gpudump@5a1f0c@" + kVersion + "@_2024-03-05_14-07-09",
                      path = kArchives + name;
    EXPECT_THAT(commands(), ElementsAre("/system/bin/dmesg > " + path + "_dmesg1.txt",
                                        "logcat -d -v threadtime > " + path + "_android1.txt",
                                        "/system/bin/dmesg > " + path + "_dmesg2.txt",
                                        "logcat -d -v threadtime > " + path + "_android2.txt",
                                        "tar -czf " + path + ".tar.gz " + path + "*",
                                        "chmod 0777 " + path + ".tar.gz",
                                        "rm -rf " + path + "*.txt", "rm -rf " + path + "*.snap"));
    EXPECT_THAT(names(kArchives), ElementsAre(name + ".tar.gz"));
    EXPECT_EQ("snapshot", packed(name + ".tar.gz", ".snap"));
    const std::string feedback = "EventID,410,Reason,5a1f0c";
    for (const char* log : {"_android1.txt", "_android2.txt"}) {
        EXPECT_THAT(packed(name + ".tar.gz", log),
                    testing::HasSubstr(" D KelvoGpuMinidump: " + feedback + "\n"));
    }
    EXPECT_THAT(service->events, ElementsAre(kEvent + "5a1f0c"));
    EXPECT_THAT(logLines(kTag), ElementsAre(feedback));
    EXPECT_EQ(
        "101286\t134600\tgpuGrivoEvents\trenderthreadNoDraw\t1709647629000\t0\t3\tgpuMinidump\n",
        phone().stats().read());
    std::string comm;
    std::ifstream("/proc/self/task/" + std::to_string(log().front().tid) + "/comm") >> comm;
    EXPECT_EQ("KelvoGpuMinidum", comm);
}

TEST_F(GpuTest, TheArchiveHoldsTheDevicesBytes) {
    start();
    const size_t kMost = 41951232;
    for (const size_t size :
         {size_t{0}, size_t{1}, size_t{4095}, size_t{4096}, size_t{4097}, kMost, kMost + 1}) {
        const std::string snapshot = Gpu::snapshotOf(size);
        collect("h", snapshot);
        const std::string archive = names(kArchives).at(0);
        EXPECT_TRUE(snapshot.substr(0, kMost) == packed(archive, ".snap")) << size;
        unlink(host(archive).c_str());
    }
}

TEST_F(GpuTest, IdsAreUsedAsRead) {
    start();
    file(kArchives + "keep", "");
    file(kArchives + "gpudump@a/b", "");  // a directory for the ids that lead through one
    const Texts before = names("/data");
    struct Case {
        std::string timestamp, hashId, id;
    };
    const std::string digits(64, '7');
    int collected = 0;
    for (const Case& c : {Case{"77\n", "", "77"},
                          {digits, "", digits.substr(1)},
                          {"\n", "", ""},
                          {"7\n", digits + "8", digits},
                          {"7\n", "a/../../../../../../x", "a/../../../../../../x"},
                          {"7\n", "h\n", "h\n"},
                          {"7\n", "a b", "a b"},
                          {"7\n", "a/*", "a/*"},
                          {"7\n", "a;b|c&$(d)`e`>f", "a;b|c&$(d)`e`>f"}}) {
        collect(c.hashId, "x", c.timestamp);
        EXPECT_EQ(kEvent + c.id, service->events.back());
        EXPECT_EQ(0u, commands().back().find("rm -rf " + kArchives + "gpudump@" + c.id + "@" +
                                             kVersion + "@_"));
        EXPECT_EQ(++collected, monitor->getFileCount());
        EXPECT_EQ(before, names("/data"));
        EXPECT_TRUE(exists(kArchives + "keep"));
    }
    EXPECT_TRUE(logs("open kelvo dumpfile error: Invalid cross-device link"));
    EXPECT_NE(0, access((phone().folder() + "/x").c_str(), F_OK));
}

TEST_F(GpuTest, TenFaultsInARowTwoOfThemDuringACollection) {
    start();
    Texts expected;
    for (int i = 1; i <= 8; ++i) {
        expected.push_back(kEvent + std::to_string(i));
        i < 8 ? collect(std::to_string(i)) : fault("8");
    }
    ASSERT_TRUE(waitForSleepers(1));
    fault("9");
    fault("10");  // before anybody has looked at the ninth
    pause();
    expected.push_back(kEvent + "10");
    ASSERT_TRUE(logs("EventID,410,Reason,10"));
    pause();
    settle();
    EXPECT_EQ(expected, service->events);
    EXPECT_EQ(9, monitor->getFileCount());
    EXPECT_EQ(9u, names(kArchives).size());
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
    int seconds = 0;
    const std::string gone =
        "gpu minidump control openfile error No such file or directory, sleep for a while!";
    for (; !logged(ANDROID_LOG_DEBUG, kTag, gone, 5); ++seconds) pause(1s);
    EXPECT_LE(polls(), before + seconds);
}

TEST_F(GpuTest, WhatFailsIsLoggedAndTheRestCollected) {
    start();
    phone().gpu().makeUnreadable(Gpu::kHashId);
    phone().gpu().makeUnreadable(Gpu::kDump);
    phone().shell().fail("chmod", 3);
    collect("h");
    const std::string archive = "gpudump@9@" + kVersion + "@_2024-03-05_14-07-09.tar.gz";
    EXPECT_THAT(
        logLines(kTag),
        ElementsAre("snapshot_hashid file open failed,error -1, Permission denied",
                    "EventID,410,Reason,9", "open platform dumpfile error: Permission denied",
                    "cmds: chmod 0777 " + kArchives + archive + ", 768",
                    "fopen platform dumpfile error=Permission denied"));
    EXPECT_NE("", packed(archive, "_android2.txt"));
    EXPECT_EQ("", phone().stats().read());
    phone().gpu().appear();

    // A full disk: no file takes a byte.
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit none = {0, RLIM_INFINITY}, all = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
    collect("full");
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &all));
    EXPECT_THAT(logLines(kTag), testing::Contains(testing::StartsWith("cmds: tar")));

    const std::string gone = phone().fsDir() + "/gone";
    ASSERT_EQ(0, rename(host("").c_str(), gone.c_str()));
    collect("missing");
    monitor->removefile();
    EXPECT_TRUE(logs("removefile opendir failed, error=No such file or directory"));
    EXPECT_EQ(3, monitor->getFileCount());
    ASSERT_EQ(0, rename(gone.c_str(), host("").c_str()));

    phone().gpu().vanishAfter(10000);
    fault("half", Gpu::snapshotOf(20000));
    pause();
    EXPECT_TRUE(logs("fopen platform dumpfile error=No such file or directory"));
    EXPECT_EQ(Gpu::snapshotOf(10000),
              packed("gpudump@half@" + kVersion + "@_2024-03-05_14-08-09.tar.gz", ".snap"));
}

TEST_F(GpuTest, PrunesWhatIsNamedAnArchiveAmongTheFirstTwentyEntries) {
    for (const char* name : {"x.tar.gz.bak", "tar.gz", "a tar.gz b", "keep.tar", "keep.gz"})
        file(kArchives + name, "");
    mkdir(host("keep1.tar.gz").c_str(), 0700);
    mknod(host("keep2.tar.gz").c_str(), S_IFSOCK | 0600, 0);  // has a directory's bit too
    mknod(host("fifo.tar.gz").c_str(), S_IFIFO | 0600, 0);
    monitor->removefile();
    EXPECT_EQ((Texts{"keep.gz", "keep.tar", "keep1.tar.gz", "keep2.tar.gz"}), names(kArchives));
    int count = -4;
    EXPECT_EQ(count, monitor->getFileCount());

    for (const int archives : {0, 12, 25, 1000}) {
        for (int i = 0; i < archives; ++i) file(kArchives + std::to_string(i) + ".tar.gz", "");
        Texts expected = names(kArchives);
        DIR* directory = opendir(host("").c_str());
        for (int i = 0; i < 20; ++i) {
            const dirent* entry = readdir(directory);
            const std::string name = entry == nullptr ? "." : entry->d_name;
            if (name[0] == '.' || name[0] == 'k') continue;
            expected.erase(std::find(expected.begin(), expected.end(), name));
            --count;
        }
        closedir(directory);
        monitor->removefile();
        EXPECT_EQ(expected, names(kArchives));
        EXPECT_EQ(count, monitor->getFileCount());
    }
}

TEST_F(GpuTest, CopiesBlocksOverWhatIsThere) {
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
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "Invalid time buffer"));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "getOtaVersion buf is null", 2));
    EXPECT_EQ(0, KelvoGpuMinidump::getCurrentTime(text, 64));
    EXPECT_STREQ("_2024-03-05_14-07-09", text);
    setReadOnly("ro.build.version.ota", std::string(91, 'v'));
    KelvoGpuMinidump::getOtaVersion(text, 64);
    EXPECT_EQ(std::string(63, 'v'), text);
    advance(-1709647629s);
    EXPECT_EQ(-1, KelvoGpuMinidump::getCurrentTime(text, 64));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, kTag, "Unable to get time"));
}

}  // namespace
}  // namespace android
