// Archives that pelto-capture makes and the client reads; no service runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/support/service_fixture.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

using ArchivesTest = ServiceTest;

TEST_F(ArchivesTest, aCaptureIsMadeNamedAndRead) {
    ASSERT_EQ(pelto({"kernel", "log", "mic stuck"}).code, 0);
    const std::string info =
        "A0345,10,/data/persist_log/TMP/capture/A0345/,/data/persist_log/TMP/archives/,glitch";
    const Words capture{"capture",      "A0345",  "--print", "--logs",
                        "kernel,audio", "--name", "glitch"};
    EXPECT_EQ(pelto(capture).output, info + "\n");
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

TEST_F(ArchivesTest, refusesOtherFiles) {
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

TEST_F(ArchivesTest, refusesDamagedArchives) {
    const std::string text(3000, 'x');
    file("/data/text", text);
    const auto make = [this](const std::string& archive, const char* name) {
        const std::string data = phone().fsDir() + "/data/";
        return run({"tar", "-czPf", data + archive, "-C", data, "--transform",
                    std::string("s,.*,") + name + ",", "text"});
    };
    ASSERT_EQ(make("out.tar.gz", "../../escaped").code, 0);
    EXPECT_THAT(pelto({"archives", "show", "out.tar.gz"}).output,
                HasSubstr("      3000  ../../escaped\n"));
    EXPECT_EQ(pelto({"archives", "cat", "out.tar.gz", "escaped"}).output, text);

    const std::string whole = contents("/data/out.tar.gz");
    std::string checksum = whole;
    checksum[whole.size() - 8] ^= 1;
    file("/data/checksum.tar.gz", checksum);
    file("/data/cut.tar.gz", whole.substr(0, whole.size() / 2));
    file("/data/end.tar.gz", whole.substr(0, whole.size() - 1));
    // A header whose long name has 2^40 bytes.
    std::string huge(1024, '\0');
    huge.replace(124, 7, std::string("\x80\0\0\0\0\0\1", 7)).replace(156, 1, "L");
    huge.replace(257, 7, "ustar  ").replace(148, 8, "        ");
    unsigned sum = 0;
    for (const char c : huge) sum += static_cast<unsigned char>(c);
    snprintf(&huge[148], 8, "%06o", sum);
    file("/data/huge.tar", huge);
    ASSERT_EQ(run({"gzip", phone().fsDir() + "/data/huge.tar"}).code, 0);
    for (const char* name : {"checksum", "cut", "end", "huge"})
        refuses({"archives", "show", name + std::string(".tar.gz")}, 1, "/data/");
}

}  // namespace
