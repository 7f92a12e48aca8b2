// The errors of the programs: exit code and one line that says why.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/service_fixture.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

struct Refusal {
    Program::Words words;
    int code;
    std::string why;
};

using RefusalsTest = ServiceTest;

TEST_F(RefusalsTest, wrongUsageComesFirst) {
    const Refusal cases[] = {
        {{"paint"}, 2, "paint"},
        {{"phone", "stp"}, 2, "stp"},
        {{"phone"}, 2, "verb"},
        {{"send"}, 2, "TYPE"},
        {{"send", "a", "--stdin"}, 2, "TYPE"},
        {{"debug", "perhaps"}, 2, "perhaps"},
        {{"watch", "--count", "-1"}, 2, "--count"},
        {{"logcat", "-d", "a:b:c"}, 2, "filter"},
        {{"logcat", "--until", "a("}, 2, "expression"},
        {{"capture"}, 2, "ID is required"},
        {{"capture", "a,b"}, 2, "neither ','"},
        {{"capture", "A0345", "--name", ""}, 2, "--name"},
        {{"capture", "A0345", "--dir", "/data/$x"}, 2, "--dir"},
        {{"capture", "A0345", "--logs", "android,paint"}, 2, "paint"},
        {{"capture", "A0345", "--name", std::string(1000, 'x')}, 2, "too long"},
        {{"audio-dump", ""}, 2, "from 1 to 91 bytes"},
        {{"audio-dump", std::string(92, 'x')}, 2, "from 1 to 91 bytes"},
        {{"audio-dump", "a$b"}, 2, "no '$'"},
        {{"reports", "--count", "1"}, 2, "--follow"},
        {{"reports", "--follow", "--count", "1", "--timeout", "0.01"}, 5, "0 of 1"},
        {{"stutter", "HwuiDetect", "many"}, 2, "GAP"},
        {{"sf-state", "perhaps"}, 2, "perhaps"},
        {{"top-activity", "soon"}, 2, "MS"},
        {{"kernel", "paint"}, 2, "paint"},
        {{"archives"}, 2, "verb"},
    };
    for (const Refusal& wrong : cases) refuses(wrong.words, wrong.code, wrong.why);
    EXPECT_THAT(pelto({"--help"}).output, HasSubstr("Exit codes:"));
}

TEST_F(RefusalsTest, thenAMissingService) {
    for (const Words& words : {Words{"send", "a"},
                               {"watch"},
                               {"debug", "on"},
                               {"capture", "A0345"},
                               {"audio-dump", std::string(91, 'x')},
                               {"dump-dmesg"},
                               {"stutter", "x", "1"},
                               {"sf-state", "on"},
                               {"top-activity", "1"},
                               {"kernel", "audio", "0", "1"},
                               {"kernel", "display", "1", "x"},
                               {"compositor"},
                               {"gpu", "fault"},
                               {"gpu", "await"},
                               {"clock", "advance", "1"},
                               {"control", "fault"}}) {
        refuses(words, 4, "pelto phone start");
    }
    EXPECT_EQ(pelto({"reports"}).code, 0);
    EXPECT_EQ(pelto({"stats"}).code, 0);
}

TEST_F(RefusalsTest, thenWhatThePhoneRefuses) {
    Program host(hostCommand());
    ASSERT_TRUE(host.awaitReady());
    const Refusal cases[] = {
        {{"kernel", "audio", "x", "1"}, 1, "'x' is not a 32-bit number"},
        {{"kernel", "display", "7", std::string(70000, 'x')}, 1, "too long"},
        {{"kernel", "display", "7", std::string(3832, 'x')}, 1, "at most 3831 bytes"},
        {{"gpu", "fault", "--size", "67108865"}, 1, "no size"},
        {{"gpu", "fault", "--hash", std::string(4097, 'x')}, 1, "--hash is too long"},
        {{"clock", "advance", "--", "-1"}, 1, "'-1' is no number"},
        {{"clock", "advance", "1e9"}, 1, "'1e9' is no number"},
        {{"clock", "advance", "nan"}, 1, "'nan' is no number"},
        {{"control", "paint"}, 1, "no command 'paint'"},
        {{"control", "fault", "disk"}, 1, "disk full|free"},
    };
    for (const Refusal& wrong : cases) refuses(wrong.words, wrong.code, wrong.why);
}

TEST_F(RefusalsTest, theHostsToo) {
    const Refusal cases[] = {
        {{}, 2, "--phone is required"},
        {{"--phone", phone().folder(), "--threads", "0"}, 2, "--threads"},
        {{"--phone", phone().folder(), "--thread", "2"}, 2, "--thread"},
        {{"--phone", phone().folder() + "/none"}, 3, "No such file"},
        {{"--phone", phone().folder() + "/fs"}, 3, "not a phone's folder"},
    };
    for (const Refusal& wrong : cases) {
        const Result result = run(hostProgram(wrong.words));
        EXPECT_EQ(result.code, wrong.code) << result.errors;
        EXPECT_THAT(result.errors, HasSubstr(wrong.why));
        EXPECT_THAT(result.errors, MatchesRegex("peltoserviced: [^\n]+\n"));
    }
    EXPECT_THAT(run(hostProgram({"--help"})).output, HasSubstr("Exit codes:"));
    EXPECT_EQ(logLines("PeltoService").size(), 0u);
}

}  // namespace
