// The errors of the programs: exit code and one line that says why.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/service_fixture.h"

using namespace testing;

namespace {

struct Refusal {
    Program::Words words;
    int code;
    std::string why;
};

using RefusalsTest = ServiceTest;

// Wrong usage is reported first, then a missing service.
TEST_F(RefusalsTest, ClientNeedsCorrectWordsAndAService) {
    const Refusal cases[] = {
        {{"phone"}, 2, "a verb is missing; see pelto phone --help"},
        {{"phone", "strat", "a", "b"}, 2, ": strat a b (did you mean start?); see pelto phone "},
        {{"help", "lgocat"}, 2, "expected: lgocat (did you mean logcat?);"},
        {{"stats", "--jsno"}, 2, "--jsno (did you mean --json?)"},
        {{"paint"}, 2, "not expected: paint;"},
        {{"send"}, 2, "TYPE"},
        {{"send", "a", "--stdin"}, 2, "TYPE"},
        {{"logcat", "-d", "a:b:c"}, 2, "filter"},
        {{"logcat", "--until", "a("}, 2, "expression"},
        {{"logcat", "--until", ""}, 2, "expression"},
        {{"watch", "--timeout", "nan"}, 2, "no number of seconds"},
        {{"watch", "--timeout", "1\n2"}, 2, "'1?2'"},
        {{"watch", "--ready-fd", std::to_string(Program::kReadyFd + 1)}, 2, "no open descriptor"},
        {{"debug", "on", "--call-timeout", "inf"}, 2, "no number of seconds"},
        {{"clock", "advance", "x"}, 2, "'x' is no number"},
        {{"top-activity", "9223372036854775808"}, 2, "no 64-bit number"},
        {{"phone", "start", "--no-service", "--threads", "2"}, 2, "excludes"},
        {{"clock", "advance", "--", "-1"}, 2, "'-1' is no number"},
        {{"gpu", "fault", "--size", "x"}, 2, "--size"},
        {{"kernel", "audio", "x", "1"}, 2, "CMD"},
        {{"kernel", "display", "abc", "p"}, 2, "ID"},
        {{"capture", "A034"}, 2, "five hexadecimal"},
        {{"capture", "A034G"}, 2, "five hexadecimal"},
        {{"capture", "A0345", "--name", ""}, 2, "--name"},
        {{"capture", "A0345", "--dir", "/data/$x"}, 2, "--dir"},
        {{"capture", "A0345", "--logs", "android,paint"}, 2, "paint"},
        {{"capture", "A0345", "--name", std::string(1000, 'x')}, 2, "too long"},
        {{"audio-dump", ""}, 2, "from 1 to 91 bytes"},
        {{"audio-dump", std::string(92, 'x')}, 2, "from 1 to 91 bytes"},
        {{"audio-dump", "a$b"}, 2, "no '$'"},
        {{"reports", "--count", "1"}, 2, "--follow"},
        {{"reports", "--follow", "--count", "1", "--timeout", "0.01"}, 5, "0 of 1"},
        {{"send", "a"}, 4, "pelto phone start"},
        {{"watch", "--background"}, 4, "pelto phone start"},
        {{"debug", "on"}, 4, "pelto phone start"},
        {{"audio-dump", std::string(91, 'x')}, 4, "pelto phone start"},
        {{"compositor"}, 4, "pelto phone start"},
    };
    for (const Refusal& wrong : cases) refuses(wrong.words, wrong.code, wrong.why);
    EXPECT_EQ(pelto({"stats"}).code, 0);
}

TEST_F(RefusalsTest, ClientReportsWhatThePhoneRefuses) {
    const ReadyProgram host(hostCommand());
    const Refusal cases[] = {
        {{"kernel", "display", "7", std::string(70000, 'x')}, 2, "'display' are too long"},
        {{"kernel", "display", "7", std::string(3832, 'x')}, 2, "at most 3831 bytes"},
        {{"clock", "advance", "1e9"}, 2, "pelto: clock: '1e9' is no number"},
        {{"control", "clock", "advance", "nan"}, 2, "'nan' is no number"},
        {{"control", "audio", "x", "1"}, 2, "pelto: audio: 'x' is not"},
        {{"control", "fault", "program", "paint", "hang"},
         2,
         "no program 'paint'; there are: audio"},
        {{"control", "paint"}, 2, "no command 'paint'"},
    };
    for (const Refusal& wrong : cases) refuses(wrong.words, wrong.code, wrong.why);
}

TEST_F(RefusalsTest, HostNeedsAPhoneAndCaptureReportsThatNoWholeArchiveWasMade) {
    Words badDescriptor = hostCommand();
    badDescriptor.back() = std::string(300, '9');
    fails(badDescriptor, 2, "peltoserviced: --ready-fd: is no open descriptor's number");
    fails(hostCommand({"--threads", std::string(300, '9')}), 2, "9...; see");
    fails(hostCommand({}, "/none"), 3, "peltoserviced: ");
    fails(hostCommand({}, "/fs"), 3, "not a phone's folder");

    file("/data/x/text", "");
    const Refusal cases[] = {
        {{"one,two,three,four"}, 2, "pelto-capture: INFO takes five fields"},
        {{"A0345,1,/data/x/A0345/,/data/x/,a&b"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/../outside/,name"}, 1, "made (cmds failed: tar -czf,"},
        // Captures nothing: tar leaves an empty archive.
        {{"A0345,12345678,/data/x/A0345/,/data/x/,name"}, 1, "made (cmds failed: tar -czf,"},
        // The capture directory matches the pattern of the archive's name, and is not removed.
        {{"n@$.tar.gz,1,/data/x/n@$.tar.gz/,/data/x/,n"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/data/x/,name", "--phone", phone().fsDir()}, 3, "not a phone's"},
    };
    for (const Refusal& wrong : cases) fails(captureCommand(wrong.words), wrong.code, wrong.why);
    EXPECT_THAT(names("/data/x"),
                ElementsAre("n@$.tar.gz", MatchesRegex("name@[-_0-9]+.tar.gz"), "text"));
    EXPECT_FALSE(std::filesystem::exists(phone().folder() + "/outside"));
}

}  // namespace
