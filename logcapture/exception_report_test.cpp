// Exception reports: the event, the record, its translated ids and log types, the tombstones.
#include "logcapture/KelvoPeltoLogWriter.h"
#include "logcapture/KelvoWexRaiseException.h"
#include "logcapture/testing/capture_test.h"
#include "sim/base/root.h"
#include "sim/userspace/reports.h"

namespace android {
namespace {

using namespace std::string_literals;

class ExceptionReportTest : public CaptureTest {
  protected:
    ExceptionReportTest() : CaptureTest("KelvoWexRaiseException") {}

    std::string recordOf(const std::string& info) {
        EXPECT_EQ(0, make<KelvoWexRaiseException>(info)->WexRaiseException());
        return phone().reports().after(0).back().record;
    }
};

TEST_F(ExceptionReportTest, ACaptureEventBecomesAReport) {
    const std::string type = "pelto_event_multimedia_capture_logs";
    const sp<KelvoPeltoLogWriter> writer = new KelvoPeltoLogWriter;
    file("/data/tombstones/tombstone_07", "stack");
    writer->handleEvent(type + " $A0345,7,/p/,/t/,not mine");
    report(type, "A0345,7,/p/,/t/,camera");
    report(type, "");
    ASSERT_TRUE(waitDestroyed("KelvoWexRaiseException", 2));
    const auto reports = phone().reports().after(0);
    ASSERT_EQ(2u, reports.size());
    EXPECT_THAT(reports[0].text(), EndsWith("id 0x10006345  camera  android log, kernel log"));
    EXPECT_THAT(reports[1].text(), EndsWith("id 0x00000000  (no name)  no logs"));
    EXPECT_EQ("stack", contents("/data/persist_log/wex/exception_log/tombstone_07"));
    EXPECT_EQ("D KelvoPeltoLogWriter()\n", PhoneTest::said("KelvoPeltoLogWriter"));
}

TEST_F(ExceptionReportTest, RaisesTheSameBytesOnEveryBuild) {
    holdClock(0x65a1b2c3s);
    std::string expected =
        "\xc3\xb2\xa1\x65\0\0\0\0\x45\x63\x00\x10\0\0\0\0\0\0\0\0\0\0\0\0"
        "\x29\x02\0\0\x20\0\0\0name of it"s;
    expected.resize(288);
    EXPECT_EQ(expected, recordOf("A0345,43,/p/,/t/,name of it,more"));
    // The phone's seconds have 32 bits; the name always ends.
    holdClock(0x80000001s);
    expected = "\x01\0\0\x80\xff\xff\xff\xff\xad\x2b\x03\x10"s + std::string(20, '\0') +
               std::string(255, 'n') + '\0';
    EXPECT_EQ(expected, recordOf("f2bad,0,/p/,/t/," + std::string(4096, 'n')));

    said();
    EXPECT_EQ(std::string(280, '\0'), recordOf(",A0345,,1,,/p/,,/t/,").substr(8));
    EXPECT_EQ(
        "E init, log info error!\nE getWexExceptionId: eventid is wrong\n"
        "D ~KelvoWexRaiseException()\n",
        said());
    phone().reports().refuse(true);
    EXPECT_EQ(-1, make<KelvoWexRaiseException>("A0345,1,/p/,/t/,n")->WexRaiseException());
    EXPECT_EQ(1, count(said(), "E WexRaiseException: error, wex_raise_exception failed\n"));
    EXPECT_EQ(3u, phone().reports().after(0).size());
}

TEST_F(ExceptionReportTest, TranslatesIdsAndLogTypes) {
    const auto reporter = make<KelvoWexRaiseException>("");
    said();
    std::string results;
    for (const char* id : {"a2fff", "A1345", "7fffffff", " 0abc", "a0-12", "x2zzzz", "zzzzz",
                           "80000000", "f2345678", "A034"})
        results += String8::format("%s=%x ", id, reporter->getWexExceptionId(String8(id))).c_str();
    EXPECT_EQ(
        "a2fff=10032fff A1345=345 7fffffff=fff  0abc=10006abc a0-12=100060a0 x2zzzz=10032000 "
        "zzzzz=0 80000000=10006000 f2345678=10032000 A034=0 ",
        results);
    EXPECT_EQ(
        "E Invalid argument....\nE Invalid argument....\nE Out of Range error...\n"
        "E Out of Range error...\nE getWexExceptionId: eventid is wrong\n",
        said());

    results.clear();
    for (const char* type :
         {"1", "2", "4", "8", "16", "64", "128", "288", "000000256", "0000000260", "512", ""}) {
        const auto logs = static_cast<long long>(reporter->getWexAtomicLogs(String8(type)));
        results += String8::format("%s=%llx ", type, logs).c_str();
    }
    EXPECT_EQ(
        "1=20 2=1 4=0 8=208 16=800 64=0 128=80 288=2000000000 000000256=2000000000 "
        "0000000260=0 512=0 =0 ",
        results);
    EXPECT_EQ(R"(V getWexAtomicLogs: STACK_TRACE, nothing need to do now
D getWexAtomicLogs: SYSTRACE log
V getWexAtomicLogs: QXDM_LOG, nothing need to do now
D getWexAtomicLogs: ADSP_MINIDUMP_LOG log
D getWexAtomicLogs: PCM_DUMP log, for pcm dump
D getWexAtomicLogs: PCM_DUMP log, for adsp txt log
D getWexAtomicLogs: PCM_DUMP log, for adsp txt log
)",
              said());
    EXPECT_TRUE(reporter->isParamInvalid(String8("a`b")));
    EXPECT_FALSE(reporter->isParamInvalid(String8("rm -rf /data/x > 'y' \"z\" * ( ) < \\")));
    EXPECT_EQ("E isParamInvalid, invalid param!\n", said());
}

TEST_F(ExceptionReportTest, CopiesTheTombstonesForAStackTrace) {
    const std::string copy = R"(cp /data/tombstones/* /data/persist_log/wex/exception_log/
chmod 0777 /data/persist_log/wex/exception_log/*
)";
    fs::remove_all(phone().fsDir() + "/data/persist_log/wex");
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
              said());
    EXPECT_EQ(
        "chmod 0777 /data/persist_log/wex\nchmod 0777 /data/persist_log/wex/exception_log\n" + copy,
        ran());
    make<KelvoWexRaiseException>("A0345,0000000260,/p/,/t/,n");
    EXPECT_EQ(copy, ran());
    EXPECT_EQ(1, count(said(), "V checkPath : path /data/persist_log/wex/exception_log/ exist.\n"));

    phone().root().fillDisk(true);
    fs::remove_all(phone().fsDir() + "/data/persist_log/wex");
    make<KelvoWexRaiseException>("A0345,4,/p/,/t/,n");
    EXPECT_EQ(1, count(said(), "E checkPath : create path /data/persist_log/wex fail errno=28\n"));
    EXPECT_EQ("", ran()) << "without its directory nothing is copied";
}

}  // namespace
}  // namespace android
