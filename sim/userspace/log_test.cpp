#include "sim/userspace/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "sim/base/fd.h"
#include "sim/userspace/logcat.h"
#include "tests/support/phone_fixture.h"

using testing::ElementsAre;

class LogTest : public PhoneTest {
  protected:
    std::string directory() { return phone().log().directory(); }

    std::vector<std::string> messages() {
        std::vector<std::string> found;
        sim::LogReader(directory()).read([&](std::string_view text) {
            sim::LogLine line;
            EXPECT_TRUE(line.parse(text)) << text;
            found.emplace_back(line.message);
        });
        return found;
    }
    static std::string passing(const sim::LogcatOptions& options, const std::string& tag) {
        std::string letters;
        for (const char letter : std::string("VDIWEF")) {
            const std::string head = std::string("03-05 14:10:09.042   12   13 ") + letter;
            if (options.passes(head + ' ' + tag + ": text")) letters += letter;
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
    snprintf(expected, sizeof(expected), "03-05 14:10:09.042 %5d %5d W tag     : 7: seven\n",
             getpid(), gettid());
    EXPECT_EQ(contents("/../run/log/main"), expected);

    ASSERT_TRUE(phone().log().clear());
    __android_log_write(ANDROID_LOG_INFO, "split", "one\n\nthree\n");
    __android_log_write(ANDROID_LOG_INFO, "", "");
    const std::string longText(10000, 'x');
    __android_log_write(ANDROID_LOG_INFO, std::string(500, 't').c_str(), longText.c_str());
    EXPECT_THAT(messages(), ElementsAre("one", "", "three", "", longText.substr(0, 4096)));
    EXPECT_THAT(logLines("split"), ElementsAre("one\n\nthree\n"));
}

TEST_F(LogTest, AReaderGoesOnAcrossRotationsAndWritersPastOneThatHangs) {
    sim::Log one(directory(), 100), other(directory(), 100);  // as two processes have it
    sim::LogReader reader(directory());
    std::string seen;
    int next = 0;
    const auto write = [&](int last) {
        for (; next < last; ++next) {
            EXPECT_TRUE((next % 2 == 0 ? one : other).write(4, "t", std::to_string(next)));
            ASSERT_TRUE(reader.wait(30000));
            reader.read([&](std::string_view line) { seen += line.substr(line.rfind(' ')); });
        }
    };
    write(9);
    {
        const sim::Fd folder(open(directory().c_str(), O_RDONLY | O_CLOEXEC));
        const sim::FileLock rotation(folder.get());
        write(20);
        EXPECT_FALSE(one.clear());
    }
    EXPECT_GT(messages().size(), 11u) << "not rotated while that hung";
    write(25);
    EXPECT_EQ(seen, " 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24");
    EXPECT_LT(messages().size(), 11u);
}

TEST_F(LogTest, GoesOnInANewFileAfterATornLineAndATruncation) {
    sim::LogReader reader(directory());
    std::string seen;
    const auto logAndRead = [&](const char* text) {
        __android_log_write(ANDROID_LOG_INFO, "t", text);
        reader.read([&](std::string_view line) { seen += line.substr(line.find_last_of(" 1")); });
    };
    const std::string main = directory() + "/main";
    logAndRead("one");
    std::ofstream(main, std::ios::app) << "11";  // as on a disk that had no more room
    logAndRead("two");
    EXPECT_THAT(contents("/../run/log/main"), testing::HasSubstr(" one\n11\n"));
    std::filesystem::resize_file(main, 0);
    logAndRead("three");
    std::filesystem::remove(main);
    logAndRead("four");
    EXPECT_EQ(seen, " one1 two three four");
    EXPECT_THAT(messages(), ElementsAre("four"));
}

TEST_F(LogTest, FiltersAreThoseOfLogcat) {
    const struct {
        std::vector<std::string> words;
        std::string audio, gpu;  // the letters of the lines that pass, by tag
    } cases[] = {
        {{}, "VDIWEF", "VDIWEF"},      {{"-v", "threadtime", "-d", "audio:W", "*:S"}, "WEF", ""},
        {{"*:e"}, "EF", "EF"},         {{"audio:S", "*:I"}, "", "IWEF"},
        {{"-s", "gpu"}, "", "VDIWEF"}, {{"*", "gpu:F"}, "DIWEF", "F"}};
    for (const auto& [words, audio, gpu] : cases) {
        sim::LogcatOptions options;
        EXPECT_EQ(options.parse(words), "");
        EXPECT_EQ(passing(options, "audio"), audio);
        EXPECT_EQ(passing(options, "gpu"), gpu);
    }
    for (const char* wrong : {"audio:Q", ":V", "-v", "-t", "-x", "a:VV"})
        EXPECT_NE(sim::LogcatOptions().parse({wrong}), "") << wrong;
}
