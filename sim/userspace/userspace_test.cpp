// The parts of the phone that a capture of logs uses: the reporting library, tombstones, the audio
// dump service, a full disk.
#include <fcntl.h>
#include <gmock/gmock.h>

#include "phone/phone.h"
#include "sim/base/fd.h"
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

TEST_F(CaptureSideTest, ReportsAreKeptByteForByteUpToABound) {
    EXPECT_EQ(1u, reports().add(record("first\n")));
    EXPECT_EQ(2u, reports().add(record(std::string(256, 'n'), {"\x25\x02\0\0\x20", 5})));
    EXPECT_EQ(0u, reports().add("too short"));
    EXPECT_EQ("ok", tell("fault reports refuse"));
    EXPECT_EQ(0u, reports().add(record("n")));
    EXPECT_EQ("ok", tell("fault reports take"));
    {
        const sim::Fd hung(::open((phone().runDir() + "/reports").c_str(), O_RDONLY));
        const sim::FileLock lock(hung.get());
        EXPECT_EQ(0u, reports().add(record("n"))) << "another process keeps the lock";
    }

    auto all = reports().after(0);
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(record("first\n"), all[0].record);
    EXPECT_THAT(all[0].text(), EndsWith("id 0x10006345  first?  no logs"));
    EXPECT_EQ(std::string(256, 'n'), all[1].name);
    EXPECT_THAT(all[1].logNames(),
                ElementsAre("android log", "kernel log", "pcm dump or adsp text log", "0x204"));

    for (unsigned i = 3; i <= sim::Reports::kMaxKept; ++i)
        file("/../run/reports/0000" + std::to_string(10000 + i).substr(1) + ".report", "half");
    EXPECT_EQ(sim::Reports::kMaxKept + 1, reports().add(record("n")));
    all = reports().after(0);
    ASSERT_EQ(2u, all.size()) << "the oldest has gone, and half ones are skipped";
    EXPECT_EQ(2u, all[0].number);
    EXPECT_THAT(reports().after(2), testing::SizeIs(1));
}

TEST_F(CaptureSideTest, ATombstoneTakesTheNextNameUnlessTheDiskIsFull) {
    const sim::Crash crash{"audioserver", 431, 6, "no\nline"};
    EXPECT_EQ("/data/tombstones/tombstone_00", writeTombstone(phone().root(), crash));
    EXPECT_EQ("/data/tombstones/tombstone_01", writeTombstone(phone().root(), crash));
    EXPECT_THAT(contents("/data/tombstones/tombstone_01"),
                testing::ContainsRegex("pid: 431, tid: 431, name: audioserver  >>> "
                                       "/system/bin/audioserver <<<\nsignal 6 (.|\n)*'no.line'"));
    phone().root().fillDisk(true);
    EXPECT_EQ("", writeTombstone(phone().root(), crash));
    EXPECT_THAT(names("/data/tombstones"), testing::SizeIs(2));
    EXPECT_EQ(-1, phone::mkdir("/data/new", 0700));
    EXPECT_NE(0, phone::system("tar -czf /data/a.tar.gz /data/tombstones"));
    EXPECT_EQ(0, phone::system("rm /data/tombstones/tombstone_00"));
}

TEST_F(CaptureSideTest, TheAudioDumpServiceWritesAWholeFileOrNone) {
    const std::string directory = "/data/persist_log/TMP/audio_dumpsys/";
    const auto start = [&] {
        EXPECT_TRUE(setProperty("ctl.start", "audiodumpinfo"));
        phone().services().awaitStopped();
        return names(directory);
    };
    holdClock();
    setProperty("kelvo.audio.dumpinfo.type", "../a b");
    EXPECT_THAT(contents(directory + start().at(0)),
                testing::AllOf(testing::StartsWith("dump type: ../a b\n"),
                               testing::HasSubstr("DUMP OF SERVICE media.audio_policy:\nAudioP")));
    EXPECT_EQ("ok", tell("fault program audiodumpinfo fail 3"));
    EXPECT_THAT(start(), testing::SizeIs(1));
    EXPECT_TRUE(logged("W init: Service 'audiodumpinfo' exited with status 3"));
    EXPECT_EQ("ok", tell("fault program audiodumpinfo run"));
    EXPECT_THAT(start(), ElementsAre(EndsWith("-1-___a_b.txt"), EndsWith("-2-___a_b.txt")));
    EXPECT_EQ("ok", tell("fault disk full"));
    EXPECT_THAT(start(), testing::SizeIs(2));
    EXPECT_THAT(said("audiodumpinfo"), EndsWith("-3-___a_b.txt: No space left on device\n"));
}
