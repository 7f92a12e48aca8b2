#include <filesystem>

#include "logcapture/KelvoWexRaiseException.h"
#include "logcapture/testing/capture_test.h"
#include "sim/clock.h"
#include "sim/reports.h"
#include "sim/root.h"

namespace android {
namespace {

using testing::EndsWith;

class ExceptionReportTest : public CaptureTest {
  protected:
    ExceptionReportTest() : CaptureTest("KelvoWexRaiseException") {}

    int raise(const std::string& info) {
        return make<KelvoWexRaiseException>(info)->WexRaiseException();
    }
    std::string recordOf(const std::string& info) {
        EXPECT_EQ(0, raise(info));
        return phone().reports().after(0).back().record;
    }
    void setWallSeconds(int64_t seconds) {
        holdClock();
        advance(std::chrono::nanoseconds(seconds * 1000000000 - sim::Clock::get().wallNanos()));
    }
};

TEST_F(ExceptionReportTest, TheRecordIsTheSameBytesOnEveryBuild) {
    using namespace std::string_literals;
    setWallSeconds(0x65a1b2c3);
    std::string expected =
        "\xc3\xb2\xa1\x65\0\0\0\0\x45\x63\x00\x10\0\0\0\0\0\0\0\0\0\0\0\0"
        "\x29\x02\0\0\x20\0\0\0name of it"s;
    expected.resize(288);
    EXPECT_EQ(expected, recordOf("A0345,43,/p/,/t/,name of it,more"));
    // The phone's seconds have 32 bits; the name always ends.
    setWallSeconds(0x80000001);
    expected = "\x01\0\0\x80\xff\xff\xff\xff\xad\x2b\x03\x10"s + std::string(20, '\0') +
               std::string(255, 'n') + '\0';
    EXPECT_EQ(expected, recordOf("f2bad,0,/p/,/t/," + std::string(4096, 'n')));
}

TEST_F(ExceptionReportTest, AnIdIsACategoryAndTheLowBitsOfItsNumber) {
    const std::string invalid = "E Invalid argument....\n", range = "E Out of Range error...\n";
    const std::string tooShort = "E getWexExceptionId: eventid is wrong\n";
    const struct {
        std::string id;
        uint32_t result;
        std::string line;
    } kCases[] = {{"A0345", 0x10006345, ""},
                  {"a2fff", 0x10032fff, ""},
                  {"A1345", 0x345, ""},
                  {"x2zzzz", 0x10032000, invalid},
                  {"zzzzz", 0, invalid},
                  {"A034", 0, tooShort},
                  {"", 0, tooShort},
                  {"7fffffff", 0xfff, ""},
                  {"80000000", 0x10006000, range},
                  {"f2345678", 0x10032000, range},
                  {"0x1234", 0x234, ""},
                  {"-0001", 0x10006fff, ""},
                  {" 0abc", 0x10006abc, ""},
                  {"12345 tail", 0x10032345, ""},
                  {"a0-12", 0x100060a0, ""},
                  {"a0" + std::string(4096, '0'), 0x10006000, range}};
    const auto reporter = make<KelvoWexRaiseException>("");
    said();
    for (const auto& [id, result, line] : kCases) {
        EXPECT_EQ(result, reporter->getWexExceptionId(String8(id))) << id;
        EXPECT_EQ(line, said()) << id;
    }
}

TEST_F(ExceptionReportTest, EachBitOfTheLogTypeHasItsLogsAndItsLine) {
    constexpr uint64_t kPcm = uint64_t{1} << 37;
    const struct {
        const char* type;
        uint64_t logs;
        const char* lines;
    } kCases[] = {{"1", 0x20, ""},
                  {"2", 0x1, ""},
                  {"4", 0, "V getWexAtomicLogs: STACK_TRACE, nothing need to do now\n"},
                  {"8", 0x208, ""},
                  {"16", 0x800, "D getWexAtomicLogs: SYSTRACE log\n"},
                  {"64", 0, "V getWexAtomicLogs: QXDM_LOG, nothing need to do now\n"},
                  {"128", 0x80, "D getWexAtomicLogs: ADSP_MINIDUMP_LOG log\n"},
                  {"288", kPcm,
                   "D getWexAtomicLogs: PCM_DUMP log, for pcm dump\n"
                   "D getWexAtomicLogs: PCM_DUMP log, for adsp txt log\n"},
                  {"000000256", kPcm, "D getWexAtomicLogs: PCM_DUMP log, for adsp txt log\n"},
                  {"0000000001", 0, ""},
                  {"512", 0, ""},
                  {"", 0, ""}};
    const auto reporter = make<KelvoWexRaiseException>("");
    said();
    for (const auto& [type, logs, lines] : kCases) {
        EXPECT_EQ(logs, reporter->getWexAtomicLogs(String8(type))) << type;
        EXPECT_EQ(lines, said()) << type;
    }
}

TEST_F(ExceptionReportTest, StackTracesCopyTheTombstones) {
    file("/data/tombstones/tombstone_00", "stack");
    std::filesystem::remove_all(phone().fsDir() + "/data/persist_log/wex");
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
V getTombstoneFiles cmd:chmod 0777 /data/persist_log/wex/exception_log/*
D ~KelvoWexRaiseException()
)",
              said());
    EXPECT_EQ(R"(chmod 0777 /data/persist_log/wex
chmod 0777 /data/persist_log/wex/exception_log
cp /data/tombstones/* /data/persist_log/wex/exception_log/
chmod 0777 /data/persist_log/wex/exception_log/*
)",
              ran());
    EXPECT_EQ("stack", contents("/data/persist_log/wex/exception_log/tombstone_00"));

    phone().root().fillDisk(true);
    make<KelvoWexRaiseException>("A0345,260,/p/,/t/,n");
    EXPECT_THAT(said(), EndsWith(R"(V checkPath : path /data/persist_log/wex/exception_log/ exist.
V getTombstoneFiles cmd:cp /data/tombstones/* /data/persist_log/wex/exception_log/
D cmds failed: cp /data/tombstones/* /data/persist_log/wex/exception_log/, err=256
V getTombstoneFiles cmd:chmod 0777 /data/persist_log/wex/exception_log/*
D ~KelvoWexRaiseException()
)"));
    ran();
    std::filesystem::remove_all(phone().fsDir() + "/data/persist_log/wex");
    make<KelvoWexRaiseException>("A0345,4,/p/,/t/,n");
    EXPECT_EQ(1, count(said(), "E checkPath : create path /data/persist_log/wex fail errno=28\n"));
    EXPECT_EQ("", ran()) << "without its directory nothing is copied";
}

TEST_F(ExceptionReportTest, InformationThatCannotBeReadIsReportedEmpty) {
    for (const char* info : {"", "A0345", "A0345,1,/p/,/t/", ",A0345,,1,,/p/,,/t/,"}) {
        const std::string record = recordOf(info);
        EXPECT_EQ(
            "E init, log info error!\nE getWexExceptionId: eventid is wrong\n"
            "D ~KelvoWexRaiseException()\n",
            said());
        EXPECT_EQ(std::string(280, '\0'), record.substr(8)) << info;
    }
}

TEST_F(ExceptionReportTest, AReportThatTheLibraryRefusesFails) {
    phone().reports().refuse(true);
    EXPECT_EQ(-1, raise("A0345,1,/p/,/t/,n"));
    EXPECT_EQ(1, count(said(), "E WexRaiseException: error, wex_raise_exception failed\n"));
    phone().reports().refuse(false);
    EXPECT_EQ(0, raise("A0345,1,/p/,/t/,n"));
    EXPECT_EQ(1u, phone().reports().after(0).size());
}

TEST_F(ExceptionReportTest, GuardsCommandLinesAgainstTheShell) {
    const auto reporter = make<KelvoWexRaiseException>("A0345,0,/p/,/t/,n");
    for (const char* line : {"a|b", "a&b", "a;b", "a`b", "a$b"}) {
        EXPECT_TRUE(reporter->isParamInvalid(String8(line))) << line;
    }
    EXPECT_FALSE(reporter->isParamInvalid(String8("rm -rf /data/x > 'y' \"z\" * ( ) < \\")));
}

}  // namespace
}  // namespace android
