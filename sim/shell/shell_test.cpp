#include "sim/shell/shell.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>

#include "phone/phone.h"
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

TEST_F(ShellTest, RefusesWholeWhatIsNoPlainCommand) {
    file("/data/x/keep", "kept");
    for (const char c : std::string("|;&$`<\"'\\?[](){}!\n"))
        EXPECT_EQ(run(std::string("rm -rf /data/x ") + c), sim::Shell::kRefused) << c;
    exits(sim::Shell::kRefused, "",
          {"", " ", "rm -rf ~", "rm /data/*/keep", std::string(20000, 'a')});
    exits(sim::Shell::kRefused, "dmesg ",
          {">> /data/new", "> /data/new x", ">/data/new", "> /data/x/*"});
    exits(sim::Shell::kNotFound, "", {"sh -c true", "/bin/rm -rf /data/x", "../../bin/rm /data/x"});
    EXPECT_EQ(contents("/data/x/keep"), "kept");
    EXPECT_FALSE(exists("/data/new"));
}

TEST_F(ShellTest, TakesNoPathThatLeadsOutAndNoOtherOption) {
    file("/data/x/mine", "mine");
    file("/-rf", "a file with an option's name");
    plant("/data/x/escape", precious() + "/sub/file");
    ASSERT_EQ(mkfifo((phone().fsDir() + "/data/pipe").c_str(), 0600), 0);
    fs::create_hard_link(precious() + "/sub/file", phone().fsDir() + "/data/twin");
    fails("rm -rf ", {"/", ".", "/data/x/..", "/data/x/.", "..", "/../run", "/data/out/",
                      "/data/out/sub", "/data/out/*", "--no-preserve-root /", "-v /data/x"});
    fails("chmod ", {"0777 /data/file", "0777 /data/out", "-R 0777 /data/out/sub", "0777 /data/x/*",
                     "0777 /data/pipe", "0777 /data/twin", "u+s /data/x/mine",
                     "--reference=/data/x/mine /data/x", "4755 /data/x/mine", "0600 *"});
    fails("cp ", {"/data/x/* /data", "/data/file /data/x/copy", "/data/pipe /data/copy",
                  "-t /data /data/x/mine"});
    fails("cp /data/x/mine ", {"/data/file", "/data/out/new", "/data/out", "/data/pipe",
                               "/data/twin", "--target-directory=/data"});
    fails("touch ",
          {"/data/out/new", "/data/file", "/data/pipe", "/data/twin", "-r /data/x/mine /data/new"});
    for (const char* command : {"dmesg > ", "perfetto --config :test --out "})
        fails(command, {"/data/file", "/data/out/new", "/../run/new", "/data/pipe", "/data/twin"});
    fails("tar -czf ", {"/data/file /data/x", "/data/out/new /data/x", "/data/pipe /data/x",
                        "/data/twin /data/x", "-"});
    fails("tar -czf /data/a.tar ",
          {"-C /data/out sub", "-C /data/out .", "-C /data/out/. .", "/data/out/",
           "-C /data ../../run", "-C /../run precious", "/data/out/sub", "-C", "-I id /data/x"});
    fails("", {"tar -xzf /data/a.tar", "tar --help", "dmesg -C", "logcat", "logcat -f /data/new",
               "logcat -v brief -d", "perfetto --txt --out /data/new"});
    EXPECT_THAT(names("/data/x"), ElementsAre("escape", "mine"));
    EXPECT_EQ(contents("/data/x/mine"), "mine");
    EXPECT_FALSE(exists("/data/a.tar") || exists("/data/new") || exists("/data/copy"));

    EXPECT_EQ(run("tar -czf h:st.tar /data/pipe /data/twin"), 0) << "a colon names no machine";
    EXPECT_EQ(members("/h:st.tar"), "data/pipe\ndata/twin\n");
    EXPECT_EQ(run("rm -rf /-rf /data/pipe /data/twin"), 0);
    EXPECT_FALSE(exists("/-rf") || exists("/data/pipe") || exists("/data/twin"));
}

TEST_F(ShellTest, FollowsNoLinksInATree) {
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
    EXPECT_EQ(run("rm -rf /data/x /data/y/ /data/out"), 0);
    EXPECT_FALSE(exists("/data/x") || exists("/data/y") || exists("/data/out"));
}

TEST_F(ShellTest, ExpandsGlobsToSortedNamesWithoutDotFiles) {
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
    EXPECT_TRUE(logged("W sh: cp: cannot stat '/data/g/none*': No such file or directory\n"));
    EXPECT_EQ(run("rm -rf /data/g/none* /no/such/directory"), 0);
}
