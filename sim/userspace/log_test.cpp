#include "sim/userspace/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
#include <set>
#include <sstream>

#include "sim/base/fd.h"
#include "sim/userspace/logcat.h"
#include "tests/support/phone_fixture.h"

using testing::ElementsAre;

class LogTest : public PhoneTest {
  protected:
    std::string directory() { return phone().log().directory(); }

    std::vector<std::string> lines() {
        std::vector<std::string> found;
        sim::LogReader(directory()).read([&](std::string_view line) { found.emplace_back(line); });
        return found;
    }
    std::vector<std::string> messages() {
        std::vector<std::string> found;
        for (const std::string& text : lines()) {
            sim::LogLine line;
            EXPECT_TRUE(line.parse(text)) << text;
            found.emplace_back(line.message);
        }
        return found;
    }
    bool rotated() { return access((directory() + "/main.old").c_str(), F_OK) == 0; }
    // The first letters of the messages that pass these filters.
    std::string passing(const std::string& filters) {
        std::istringstream text(filters);
        sim::LogcatOptions options;
        const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
        EXPECT_EQ(options.parse(words), "");
        std::string letters;
        for (const std::string& line : lines()) {
            if (options.passes(line)) letters += line[line.rfind(": ") + 2];
        }
        return letters;
    }
};

TEST_F(LogTest, LinesAreThreadtimeCutAndSplit) {
    setenv("TZ", "UTC", 1);
    holdClock(std::chrono::seconds(1709647809));
    advance(std::chrono::milliseconds(42));
    errno = ENOSPC;
    __android_log_print(ANDROID_LOG_WARN, "tag", "%d: %s", 7, "seven");
    EXPECT_EQ(errno, ENOSPC);
    char expected[80];
    snprintf(expected, sizeof(expected), "03-05 14:10:09.042 %5d %5d W tag     : 7: seven",
             getpid(), gettid());
    EXPECT_THAT(lines(), ElementsAre(expected));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "tag", "7: seven"));

    ASSERT_TRUE(phone().log().clear());
    __android_log_write(ANDROID_LOG_INFO, "split", "one\n\nthree\n");
    __android_log_write(ANDROID_LOG_INFO, "", "");
    const std::string longText(10000, 'x');
    __android_log_write(ANDROID_LOG_INFO, std::string(500, 't').c_str(), longText.c_str());
    EXPECT_THAT(messages(), ElementsAre("one", "", "three", "", longText.substr(0, 4096)));
    EXPECT_THAT(logLines("split"), ElementsAre("one\n\nthree\n"));
}

TEST_F(LogTest, ProcessesLoseNoLineWhenTheFileIsRotated) {
    constexpr int kWriters = 4, kLines = 150;
    sim::Log log(directory(), 25000);
    for (int round = 0; round < 3; ++round) {
        log.clear();
        for (int writer = 0; writer < kWriters; ++writer) {
            if (fork() != 0) continue;
            sim::Log own(directory(), 25000);
            bool written = true;
            for (int i = 0; i < kLines; ++i)
                written &= own.write(4, "writer", std::to_string(writer * kLines + i) + " of some");
            _exit(written ? 0 : 1);
        }
        for (int status = 0; wait(&status) > 0;) ASSERT_EQ(status, 0);
        ASSERT_TRUE(phone().log().write(4, "writer", "of a process that did not rotate"));
        EXPECT_TRUE(rotated());
        const auto all = messages();
        EXPECT_EQ(all.size(), kWriters * kLines + 1u) << "round " << round;
        EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
    }
}

TEST_F(LogTest, AProcessThatHoldsTheRotationHoldsNobody) {
    sim::Log log(directory(), 100);
    sim::Fd state(open((directory() + "/state").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(state.get(), LOCK_EX), 0);
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(log.write(4, "t", "held"));
    EXPECT_FALSE(log.clear());
    EXPECT_FALSE(rotated());
    state = sim::Fd();
    EXPECT_TRUE(log.write(4, "t", "rotates"));
    EXPECT_TRUE(rotated());
    EXPECT_EQ(messages().size(), 11u);
}

TEST_F(LogTest, AFullDiskLosesTheLineNotTheCaller) {
    __android_log_write(ANDROID_LOG_INFO, "disk", "before");
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{1, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_LT(__android_log_write(ANDROID_LOG_INFO, "disk", "lost"), 0);
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(__android_log_write(ANDROID_LOG_INFO, "disk", "after"), 1);
    EXPECT_THAT(messages(), ElementsAre("before", "after"));
}

TEST_F(LogTest, FiltersAreThoseOfLogcat) {
    for (int priority = ANDROID_LOG_VERBOSE; priority <= ANDROID_LOG_FATAL; ++priority) {
        __android_log_print(priority, "audio", "%c", sim::Log::letter(priority) | 0x20);
        __android_log_print(priority, "gpu", "%c", sim::Log::letter(priority));
    }
    const std::pair<const char*, const char*> kFilters[] = {
        {"", "vVdDiIwWeEfF"},  {"-v threadtime -d audio:W *:S", "wef"},
        {"*:e", "eEfF"},       {"audio:S *:I", "IWEF"},
        {"audio:S", "VDIWEF"}, {"-s gpu", "VDIWEF"},
        {"* gpu:F", "diwefF"}};
    for (const auto& [filters, letters] : kFilters) EXPECT_EQ(passing(filters), letters) << filters;
    sim::LogcatOptions options;
    for (const char* wrong : {"audio:Q", ":V", "-v", "-t", "-x", "a:VV"})
        EXPECT_NE(options.parse({wrong}), "") << wrong;
}

TEST_F(LogTest, AReaderGoesOnAcrossRotations) {
    sim::Log log(directory(), 2000);
    sim::LogReader reader(directory());
    std::string seen, expected;
    for (int i = 0; i < 100; ++i) {
        log.write(4, "t", std::to_string(i));
        expected += ' ' + std::to_string(i);
        ASSERT_TRUE(reader.wait(30000));
        reader.read([&](std::string_view line) { seen += line.substr(line.rfind(' ')); });
    }
    EXPECT_EQ(seen, expected);
}
