// The parts of the phone that a capture of logs uses: the reporting library, tombstones, the audio
// dump service, a full disk.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "phone/phone.h"
#include "sim/base/root.h"
#include "sim/shell/shell.h"
#include "sim/userspace/reports.h"
#include "sim/userspace/tombstones.h"
#include "tests/support/phone_fixture.h"

using testing::ElementsAre;
using testing::EndsWith;

class CaptureSideTest : public PhoneTest {
  protected:
    static std::string record(const std::string& name, const std::string& logs = "") {
        std::string bytes(288, '\0');
        bytes.replace(8, 4, "\x45\x63\0\x10", 4);
        bytes.replace(24, logs.size(), logs);
        bytes.replace(32, name.size(), name);
        return bytes;
    }
    sim::Reports& reports() { return phone().reports(); }
};

TEST_F(CaptureSideTest, ReportsAreKeptByteForByte) {
    const sim::Fd watch = reports().watch();
    pollfd ready{watch.get(), POLLIN, 0};
    EXPECT_EQ(0, poll(&ready, 1, 0));
    EXPECT_EQ(1u, reports().add(record("first\n")));
    EXPECT_EQ(2u, reports().add(record(std::string(256, 'n'), {"\x25\x02\0\0\x20", 5})));
    EXPECT_EQ(1, poll(&ready, 1, 0));
    EXPECT_EQ(0u, reports().add("too short"));
    std::ofstream(phone().runDir() + "/reports/00000003.report") << "half";

    const auto all = reports().after(0);
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(record("first\n"), all[0].record);
    EXPECT_THAT(all[0].text(), EndsWith("id 0x10006345  first?  no logs"));
    EXPECT_EQ(std::string(256, 'n'), all[1].name);
    EXPECT_THAT(all[1].logNames(),
                ElementsAre("android log", "kernel log", "pcm dump or adsp text log", "0x204"));
    EXPECT_THAT(reports().after(1), testing::SizeIs(1));
}

TEST_F(CaptureSideTest, TheLatestReportsStay) {
    for (unsigned i = 1; i <= sim::Reports::kMaxKept + 2; ++i)
        EXPECT_EQ(i, reports().add(record("n")));
    EXPECT_THAT(reports().after(0), testing::SizeIs(sim::Reports::kMaxKept));
    EXPECT_EQ(3u, reports().after(0).front().number);
}

TEST_F(CaptureSideTest, TombstonesTakeTheNextNameAndThenTheOldest) {
    for (int i = 0; i < 32; ++i)
        EXPECT_NE("", writeTombstone(phone().root(), {"audioserver", 400 + i, 6, "no\nline"}));
    EXPECT_EQ("/data/tombstones/tombstone_00",
              writeTombstone(phone().root(), {"media", 500, 11, "r"}));
    phone().root().fillDisk(true);
    EXPECT_EQ("", writeTombstone(phone().root(), {}));
    EXPECT_EQ(32u, names("/data/tombstones").size());
    EXPECT_THAT(contents("/data/tombstones/tombstone_31"),
                testing::ContainsRegex("pid: 431, tid: 431, name: audioserver  >>> "
                                       "/system/bin/audioserver <<<\nsignal 6 (.|\n)*'no.line'"));
}

TEST_F(CaptureSideTest, TheAudioDumpServiceWritesAWholeFilePerStartOrNone) {
    const std::string directory = "/data/persist_log/TMP/audio_dumpsys/";
    const auto start = [&] {
        EXPECT_TRUE(setProperty("ctl.start", "audiodumpinfo"));
        phone().services().awaitStopped();
        return names(directory);
    };
    holdClock();
    setProperty("kelvo.audio.dumpinfo.type", "../a b");
    std::string taken = start().at(0);
    EXPECT_THAT(contents(directory + taken),
                testing::AllOf(testing::StartsWith("dump type: ../a b\n"),
                               testing::HasSubstr("DUMP OF SERVICE media.audio_policy:\nAudioP")));
    file(directory + taken.replace(taken.rfind("-1-"), 3, "-2-"), "of another process");
    EXPECT_THAT(start(), ElementsAre(EndsWith("-1-___a_b.txt"), taken, EndsWith("-3-___a_b.txt")));
    using Case = std::pair<const char*, size_t>;
    for (const auto& [fault, files] :
         {Case("fault program audiodumpinfo fail 3", 3), Case("fault program audiodumpinfo run", 4),
          Case("fault disk full", 4)}) {
        EXPECT_EQ("ok", tell(fault));
        EXPECT_THAT(start(), testing::SizeIs(files)) << fault;
    }
    EXPECT_TRUE(logged("W init: Service 'audiodumpinfo' exited with status 3"));
    EXPECT_THAT(said("audiodumpinfo"), EndsWith("-5-___a_b.txt: No space left on device\n"));
    phone().services().add("audiodumpinfo", nullptr);
    EXPECT_FALSE(setProperty("ctl.start", "audiodumpinfo")) << "it can be missing";
}

TEST_F(CaptureSideTest, AFullDiskTakesNamesButNothingElse) {
    file("/data/x/mine", "mine");
    phone().root().fillDisk(true);
    EXPECT_EQ(-1, phone::mkdir("/data/new", 0700));
    EXPECT_EQ(ENOSPC, errno);
    const sim::Fd fd(phone::open("/data/x/new", O_WRONLY | O_CREAT, 0600));
    EXPECT_EQ(-1, write(fd.get(), "1", 1));
    EXPECT_EQ(ENOSPC, errno);
    for (const char* command : {"dumpsys audio > /data/x/dump", "cp /data/x/mine /data/x/copy",
                                "tar -czf /data/x/a.tar.gz /data/x"}) {
        EXPECT_NE(0, phone::system(command)) << command;
    }
    EXPECT_EQ("mine",
              contents("/data/x/new") + contents("/data/x/dump") + contents("/data/x/mine"));
    EXPECT_EQ(0, phone::system("rm -rf /data/x/new"));
    phone().root().fillDisk(false);
    EXPECT_EQ(0, phone::system("cp /data/x/mine /data/x/copy"));
}

TEST_F(CaptureSideTest, FaultsAreSetFromAnotherProcess) {
    EXPECT_EQ("ok", tell("fault reports refuse"));
    EXPECT_EQ(0u, reports().add(record("n")));
    for (const std::string wrong : {"fault", "fault disk", "fault program dmesg fail 0",
                                    "fault program dmesg fail 256", "fault reports take more"}) {
        EXPECT_NE("ok", tell(wrong)) << wrong;
    }
}
