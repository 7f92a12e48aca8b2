// Archives as the client and pelto-capture show them; no service runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/service_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class ArchivesTest : public ServiceTest {
  protected:
    // What `pelto capture` would send.
    std::string information(const Words& words) {
        Words all{"capture", "A0345", "--print"};
        all.insert(all.end(), words.begin(), words.end());
        std::string line = pelto(all).output;
        if (!line.empty()) line.pop_back();
        return line;
    }
};

TEST_F(ArchivesTest, areListedByTheirNames) {
    for (const char* name :
         {"gpudump@5a1f@V12.1@_2024-03-05_14-07-09.tar.gz",
          "gpudump@a@b@0@_2024-03-05_14-07-09.tar.gz", "gpudump@@0@_2024-03-05_14-07.tar.gz",
          "mic@2024-03-05_14-07-09.tar.gz", "x.tar.gz", "x.tar.gz.bak", "directory.tar.gz/y.tar.gz",
          ".tar.gz"}) {
        file(std::string("/data/a/") + name, "12345");
    }
    std::filesystem::create_symlink("/etc", phone().fsDir() + "/data/a/link");
    std::filesystem::create_symlink("/etc/passwd", phone().fsDir() + "/data/a/l.tar.gz");

    std::vector<std::string> found;
    std::istringstream lines(pelto({"archives", "list", "--json", "/data/a"}).output);
    for (std::string line; std::getline(lines, line);) {
        const auto archive = nlohmann::json::parse(line);
        EXPECT_EQ(archive["bytes"], 5) << line;
        std::string facts;
        for (const char* key : {"kind", "name", "version", "time"})
            facts += archive[key].get<std::string>() + "|";
        found.push_back(facts);
    }
    const std::string time = "2024-03-05_14-07-09|";
    EXPECT_THAT(found, ElementsAre("other||||", "other|y|||", "gpu|5a1f|V12.1|" + time,
                                   "other|gpudump@@0@_2024-03-05_14-07|||", "gpu|a@b|0|" + time,
                                   "capture|mic||" + time, "other|x|||"));
    EXPECT_EQ(pelto({"archives", "list", "/data/a/directory.tar.gz"}).output,
              "other                                 5 bytes  y  "
              "/data/a/directory.tar.gz/y.tar.gz\n");
}

TEST_F(ArchivesTest, aCaptureIsMadeNamedAndRead) {
    ASSERT_EQ(pelto({"kernel", "log", "mic stuck"}).code, 0);
    const std::string info = information({"--logs", "kernel,audio", "--name", "glitch"});
    EXPECT_EQ(
        info,
        "A0345,10,/data/persist_log/TMP/capture/A0345/,/data/persist_log/TMP/archives/,glitch");
    const Result made = run(captureCommand({info}));
    ASSERT_EQ(made.code, 0) << made.errors;
    EXPECT_THAT(made.output,
                MatchesRegex("/data/persist_log/TMP/archives/glitch@[-_0-9]+.tar.gz\n"));
    const std::string path = made.output.substr(0, made.output.size() - 1);
    const std::string name = path.substr(path.rfind('/') + 1);

    const auto shown = nlohmann::json::parse(pelto({"archives", "show", "--json", name}).output);
    EXPECT_EQ(shown["path"], path);
    EXPECT_EQ(shown["name"], "glitch");
    EXPECT_EQ(shown["members"].size(), 5u);  // the directory and four logs
    EXPECT_THAT(pelto({"archives", "show", path}).output, HasSubstr("_audioflinger.txt\n"));
    const Result log = pelto({"archives", "cat", path, "_dmesg.txt"});
    EXPECT_EQ(log.code, 0) << log.errors;
    EXPECT_THAT(log.output, HasSubstr("mic stuck\n"));
    refuses({"archives", "cat", name, ".txt"}, 1, "4 members end in '.txt'");
    refuses({"archives", "cat", name, "none"}, 1, "0 members");
}

TEST_F(ArchivesTest, whatIsNoneIsRefused) {
    file("/data/text.tar.gz", "text");
    std::filesystem::create_symlink("/etc/passwd", phone().fsDir() + "/data/link.tar.gz");
    refuses({"archives", "show", "text.tar.gz"}, 1, "gzip");
    refuses({"archives", "show", "none"}, 1, "pelto archives list");
    refuses({"archives", "show", "link.tar.gz"}, 1, "pelto archives list");
    refuses({"archives", "show", "/data/link.tar.gz"}, 1, "a link is not followed");
    refuses({"archives", "show", "/data"}, 1, "Is a directory");
    refuses({"archives", "cat", "/data/../../run/phone", "x"}, 1, "leads out of the phone");
    refuses({"archives", "list", "/data/none"}, 1, "No such file");
}

TEST_F(ArchivesTest, aCaptureThatFailsSaysSo) {
    file("/data/x/text", "");
    const struct {
        Words words;
        int code;
        std::string why;
    } cases[] = {
        {{}, 2, "INFO is required"},
        {{"one,two,three,four"}, 2, "five fields"},
        {{"A0345,1,/data/x/A0345/,/data/x/,a&b"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/../outside/,name"}, 1, "made (cmds failed: tar -czf,"},
        // Nothing is captured: an empty archive is left.
        {{"A0345,12345678,/data/x/A0345/,/data/x/,name"}, 1, "made (cmds failed: tar -czf,"},
        // A directory is made whose name begins and ends as the archive's, and stays.
        {{"n@$.tar.gz,1,/data/x/n@$.tar.gz/,/data/x/,n"}, 1, "no whole archive was made;"},
        {{"A0345,1,/data/x/A0345/,/data/x/,name", "--phone", phone().fsDir()}, 3, "not a phone's"},
    };
    for (const auto& wrong : cases) {
        const Result result = run(captureCommand(wrong.words));
        EXPECT_EQ(result.code, wrong.code) << wrong.why;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr(wrong.why));
    }
    EXPECT_THAT(names("/data/x"),
                ElementsAre("n@$.tar.gz", MatchesRegex("name@[-_0-9]+.tar.gz"), "text"));
    EXPECT_FALSE(std::filesystem::exists(phone().folder() + "/outside"));
}

}  // namespace
