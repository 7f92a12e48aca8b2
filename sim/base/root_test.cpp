#include "sim/base/root.h"

#include <binder/IServiceManager.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "phone/phone.h"
#include "sim/base/mutex.h"
#include "tests/support/phone_fixture.h"

namespace fs = std::filesystem;

// A phone with planted links that lead out, and a canary beside its root.
class RootTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        mCanary = phone().runDir() + "/canary";
        file("/../run/canary", "alive");
        file("/data/x/real", "inside");
        fs::create_symlink(phone().runDir(), phone().fsDir() + "/data/out");
        fs::create_symlink(mCanary, phone().fsDir() + "/data/x/link");
        fs::create_symlink("real", phone().fsDir() + "/data/x/inner");
    }
    void TearDown() override {
        EXPECT_EQ(contents("/../run/canary"), "alive");
        EXPECT_FALSE(exists("/../new") || exists("/../run/new"));
        PhoneTest::TearDown();
    }

    // The errno of a call, or 0.
    static int error(bool failed) { return failed ? errno : 0; }
    static int openError(const std::string& path, int flags) {
        return error(!sim::Fd(phone::open(path.c_str(), flags | O_CLOEXEC, 0600)).valid());
    }
    static int fopenError(const std::string& path, const char* mode) {
        return error(phone::fopen(path.c_str(), mode) == nullptr);
    }

    std::string mCanary;
};

TEST_F(RootTest, MapsPathsBelowTheRoot) {
    const std::pair<const char*, const char*> cases[] = {{"data/x/real", "data/x/real"},
                                                         {"//data/./x//real", "data/x/real"},
                                                         {"/data/x/../../data/./x", "data/x"},
                                                         {"/data/x/..", "data"},
                                                         {"/", "."}};
    for (const auto& [path, place] : cases) {
        sim::Root::Place found;
        EXPECT_EQ(phone().root().resolve(path, found), 0) << path;
        EXPECT_EQ(found.path, place) << path;
    }
    EXPECT_EQ(openError(std::string(5000, 'a'), O_RDONLY), ENAMETOOLONG);
}

TEST_F(RootTest, EveryCallOfTheDoorRefusesToLeaveTheRoot) {
    const std::pair<std::string, int> cases[] = {{"", ENOENT},
                                                 {mCanary, ENOENT},
                                                 {"..", EXDEV},
                                                 {"/../new", EXDEV},
                                                 {"/data/../../run/canary", EXDEV},
                                                 {"/data/out/canary", ELOOP},
                                                 {"/data/x/../out/new", ELOOP},
                                                 {"/data/out/../new", ELOOP}};
    for (const auto& [path, refused] : cases) {
        SCOPED_TRACE(path);
        struct stat status {};
        EXPECT_EQ(openError(path, O_RDWR | O_CREAT), refused);
        EXPECT_EQ(fopenError(path, "w"), refused);
        EXPECT_EQ(error(phone::opendir(path.c_str()) == nullptr), refused);
        EXPECT_EQ(error(phone::stat(path.c_str(), &status) < 0), refused);
        EXPECT_EQ(error(phone::mkdir(path.c_str(), 0700) < 0), refused);
        EXPECT_EQ(error(phone::remove(path.c_str()) < 0), refused);
    }
}

TEST_F(RootTest, OpensNoLinkNoPipeAndWritesNoFileOfSeveralNames) {
    for (const char* path : {"/data/x/link", "/data/x/inner"}) {
        struct stat status {};
        EXPECT_EQ(openError(path, O_WRONLY | O_CREAT | O_TRUNC), ELOOP);
        EXPECT_EQ(error(phone::stat(path, &status) < 0), ELOOP);
    }
    EXPECT_EQ(error(phone::opendir("/data/out/") == nullptr), ENOTDIR);
    EXPECT_EQ(phone::remove("/data/out"), 0);
    EXPECT_FALSE(exists("/data/out"));
    ASSERT_EQ(mkfifo((phone().fsDir() + "/data/pipe").c_str(), 0600), 0);
    fs::create_hard_link(mCanary, phone().fsDir() + "/data/twin");
    EXPECT_EQ(openError("/data/pipe", O_RDONLY), ENXIO);
    EXPECT_EQ(fopenError("/data/twin", "w"), EMLINK);
    EXPECT_EQ(openError("/data/twin", O_RDONLY), 0);
}

TEST_F(RootTest, CallsBehaveAsTheirCFunctions) {
    EXPECT_EQ(phone::mkdir("/data/x/sub/", 0700), 0);
    EXPECT_EQ(error(phone::remove("/data/x") < 0), ENOTEMPTY);
    EXPECT_EQ(phone::remove("/data/x/sub"), 0);
    EXPECT_EQ(openError("/data/x/real/", O_RDONLY), ENOTDIR);
    EXPECT_EQ(fopenError("/data/x/real", "q"), EINVAL);
    FILE* log = phone::fopen("/data/x/real", "a+");
    ASSERT_NE(log, nullptr);
    fputs(" and out", log);
    fclose(log);
    EXPECT_EQ(contents("/data/x/real"), "inside and out");
    const sim::Fd fd(phone::open("/data/x/real", O_WRONLY | O_TRUNC | O_CLOEXEC));
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(contents("/data/x/real"), "");
}

class PhoneFolderTest : public testing::Test {
  protected:
    PhoneFolderTest() { EXPECT_NE(mkdtemp(mFolder.data()), nullptr); }
    ~PhoneFolderTest() override { fs::remove_all(mFolder); }

    // A process has one phone: another one makes those that the test opens itself.
    static void inChild(const std::function<void()>& work) {
        if (fork() == 0) {
            work();
            _exit(0);  // a refusal has ended it otherwise
        }
        int status = -1;
        wait(&status);
        EXPECT_EQ(status, 0);
    }

    std::string mFolder = testing::TempDir() + "folder-XXXXXX";
};

TEST_F(PhoneFolderTest, OpensNoOtherFolderAndNoLinks) {
    std::ofstream(mFolder + "/mine") << "mine";
    EXPECT_THROW(sim::Phone::create(mFolder), std::runtime_error);
    for (const char* part : {"fs", "run"}) {
        fs::remove_all(mFolder);
        fs::create_directories(mFolder + "/fs");
        fs::create_directories(mFolder + "/run");
        EXPECT_THROW(sim::Phone::open(mFolder), std::runtime_error);
        std::ofstream(mFolder + "/run/phone") << "pelto phone 1\n";
        fs::rename(mFolder + '/' + part, mFolder + "/elsewhere");
        fs::create_symlink("elsewhere", mFolder + '/' + part);
        EXPECT_THROW(sim::Phone::open(mFolder), std::runtime_error) << part;
    }
}

TEST_F(PhoneFolderTest, OpensForThoseWhoNameNoneAndUseItFirst) {
    const std::string named = mFolder + "/named", other = mFolder + "/other";
    inChild([&] { sim::Phone::create(named); });
    inChild([&] { sim::Phone::create(other); });
    setenv("PELTO_PHONE", named.c_str(), 1);
    std::vector<std::thread> users;
    std::set<sim::Phone*> found;
    sim::Mutex lock;
    for (int i = 0; i < 8; ++i) {
        users.emplace_back([&, i] {
            if (i % 2 == 0) {
                EXPECT_EQ(android::defaultServiceManager()->checkService(android::String16("none")),
                          nullptr);
            } else {
                errno = EBUSY;
                EXPECT_EQ(__android_log_write(ANDROID_LOG_INFO, "first", "use"), 1);
                EXPECT_EQ(errno, EBUSY);
            }
            sim::Lock locked(lock);
            found.insert(sim::Phone::find());
        });
    }
    for (std::thread& user : users) user.join();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ((*found.begin())->folder(), fs::canonical(named));
    EXPECT_THROW(sim::Phone::open(other), std::runtime_error);
    EXPECT_EQ(&sim::Phone::open(named), *found.begin());
}

TEST_F(PhoneFolderTest, EndsThoseWhoNameNoneWithOneLine) {
    const auto useByTwo = [] {
        std::thread other([] { __android_log_write(ANDROID_LOG_INFO, "first", "use"); });
        sim::Phone::get();
        other.join();
    };
    setenv("PELTO_PHONE", (mFolder + "/none").c_str(), 1);
    EXPECT_EXIT(useByTwo(), testing::ExitedWithCode(3),
                "^sim_test: [^\n]*/none: No such file or directory; make a phone with: [^\n]*\n$");
    inChild([&] { sim::Phone::create(mFolder + "/phone"); });
    fs::create_symlink("phone", mFolder + "/link");
    setenv("PELTO_PHONE", (mFolder + "/link").c_str(), 1);
    EXPECT_EXIT(useByTwo(), testing::ExitedWithCode(3),
                "^sim_test: [^\n]*/link: is a link[^\n]*\n$");
    unsetenv("PELTO_PHONE");
    setenv("XDG_RUNTIME_DIR", mFolder.c_str(), 1);
    EXPECT_EXIT(useByTwo(), testing::ExitedWithCode(3), "^sim_test: [^\n]*/pelto-phone: ");
}

TEST_F(PhoneFolderTest, IsWholeForProcessesThatMakeItAtOnce) {
    for (int i = 0; i < 40; ++i) {
        if (fork() != 0) continue;
        sim::Phone::create(mFolder + "/" + std::to_string(i / 8));
        _exit(0);  // a refusal has ended it otherwise
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
}
