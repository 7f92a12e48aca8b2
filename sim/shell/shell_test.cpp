#include "sim/shell/shell.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>

#include "phone/phone.h"
#include "sim/shell/workstation_programs.h"
#include "tests/support/phone_fixture.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// A phone with a folder of precious files beside its root, and links that lead there.
class ShellTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        file("/../run/precious/sub/file", "alive");
        fs::permissions(precious() + "/sub/file", fs::perms(0600));
        plant("/data/out", precious());
        plant("/data/file", precious() + "/sub/file");
    }
    void TearDown() override {
        EXPECT_EQ(contents("/../run/precious/sub/file"), "alive");
        EXPECT_EQ(fs::status(precious() + "/sub/file").permissions(), fs::perms(0600));
        EXPECT_EQ(std::distance(fs::recursive_directory_iterator(precious()), {}), 2);
        PhoneTest::TearDown();
    }

    int run(const std::string& command) {
        const int status = phone::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        return WEXITSTATUS(status);
    }
    // Expects each command, `start` followed by one of the ends, to exit with that status.
    void exits(testing::Matcher<int> status, const std::string& start,
               const std::vector<std::string>& ends) {
        for (const std::string& end : ends) EXPECT_THAT(run(start + end), status) << start << end;
    }
    void fails(const std::string& start, const std::vector<std::string>& ends) {
        exits(testing::Ne(0), start, ends);
    }
    std::string precious() { return phone().runDir() + "/precious"; }
    void plant(const std::string& link, const std::string& target) {
        fs::create_symlink(target, phone().fsDir() + link);
    }
    // Unpacks an archive of the phone with the workstation's tar and lists its members.
    std::string members(const std::string& archive) {
        FILE* list = popen(("tar -tf " + phone().fsDir() + archive).c_str(), "r");
        char text[1024] = "";
        text[fread(text, 1, sizeof(text) - 1, list)] = '\0';
        EXPECT_EQ(pclose(list), 0);
        return text;
    }
};

TEST_F(ShellTest, WhatIsNoPlainCommandIsRefusedWhole) {
    file("/data/x/keep", "kept");
    exits(sim::Shell::kRefused, "", {"", " ", "cp < /data/x/keep", std::string(20000, 'a')});
    exits(sim::Shell::kRefused, "rm -rf ",
          {"/data/x\ntouch /data/new", "/data/x; true", "/data/x | true", "/data/x & true", "$HOME",
           "`id`", "'/data/x'", "\"/data/x\"", "/data/\\x", "/data/*/keep", "/data/x/kee?",
           "/data/x/[k]eep", "/data/{x,y}", "~"});
    exits(sim::Shell::kRefused, "dmesg ",
          {">> /data/new", "> /data/new x", ">/data/new", "> /data/new > /data/y", "> /data/x/*"});
    exits(sim::Shell::kNotFound, "",
          {"sh -c true", "/bin/rm -rf /data/x", "../../bin/rm /data/x", "id"});
    EXPECT_EQ(contents("/data/x/keep"), "kept");
    EXPECT_FALSE(exists("/data/new"));
}

TEST_F(ShellTest, PathsAndLinksDoNotLeadOut) {
    file("/data/x/mine", "mine");
    plant("/data/x/escape", precious() + "/sub/file");
    fails("rm -rf ",
          {"/", ".", "/data/..", "/data/x/..", "/data/x/.", "..", "/../run", "/data/../../run",
           "/data/out/", "/data/out/sub", "/data/out/*", "/../run/*"});
    fails("rm ", {precious()});
    fails("chmod ",
          {"0777 /data/file", "0777 /data/out", "-R 0777 /data/out/sub", "0777 /data/x/*"});
    fails("cp ", {"/data/x/mine /data/file", "/data/x/mine /data/out/new", "/data/x/mine /data/out",
                  "/data/file /data/x/copy", "/data/x/* /data"});
    fails("touch ", {"/data/out/new", "/data/file"});
    fails("dmesg > ", {"/data/file", "/data/out/new", "/../run/new"});
    fails("dmesg -c > ", {precious() + "/new"});
    fails("tar -czf ", {"/data/file /data/x", "/data/out/new /data/x"});
    fails("tar -czf /data/a.tar ",
          {"-C /data/out sub", "-C /data/out .", "-C /data/out ./", "-C /data/out/. .",
           "/data/out/", "-C /data ../../run", "-C /../run precious", "/data/out/sub"});
    fails("perfetto --config :test --out ", {"/data/file", "/../new"});
    EXPECT_EQ(contents("/data/x/mine"), "mine");
    EXPECT_FALSE(exists("/data/x/copy") || exists("/data/a.tar"));
}

TEST_F(ShellTest, ProgramsThatWalkATreeDoNotFollowItsLinks) {
    file("/data/x/mine", "mine");
    plant("/data/x/dir", precious() + "/sub");
    plant("/data/x/escape", precious() + "/sub/file");
    EXPECT_EQ(run("chmod -R 0751 /data/x"), 0);
    EXPECT_EQ(fs::status(phone().fsDir() + "/data/x/mine").permissions(), fs::perms(0751));
    EXPECT_EQ(run("tar -czf /data/a.tar.gz -C /data x"), 0);
    EXPECT_THAT(members("/data/a.tar.gz"), testing::Not(HasSubstr("file")));
    EXPECT_EQ(run("cp -r /data/x /data/y"), 0);
    EXPECT_TRUE(fs::is_symlink(phone().fsDir() + "/data/y/escape"));
    // Copies onto planted links: a link to a file is replaced, a link to a directory is refused.
    file("/data/src/escape", "new");
    EXPECT_EQ(run("cp /data/src/escape /data/x/"), 0);
    EXPECT_EQ(contents("/data/x/escape"), "new");
    fs::remove(phone().fsDir() + "/data/y/mine");
    EXPECT_EQ(run("cp /data/y/* /data/x/mine /data/y"), 1) << "a link among the sources";
    EXPECT_EQ(contents("/data/y/mine"), "mine") << "does not keep the others from being copied";
    fails("cp /data/y/escape /data/y/mine /data/x/", {"mine", "none"});
    EXPECT_FALSE(exists("/data/x/none"));
    file("/data/src2/x/dir/planted", "new");
    EXPECT_NE(run("cp -r /data/src2/x /data"), 0);
    EXPECT_EQ(run("rm -rf /data/x /data/y/ /data/out"), 0);
    EXPECT_FALSE(exists("/data/x") || exists("/data/y") || exists("/data/out"));
}

TEST_F(ShellTest, PipesAndFilesOfSeveralNamesAreRefused) {
    file("/data/mine", "mine");
    ASSERT_EQ(mkfifo((phone().fsDir() + "/data/pipe").c_str(), 0600), 0);
    fs::create_hard_link(precious() + "/sub/file", phone().fsDir() + "/data/twin");
    for (const std::string command : {"dmesg > ", "perfetto --config :test --out ",
                                      "cp /data/mine ", "chmod 0777 ", "touch "}) {
        fails(command, {"/data/pipe", "/data/twin"});
    }
    fails("tar -czf ", {"/data/pipe /data/mine", "/data/twin /data/mine"});
    fails("cp ", {"/data/pipe /data/copy"});
    EXPECT_EQ(run("tar -czf /data/a.tar /data/pipe /data/twin"), 0);
    EXPECT_EQ(run("rm -rf /data/pipe /data/twin"), 0);
    EXPECT_FALSE(exists("/data/pipe") || exists("/data/twin"));
}

TEST_F(ShellTest, ADirectoryReplacedAfterTheCheckLeadsNowhere) {
    const struct {
        const char* program;
        std::vector<std::string> words;
    } kCommands[] = {
        {"chmod", {"0777", "/data/x/sub/file"}},
        {"chmod", {"-R", "0777", "/data/x"}},
        {"touch", {"/data/x/sub/new"}},
        {"cp", {"/data/mine", "/data/x"}},
        {"cp", {"/data/mine", "/data/x/sub/file"}},
        {"tar", {"-czf", "/data/x/archive", "-C", "/data/x/sub", "."}},
        {"tar", {"-czf", "/data/a.tar", "/data/x/sub/file", "/data/x/sub"}},
        {"rm", {"-rf", "/data/x/sub/"}},
    };
    file("/data/mine", "new");
    file("/data/x/sub/file", "in");
    const fs::path x = phone().fsDir() + "/data/x", moved = phone().fsDir() + "/data/moved";
    for (const auto& [program, words] : kCommands) {
        sim::HostCommand command;
        std::string why;
        ASSERT_TRUE(sim::hostArguments(phone().root(), program, words, command, why)) << why;
        fs::rename(x, moved);
        fs::create_symlink(precious(), x);
        EXPECT_EQ(sim::runHostProgram(phone().root(), phone().log(), command, STDERR_FILENO), 0)
            << program;
        fs::remove(x);
        fs::rename(moved, x);
    }
    EXPECT_EQ(contents("/data/x/mine"), "new");
    EXPECT_FALSE(exists("/data/x/sub"));
    EXPECT_THAT(members("/data/a.tar"), testing::StartsWith("data/x/sub/file\ndata/x/sub/\n"));
    EXPECT_THAT(members("/data/x/archive"), HasSubstr("./file\n"));
    EXPECT_EQ(run("cp /data/none /data/x"), 1);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "sh",
                       "cp: cannot stat '/data/none': No such file or directory\n"));
}

TEST_F(ShellTest, OptionsCannotBeSmuggledIn) {
    file("/data/x/mine", "mine");
    file("/-rf", "a file with an option's name");
    file("/data/h:st.tar", "");
    fails("tar ", {"-czf /data/a.tar --checkpoint=1 --checkpoint-action=exec=id /data/x",
                   "-czf /data/a.tar -I id /data/x", "-xzf /data/a.tar", "-czf -",
                   "-czf /data/a.tar -f/../new /data/x", "-czf /data/a.tar -C", "--help"});
    fails("rm -rf", {" --no-preserve-root /", " --one-file-system /data/x", "v /data/x"});
    fails("cp ", {"-t /data /data/x/mine", "/data/x/mine --target-directory=/data"});
    fails("chmod ", {"--reference=/data/x/mine /data/x", "u+s /data/x/mine", "-x /data/x",
                     "4755 /data/x/mine"});
    fails("touch ", {"-r /data/x/mine /data/new"});
    fails("dmesg ", {"-C", "--clear"});
    fails("logcat", {"", " -f /data/new", " -v brief -d"});
    fails("perfetto ", {"--txt --out /data/new"});
    EXPECT_EQ(run("tar -czf h:st.tar -C /data x"), 0) << "a colon names no machine";
    EXPECT_EQ(members("/h:st.tar").find("x/"), 0u);
    EXPECT_EQ(run("chmod 0600 *"), 1) << "the glob's -rf is refused";
    EXPECT_EQ(run("rm /-rf"), 0);
    EXPECT_FALSE(exists("/-rf"));
    EXPECT_EQ(contents("/data/x/mine"), "mine");
    EXPECT_THAT(names("/data"), testing::Not(testing::Contains("new")));
}

TEST_F(ShellTest, GlobsTakeSortedNamesAndKeepDotFilesOut) {
    for (const char* name : {"b1", "a1", ".a1", "a2.txt"}) file(std::string("/data/g/") + name, "");
    std::vector<std::string> seen;
    phone().shell().add("words", [&](const std::vector<std::string>& words, int) {
        seen = words;
        return 3;
    });
    EXPECT_EQ(run("words /data/g/*1 \t /data/g/a* /data/g/none*"), 3);
    EXPECT_THAT(seen, ElementsAre("/data/g/a1", "/data/g/b1", "/data/g/a1", "/data/g/a2.txt",
                                  "/data/g/none*"));
    EXPECT_EQ(run("cp /data/g/none* /data"), 1);
    EXPECT_EQ(run("rm -rf /data/g/none* /no/such/directory"), 0);
}
