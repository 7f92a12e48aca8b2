#include "sim/shell.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "phone/phone.h"
#include "sim/host_programs.h"
#include "sim/kernel_log.h"
#include "tests/support/phone_test.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A phone with a folder of precious files beside its root, and links that lead there.
class ShellTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        fs::create_directories(precious() + "/sub");
        std::ofstream(precious() + "/sub/file") << "alive";
        fs::permissions(precious() + "/sub/file", fs::perms(0600));
        plant("/data/out", precious());
        plant("/data/file", precious() + "/sub/file");
    }
    void TearDown() override {
        std::string text;
        std::getline(std::ifstream(precious() + "/sub/file"), text);
        EXPECT_EQ(text, "alive");
        EXPECT_EQ(fs::status(precious() + "/sub/file").permissions(), fs::perms(0600));
        EXPECT_EQ(std::distance(fs::recursive_directory_iterator(precious()), {}), 2);
        PhoneTest::TearDown();
    }

    int run(const std::string& command) {
        const int status = phone::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        return WEXITSTATUS(status);
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

TEST_F(ShellTest, RunsWhatTheServiceAsksFor) {
    phone().kernelLog().append("mic stuck");
    file("/data/tombstones/tombstone_00", "stack");
    __android_log_print(ANDROID_LOG_INFO, "camera", "open");
    fs::create_directories(phone().fsDir() + "/data/x/E1");

    for (const char* command : {
             "logcat -v threadtime -d > /data/x/E1/t_android.txt",
             "dmesg > /data/x/E1/t_dmesg.txt",
             "dumpsys media.audio_flinger > /data/x/E1/t_audioflinger.txt",
             "perfetto --config :test --out /data/x/E1/t_systrace.perfetto-trace",
             "tar -czf /data/x/n@t.tar.gz -C /data/x E1",
             "chmod 0777 /data/x/n@t.tar.gz",
             "rm -rf /data/x/E1/",
             "rm -rf ",
             "cp /data/tombstones/* /data/persist_log/wex/exception_log/",
             "chmod 0777 /data/persist_log/wex/exception_log/*",
             "touch /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt",
             "chmod 777 /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt",
             "dmesg -c > /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt",
             "/system/bin/dmesg > /data/kelvo/mmdump/gpu/N_dmesg1.txt",
             "logcat -d -v threadtime > /data/kelvo/mmdump/gpu/N_android1.txt",
             "tar -czf /data/kelvo/mmdump/gpu/N.tar.gz /data/kelvo/mmdump/gpu/N*",
             "rm -rf /data/kelvo/mmdump/gpu/N*.txt",
             "rm -rf /data/kelvo/mmdump/gpu/N*.snap",
         }) {
        EXPECT_EQ(run(command), 0) << command;
        EXPECT_EQ(commands().back(), command);
    }

    EXPECT_EQ(members("/data/x/n@t.tar.gz").find("E1/"), 0u);
    EXPECT_THAT(members("/data/x/n@t.tar.gz"), HasSubstr("E1/t_systrace.perfetto-trace\n"));
    EXPECT_THAT(names("/data/x"), ElementsAre("n@t.tar.gz"));
    EXPECT_EQ(fs::status(phone().fsDir() + "/data/x/n@t.tar.gz").permissions(), fs::perms(0777));
    EXPECT_EQ(contents("/data/persist_log/wex/exception_log/tombstone_00"), "stack");
    EXPECT_THAT(contents("/data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt"),
                HasSubstr("] mic stuck\n"));
    EXPECT_EQ(phone().kernelLog().read(), "");
    EXPECT_EQ(members("/data/kelvo/mmdump/gpu/N.tar.gz"),
              "data/kelvo/mmdump/gpu/N_android1.txt\ndata/kelvo/mmdump/gpu/N_dmesg1.txt\n");
    EXPECT_THAT(names("/data/kelvo/mmdump/gpu"), ElementsAre("N.tar.gz"));
    EXPECT_THAT(logLines("sh"), IsEmpty());
}

TEST_F(ShellTest, WhatIsNoPlainCommandIsRefusedWhole) {
    file("/data/x/keep", "kept");
    for (const char* command : {
             "",
             " ",
             "rm -rf /data/x\ntouch /data/new",
             "rm -rf /data/x; true",
             "rm -rf /data/x | true",
             "rm -rf /data/x & true",
             "rm -rf $HOME",
             "rm -rf `id`",
             "rm -rf '/data/x'",
             "rm -rf \"/data/x\"",
             "rm -rf /data/\\x",
             "cp < /data/x/keep",
             "rm -rf /data/*/keep",
             "rm -rf /data/x/kee?",
             "rm -rf /data/x/[k]eep",
             "rm -rf /data/{x,y}",
             "rm -rf ~",
             "touch /data/new > /data/x/*",
             "dmesg >> /data/new",
             "dmesg > /data/new x",
             "dmesg >/data/new",
             "dmesg > /data/new > /data/new2",
         }) {
        EXPECT_EQ(run(command), sim::Shell::kRefused) << command;
    }
    EXPECT_EQ(run(std::string(20000, 'a')), sim::Shell::kRefused);
    for (const char* command : {"sh -c true", "/bin/rm -rf /data/x", "../../bin/rm /data/x", "id"})
        EXPECT_EQ(run(command), sim::Shell::kNotFound) << command;
    EXPECT_EQ(contents("/data/x/keep"), "kept");
    EXPECT_FALSE(exists("/data/new"));
}

TEST_F(ShellTest, PathsAndLinksDoNotLeadOut) {
    file("/data/x/mine", "mine");
    plant("/data/x/escape", precious() + "/sub/file");
    const std::string out = precious();
    for (const std::string& command : std::vector<std::string>{
             "rm -rf /",
             "rm -rf .",
             "rm -rf /data/..",
             "rm -rf /data/x/..",
             "rm -rf /data/x/.",
             "rm -rf ..",
             "rm -rf /../run",
             "rm -rf /data/../../run",
             "rm -rf /data/out/",
             "rm -rf /data/out/sub",
             "rm -rf /data/out/*",
             "rm -rf /../run/*",
             "rm " + out,
             "chmod 0777 /data/file",
             "chmod 0777 /data/out",
             "chmod -R 0777 /data/out/sub",
             "chmod 0777 /data/x/*",
             "cp /data/x/mine /data/file",
             "cp /data/x/mine /data/out/new",
             "cp /data/x/mine /data/out",
             "cp /data/file /data/x/copy",
             "cp /data/x/* /data",
             "touch /data/out/new",
             "touch /data/file",
             "dmesg > /data/file",
             "dmesg > /data/out/new",
             "dmesg > /../run/new",
             "dmesg -c > " + out + "/new",
             "tar -czf /data/file /data/x",
             "tar -czf /data/out/new /data/x",
             "tar -czf /data/a.tar -C /data/out sub",
             "tar -czf /data/a.tar -C /data/out .",
             "tar -czf /data/a.tar -C /data/out ./",
             "tar -czf /data/a.tar -C /data/out/. .",
             "tar -czf /data/a.tar /data/out/",
             "tar -czf /data/a.tar -C /data ../../run",
             "tar -czf /data/a.tar -C /../run precious",
             "tar -czf /data/a.tar /data/out/sub",
             "perfetto --config :test --out /data/file",
             "perfetto --config :test --out /../new",
         }) {
        EXPECT_NE(run(command), 0) << command;
    }
    EXPECT_EQ(contents("/data/x/mine"), "mine");
    EXPECT_FALSE(exists("/data/x/copy"));
    EXPECT_FALSE(exists("/data/a.tar"));
}

TEST_F(ShellTest, ProgramsThatWalkATreeDoNotFollowItsLinks) {
    file("/data/x/mine", "mine");
    plant("/data/x/dir", precious() + "/sub");
    plant("/data/x/escape", precious() + "/sub/file");
    EXPECT_EQ(run("chmod -R 0777 /data/x"), 0);
    EXPECT_EQ(run("tar -czf /data/a.tar.gz -C /data x"), 0);
    EXPECT_EQ(members("/data/a.tar.gz").find("file"), std::string::npos);
    EXPECT_EQ(run("cp -r /data/x /data/y"), 0);
    EXPECT_TRUE(fs::is_symlink(phone().fsDir() + "/data/y/escape"));
    // Copies onto planted links: the link to a file gives way, the one to a directory refuses.
    file("/data/src/escape", "new");
    EXPECT_EQ(run("cp /data/src/escape /data/x/"), 0);
    EXPECT_EQ(contents("/data/x/escape"), "new");
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
        EXPECT_NE(run(command + "/data/pipe"), 0) << command;
        EXPECT_NE(run(command + "/data/twin"), 0) << command;
    }
    for (const char* command : {"tar -czf /data/pipe /data/mine", "tar -czf /data/twin /data/mine",
                                "cp /data/pipe /data/copy"}) {
        EXPECT_NE(run(command), 0) << command;
    }
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
        {"tar", {"-czf", "/data/x/sub/archive", "-C", "/data/x", "."}},
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
        EXPECT_EQ(sim::runHostProgram(phone().root(), command, STDERR_FILENO), 0) << program;
        fs::remove(x);
        fs::rename(moved, x);
    }
    EXPECT_EQ(contents("/data/x/mine"), "new");
    EXPECT_FALSE(exists("/data/x/sub"));
    EXPECT_THAT(members("/data/a.tar"), testing::StartsWith("data/x/sub/file\ndata/x/sub/\n"));
    EXPECT_THAT(members("/data/a.tar"), HasSubstr("\ndata/x/sub/archive\n"));
    EXPECT_EQ(run("cp /data/none /data/x"), 1);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "sh",
                       "cp: cannot stat '/data/none': No such file or directory\n"));
}

TEST_F(ShellTest, OptionsCannotBeSmuggledIn) {
    file("/data/x/mine", "mine");
    file("/-rf", "a file with an option's name");
    file("/data/h:st.tar", "");
    for (const char* command : {
             "tar -czf /data/a.tar --checkpoint=1 --checkpoint-action=exec=id /data/x",
             "tar -czf /data/a.tar -I id /data/x",
             "tar -xzf /data/a.tar",
             "tar -czf -",
             "tar -czf /data/a.tar -f/../new /data/x",
             "tar -czf /data/a.tar -C",
             "tar --help",
             "rm --no-preserve-root -rf /",
             "rm -rf --one-file-system /data/x",
             "rm -rfv /data/x",
             "cp -t /data /data/x/mine",
             "cp /data/x/mine --target-directory=/data",
             "chmod --reference=/data/x/mine /data/x",
             "chmod u+s /data/x/mine",
             "chmod -x /data/x",
             "chmod 4755 /data/x/mine",
             "touch -r /data/x/mine /data/new",
             "dmesg -C",
             "dmesg --clear",
             "logcat",
             "logcat -f /data/new",
             "logcat -v brief -d",
             "perfetto --txt --out /data/new",
         }) {
        EXPECT_NE(run(command), 0) << command;
    }
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

TEST_F(ShellTest, AProgramCanFailOrHang) {
    phone().shell().fail("tar", 2);
    EXPECT_EQ(run("tar -czf /data/a.tar /data"), 2);
    EXPECT_FALSE(exists("/data/a.tar"));

    phone().shell().hang("touch");
    std::thread caller([&] { EXPECT_EQ(run("touch /data/late"), 0); });
    EXPECT_TRUE(phone().shell().waitHanging("touch"));
    EXPECT_FALSE(exists("/data/late"));
    phone().shell().release("touch");
    caller.join();
    EXPECT_TRUE(exists("/data/late"));
}

TEST_F(ShellTest, TheKernelLogKeepsItsLatestLines) {
    const std::string text(1000, 'k');
    phone().kernelLog().append("first");
    for (int i = 0; i < 300; ++i) phone().kernelLog().append(text);
    phone().kernelLog().append("last\nof all");
    const std::string kept = phone().kernelLog().read();
    EXPECT_EQ(kept.find("first"), std::string::npos);
    EXPECT_EQ(kept[0], '[');
    EXPECT_THAT(kept, testing::EndsWith("] last of all\n"));
    EXPECT_LE(kept.size(), sim::KernelLog::kBytes + 2048);
    EXPECT_EQ(phone().kernelLog().readAndClear(), kept);
    EXPECT_EQ(phone().kernelLog().readAndClear(), "");
}
