// The phone's folder as a trust boundary, and on a disk that is full or cannot be written.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "sim/base/line_file.h"
#include "sim/kernel/kernel_log.h"
#include "sim/userspace/reports.h"
#include "tests/support/service_fixture.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

constexpr uid_t kNobody = 65534;

class StorageTest : public ServiceTest {
  protected:
    void TearDown() override {
        for (const std::string& place : mMounted) umount2(place.c_str(), MNT_DETACH);
        ServiceTest::TearDown();
    }
    std::string below(const std::string& name) { return phone().folder() + "/" + name; }
    Result startIn(const std::string& folder) {
        return pelto({"phone", "start", "--no-service", "--phone", folder});
    }
    // Mounts for this process and its children alone; false without the right to.
    bool mount(const char* source, const std::string& place, const char* type, unsigned long flags,
               const char* data = nullptr) {
        const bool alone = !mMounted.empty() ||
                           (unshare(CLONE_NEWNS) == 0 &&
                            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
        if (!alone || ::mount(source, place.c_str(), type, flags, data) != 0) return false;
        mMounted.push_back(place);
        return true;
    }
    // Runs `act` in a child process as another user; its result is the child's exit code.
    template <typename Act>
    static int asNobody(Act act) {
        const pid_t child = fork();
        if (child == 0) _exit(setresuid(kNobody, kNobody, kNobody) == 0 ? act() : 99);
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    }

  private:
    std::vector<std::string> mMounted;
};

TEST_F(StorageTest, RefusesAFolderThatOthersCouldExchange) {
    const std::string folder = below("other"), link = below("link");
    umask(0);
    const auto mode = [&] { return fs::status(folder).permissions(); };
    fs::create_directories(folder + "/mine");
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(1, startIn(folder).code);
    EXPECT_EQ(fs::perms(0755), mode()) << "is no phone's";
    fs::remove(folder + "/mine");
    ASSERT_EQ(0, startIn(folder + "/").code);
    EXPECT_EQ(fs::perms::owner_all, mode());
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(0, pelto({"getprop", "--phone", folder}).code);
    EXPECT_EQ(fs::perms::owner_all, mode()) << "others could read";
    for (const int writable : {0720, 0702, 0777}) {
        fs::permissions(folder, fs::perms(writable));
        refuses({"getprop", "--phone", folder}, 3, "can be written by other users");
        fails(hostCommand({}, "/other"), 3, "can be written by other users");
    }
    fs::permissions(folder, fs::perms::owner_all);
    fs::create_directory_symlink(folder, link);
    refuses({"phone", "start", "--phone", link + "/"}, 1, "is a link");
    refuses({"phone", "start", "--phone", below("run/phone")}, 1, "is not a directory");
}

TEST_F(StorageTest, KeepsAnotherUserOut) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
    char shared[] = "/tmp/pelto-shared-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(shared));
    fs::permissions(shared, fs::perms(01777));
    const std::string ours = std::string(shared) + "/ours",
                      theirs = std::string(shared) + "/theirs";
    ASSERT_EQ(0, startIn(ours).code);
    const std::string archive = ours + "/fs/data/a.tar.gz", run = ours + "/run";
    std::ofstream(archive) << "archive";
    fs::permissions(archive, fs::perms::all);
    EXPECT_EQ(0, asNobody([&] {
                  const bool closed = access(archive.c_str(), R_OK) < 0 &&
                                      unlink(archive.c_str()) < 0 &&
                                      rename(run.c_str(), theirs.c_str()) < 0 &&
                                      rename(ours.c_str(), theirs.c_str()) < 0;
                  return closed ? mkdir(theirs.c_str(), 0777) | chmod(theirs.c_str(), 0777) : 1;
              }));
    refuses({"phone", "start", "--phone", theirs}, 1, "belongs to another user, 65534");
    EXPECT_TRUE(fs::is_empty(theirs));
    fs::create_directories(theirs + "/run");
    refuses({"getprop", "--phone", theirs}, 3, "belongs to another user, 65534");
    fs::remove_all(shared);
}

TEST_F(StorageTest, ReportsAFullDiskAndGoesOn) {
    const std::string disk = below("disk"), phoneThere = disk + "/phone", filler = disk + "/filler";
    fs::create_directory(disk);
    if (!mount("none", disk, "tmpfs", 0, "size=4k")) GTEST_SKIP() << "needs the right to mount";
    const auto on = [&](Words words) {
        words.insert(words.end(), {"--phone", phoneThere});
        return words;
    };
    const char* const why = "No space left on device";
    std::ofstream(filler) << "x";
    refuses(on({"phone", "start"}), 1, why);
    fs::remove(filler);
    EXPECT_EQ(0, startIn(phoneThere).code) << "completes what was cut short";

    refuses(on({"kernel", "log", "text"}), 1, why);
    EXPECT_EQ(1, pelto(on({"phone", "start", "--under", emulator()})).code);
    ReadyProgram host(hostCommand({}, "/disk/phone"));
    refuses(on({"capture", "A0345"}), 1, why);
    refuses(on({"setprop", "ctl.start", "audiodumpinfo"}), 1, why);
    EXPECT_EQ("", pelto(on({"reports"})).output);
    ASSERT_EQ(0, ::mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT, "size=1m"));
    EXPECT_THAT(pelto(on({"capture", "A0345", "--wait"})).output, HasSubstr("0x10006345"));
    EXPECT_THAT(pelto(on({"logcat", "-d"})).output, HasSubstr("exception report 1 taken"));
}

TEST_F(StorageTest, ReadsAPhoneThatCannotBeWritten) {
    ASSERT_TRUE(setProperty("a.key", "value"));
    file("/data/gpudump@abc@v1@_2026-01-02_03-04-05.tar.gz", "archive");
    __android_log_write(ANDROID_LOG_INFO, "tag", "message");
    ASSERT_EQ(1u, phone().reports().add(std::string(sim::Reports::kRecordBytes, '\1')));
    const std::string folder = phone().folder();
    if (!mount(folder.c_str(), folder, nullptr, MS_BIND) ||
        !mount(nullptr, folder, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY))
        GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ("value\n", pelto({"getprop", "a.key"}).output);
    EXPECT_THAT(pelto({"archives", "list"}).output, HasSubstr("abc  version v1"));
    EXPECT_THAT(pelto({"logcat", "-d"}).output, HasSubstr("I tag     : message\n"));
    EXPECT_THAT(pelto({"reports"}).output, HasSubstr("id 0x01010101"));
    const char* const why = "Read-only file system";
    refuses({"logcat", "-c"}, 1, why);
    refuses({"kernel", "log", "text"}, 1, why);
    fails(hostCommand(), 3, why);
    EXPECT_THAT(pelto({"phone", "start"}).errors, HasSubstr(why));
}

TEST_F(StorageTest, KeepsTheLinesOfAFileThatIsLocked) {
    ASSERT_TRUE(phone().kernelLog().append("kept") && phone().stats().append("kept"));
    {
        const sim::Fd messages(open(below("run/kernel_log").c_str(), O_RDONLY));
        const sim::Fd stats(open(below("run/stats").c_str(), O_RDONLY));
        const sim::FileLock locks[] = {sim::FileLock(messages.get()), sim::FileLock(stats.get())};
        EXPECT_EQ(std::nullopt, phone().kernelLog().readAndClear());
        refuses({"stats"}, 1, "Device or resource busy");
    }
    EXPECT_THAT(phone().kernelLog().readAndClear(), testing::Optional(HasSubstr("kept")));
    EXPECT_EQ("kept\n", pelto({"stats"}).output);
}

}  // namespace
