// Archives that pelto-capture makes and the client reads; no service runs.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/support/service_fixture.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

using ArchivesTest = ServiceTest;

TEST_F(ArchivesTest, ReadsAnArchiveThatACaptureMade) {
    ASSERT_EQ(pelto({"kernel", "log", "mic stuck"}).code, 0);
    const std::string info =
        "A0345,10,/data/persist_log/TMP/capture/A0345/,/data/persist_log/TMP/archives/,glitch";
    const Words capture{"capture",      "A0345",  "--print", "--logs",
                        "kernel,audio", "--name", "glitch"};
    EXPECT_EQ(pelto(capture).output, info + "\n");
    Program made(captureCommand({info})), other(captureCommand({info}));
    const std::string path = made.line();
    EXPECT_THAT(path, MatchesRegex("/data/persist_log/TMP/archives/glitch@[-_0-9]+.tar.gz"));
    EXPECT_NE(other.line(), path) << "of another second";
    ASSERT_EQ(made.wait() + other.wait(), 0) << made.errors() << other.errors();
    const std::string name = path.substr(path.rfind('/') + 1);

    const auto shown = nlohmann::json::parse(pelto({"archives", "show", "--json", name}).output);
    EXPECT_EQ(shown["path"], path);
    EXPECT_EQ(shown["name"], "glitch");
    EXPECT_EQ(shown["members"].size(), 5u);  // the directory and four logs
    EXPECT_THAT(pelto({"archives", "show", path}).output, HasSubstr("_audioflinger.txt\n"));
    EXPECT_THAT(pelto({"archives", "cat", path, "_dmesg.txt"}).output, HasSubstr("mic stuck\n"));
    refuses({"archives", "cat", name, ".txt"}, 1, "4 members end in '.txt'");
    refuses({"archives", "cat", name, "none"}, 1, "0 members");
}

TEST_F(ArchivesTest, PackingEndsWithTheProcessThatCaptures) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);  // makes this process the parent of orphans
    std::string noise(1 << 20, '\0');                // of which some packed bytes are written soon
    std::generate(noise.begin(), noise.end(), std::mt19937());
    const std::string big = "/data/x/A0345/big";
    file(big, noise);
    std::filesystem::resize_file(host(big), uint64_t{4} << 30);
    const auto archive = [&] {
        const auto found = names("/data/x");
        return found.size() < 2 ? "" : contents("/data/x/" + found[1]);
    };
    Program capture(captureCommand({"A0345,1,/data/x/A0345/,/data/x/,name"}));
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (archive().empty()) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    capture.signal(SIGKILL);
    EXPECT_EQ(capture.wait(), -SIGKILL);
    for (int status = 0; waitpid(-1, &status, 0) > 0;)
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGIO) << status;
}

TEST_F(ArchivesTest, RefusesOtherFiles) {
    file("/data/text.tar.gz", "text");
    std::filesystem::create_symlink("/etc/passwd", phone().fsDir() + "/data/link.tar.gz");
    refuses({"archives", "show", "text.tar.gz"}, 1, "gzip");
    refuses({"archives", "show", "none"}, 1, "pelto archives list");
    refuses({"archives", "show", "/data/link.tar.gz"}, 1, "a link is not followed");
    refuses({"archives", "show", "/data"}, 1, "Is a directory");
    refuses({"archives", "cat", "/data/../../run/phone", "x"}, 1, "leads out of the phone");
    refuses({"archives", "list", "/data/none"}, 1, "No such file");
}

TEST_F(ArchivesTest, ReadsAnyMemberNameAndRefusesDamagedArchives) {
    const std::string text(3000, 'x'), data = phone().fsDir() + "/data/";
    file("/data/text", text);
    ASSERT_EQ(run({"tar", "-czPf", data + "out.tar.gz", "-C", data, "--transform",
                   "s,.*,../../escaped,", "text"})
                  .code,
              0);
    EXPECT_THAT(pelto({"archives", "show", "out.tar.gz"}).output,
                HasSubstr("      3000  ../../escaped\n"));
    EXPECT_EQ(pelto({"archives", "cat", "out.tar.gz", "escaped"}).output, text);

    const std::string whole = contents("/data/out.tar.gz");
    std::string checksum = whole;
    checksum[whole.size() - 8] ^= 1;
    const std::string cut = whole.substr(0, whole.size() / 2),
                      end = whole.substr(0, whole.size() - 1);
    for (const std::string& damaged : {checksum, cut, end}) {
        file("/data/d.tar.gz", damaged);
        refuses({"archives", "show", "d.tar.gz"}, 1, "/data/d.tar.gz");
    }
}

}  // namespace
