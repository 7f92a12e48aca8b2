#include "sim/base/root.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "phone/phone.h"
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

    std::string mCanary;
};

int errorOf(bool failed) {
    return failed ? errno : 0;
}

int openError(const std::string& path, int flags) {
    return errorOf(sim::Fd(phone::open(path.c_str(), flags | O_CLOEXEC, 0600)).get() < 0);
}

int fopenError(const char* path, const char* mode) {
    return errorOf(phone::fopen(path, mode) == nullptr);
}

int mkdirError(const std::string& path) {
    return errorOf(phone::mkdir(path.c_str(), 0700) < 0);
}

TEST_F(RootTest, PathsAreMappedBelowTheRoot) {
    const auto lead = [&](const char* place, const std::vector<const char*>& paths) {
        for (const char* path : paths) {
            sim::Root::Place found;
            EXPECT_EQ(phone().root().resolve(path, found), 0) << path;
            EXPECT_EQ(found.path, place) << path;
        }
    };
    lead("data/x/real", {"/data/x/real", "data/x/real", "//data/./x//real", "/data/../data/x/real",
                         "/data/x/../../data/x/real"});
    lead("data", {"/data/x/.."});
    lead(".", {"/"});
    EXPECT_EQ(openError(std::string(5000, 'a'), O_RDONLY), ENAMETOOLONG);
}

TEST_F(RootTest, EveryCallOfTheDoorRefusesToLeaveTheRoot) {
    const auto fail = [](int error, const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            SCOPED_TRACE(path);
            struct stat status {};
            EXPECT_EQ(openError(path, O_RDWR | O_CREAT), error);
            EXPECT_EQ(fopenError(path.c_str(), "w"), error);
            EXPECT_EQ(errorOf(phone::opendir(path.c_str()) == nullptr), error);
            EXPECT_EQ(errorOf(phone::stat(path.c_str(), &status) < 0), error);
            EXPECT_EQ(mkdirError(path), error);
            EXPECT_EQ(errorOf(phone::remove(path.c_str()) < 0), error);
            EXPECT_NE(phone::system(("touch " + path).c_str()), 0);
            EXPECT_NE(phone::system(("dmesg > " + path).c_str()), 0);
        }
    };
    fail(ENOENT, {"", mCanary});
    fail(EXDEV, {"..", "/../new", "/../run/canary", "/data/../../run/canary"});
    fail(ELOOP, {"/data/out/canary", "/data/out/new", "/data/x/../out/canary", "/data/out/../new"});
}

TEST_F(RootTest, ALinkAsLastComponentIsNotFollowed) {
    for (const char* path : {"/data/x/link", "/data/x/inner"}) {
        struct stat status {};
        EXPECT_EQ(openError(path, O_RDWR), ELOOP);
        EXPECT_EQ(openError(path, O_WRONLY | O_CREAT | O_TRUNC), ELOOP);
        EXPECT_EQ(fopenError(path, "a"), ELOOP);
        EXPECT_EQ(errorOf(phone::stat(path, &status) < 0), ELOOP);
    }
    for (const char* path : {"/data/out", "/data/out/"})
        EXPECT_EQ(errorOf(phone::opendir(path) == nullptr), ENOTDIR);
    EXPECT_EQ(phone::remove("/data/out"), 0);
    EXPECT_FALSE(exists("/data/out"));
}

TEST_F(RootTest, WhatWouldHoldOrReachOutsideIsNotOpened) {
    ASSERT_EQ(mkfifo((phone().fsDir() + "/data/pipe").c_str(), 0600), 0);
    fs::create_hard_link(mCanary, phone().fsDir() + "/data/twin");
    EXPECT_EQ(openError("/data/pipe", O_RDONLY), ENXIO);
    EXPECT_EQ(openError("/data/pipe", O_RDWR), ENXIO);
    EXPECT_EQ(fopenError("/data/pipe", "rb"), ENXIO);
    EXPECT_EQ(fopenError("/data/twin", "w"), EMLINK);
    EXPECT_EQ(openError("/data/twin", O_RDWR), EMLINK);

    const sim::Fd fd(phone::open("/data/x/real", O_WRONLY | O_TRUNC | O_CLOEXEC));
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(contents("/data/x/real"), "");
    std::string deep = "/data";
    while (deep.size() < 400) ASSERT_EQ(mkdirError(deep += "/d"), 0);
    EXPECT_EQ(openError(deep + "/../d/..", O_RDONLY | O_DIRECTORY), 0);
}

TEST_F(RootTest, CallsBehaveAsTheirCFunctions) {
    EXPECT_EQ(mkdirError("/data/x"), EEXIST);
    EXPECT_EQ(mkdirError("/data/x/sub/"), 0);
    EXPECT_EQ(errorOf(phone::remove("/data/x") < 0), ENOTEMPTY);
    EXPECT_EQ(phone::remove("/data/x/sub"), 0);
    EXPECT_EQ(openError("/data/x/real/", O_RDONLY), ENOTDIR);
    EXPECT_EQ(openError("/data/x/none", O_RDONLY), ENOENT);
    EXPECT_EQ(fopenError("/data/x/real", "q"), EINVAL);
    EXPECT_EQ(errorOf(phone::socket(AF_INET, SOCK_STREAM, 0) < 0), EAFNOSUPPORT);
    sockaddr_in address{AF_INET, 0, {}, {}};
    EXPECT_EQ(errorOf(phone::bind(0, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0),
              EAFNOSUPPORT);

    FILE* log = phone::fopen("/data/x/real", "a+");
    ASSERT_NE(log, nullptr);
    fputs(" and out", log);
    fclose(log);
    EXPECT_EQ(contents("/data/x/real"), "inside and out");
}

class PhoneFolderTest : public testing::Test {
  protected:
    PhoneFolderTest() { EXPECT_NE(mkdtemp(mFolder.data()), nullptr); }
    ~PhoneFolderTest() override { fs::remove_all(mFolder); }

    std::string mFolder = testing::TempDir() + "folder-XXXXXX";
};

TEST_F(PhoneFolderTest, OnlyAPhonesFolderIsOpened) {
    EXPECT_THROW(sim::Phone::open(mFolder), std::runtime_error);
    EXPECT_THROW(sim::Phone::open(mFolder + "/none"), std::runtime_error);
    std::ofstream(mFolder + "/mine") << "mine";
    EXPECT_THROW(sim::Phone::create(mFolder), std::runtime_error);
    EXPECT_FALSE(fs::exists(mFolder + "/fs"));
    for (const char* part : {"fs", "run"}) {
        fs::remove_all(mFolder);
        fs::create_directories(mFolder + "/fs");
        fs::create_directories(mFolder + "/run");
        std::ofstream(mFolder + "/run/phone") << "pelto phone 1\n";
        fs::rename(mFolder + '/' + part, mFolder + "/elsewhere");
        fs::create_symlink("elsewhere", mFolder + '/' + part);
        EXPECT_THROW(sim::Phone::open(mFolder), std::runtime_error) << part;
    }
    EXPECT_DEATH(sim::Phone::get(), "no phone is open");
}

TEST_F(PhoneFolderTest, ProcessesThatMakeItAtOnceFindItWhole) {
    for (int i = 0; i < 80; ++i) {
        if (fork() != 0) continue;
        sim::Phone::create(mFolder + "/" + std::to_string(i / 8));
        _exit(0);  // a refusal has ended it otherwise
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
}
