#include "sim/root.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "phone/phone.h"
#include "tests/support/phone_test.h"

namespace fs = std::filesystem;

// A phone in which links that lead out were planted, and a canary beside its root.
class RootTest : public PhoneTest {
  protected:
    void SetUp() override {
        PhoneTest::SetUp();
        mCanary = phone().runDir() + "/canary";
        std::ofstream(mCanary) << "alive";
        file("/data/x/real", "inside");
        fs::create_symlink(phone().runDir(), phone().fsDir() + "/data/out");
        fs::create_symlink(mCanary, phone().fsDir() + "/data/x/link");
        fs::create_symlink("real", phone().fsDir() + "/data/x/inner");
    }
    void TearDown() override {
        std::string text;
        std::getline(std::ifstream(mCanary), text);
        EXPECT_EQ(text, "alive");
        EXPECT_FALSE(fs::exists(phone().folder() + "/new"));
        EXPECT_FALSE(fs::exists(phone().runDir() + "/new"));
        PhoneTest::TearDown();
    }

    std::string mCanary;
};

int errorOf(bool failed) {
    return failed ? errno : 0;
}

TEST_F(RootTest, PathsAreMappedBelowTheRoot) {
    for (const char* path : {"/data/x/real", "data/x/real", "//data/./x//real",
                             "/data/../data/x/real", "/data/x/../../data/x/real"}) {
        sim::Root::Place place;
        EXPECT_EQ(phone().root().resolve(path, place), 0) << path;
        EXPECT_EQ(place.path, "data/x/real") << path;
    }
    sim::Root::Place place;
    EXPECT_EQ(phone().root().resolve("/data/x/..", place), 0);
    EXPECT_EQ(place.path, "data");
    EXPECT_EQ(phone().root().resolve("/", place), 0);
    EXPECT_EQ(place.path, ".");
    EXPECT_EQ(phone().root().resolve(std::string(5000, 'a'), place), ENAMETOOLONG);
}

TEST_F(RootTest, EveryCallOfTheDoorRefusesToLeaveTheRoot) {
    const struct {
        std::string path;
        testing::Matcher<int> error;
    } kEscapes[] = {
        {"", ENOENT},
        {"..", EXDEV},
        {"/../new", EXDEV},
        {"/../run/canary", EXDEV},
        {"/data/../../run/canary", EXDEV},
        {"/data/out/canary", ELOOP},
        {"/data/out/new", ELOOP},
        {"/data/x/../out/canary", ELOOP},
        {"/data/out/../new", ELOOP},
        {mCanary, ENOENT},
    };
    for (const auto& [text, error] : kEscapes) {
        SCOPED_TRACE(text);
        const char* path = text.c_str();
        struct stat status {};
        EXPECT_THAT(errorOf(phone::open(path, O_RDWR | O_CREAT, 0600) < 0), error);
        EXPECT_THAT(errorOf(phone::fopen(path, "w") == nullptr), error);
        EXPECT_THAT(errorOf(phone::opendir(path) == nullptr), error);
        EXPECT_THAT(errorOf(phone::stat(path, &status) < 0), error);
        EXPECT_THAT(errorOf(phone::mkdir(path, 0700) < 0), error);
        EXPECT_THAT(errorOf(phone::remove(path) < 0), error);
        EXPECT_NE(phone::system(("touch " + text).c_str()), 0);
        EXPECT_NE(phone::system(("dmesg > " + text).c_str()), 0);
    }
}

TEST_F(RootTest, ALinkAsLastComponentIsNotFollowed) {
    for (const char* path : {"/data/x/link", "/data/x/inner"}) {
        struct stat status {};
        EXPECT_EQ(errorOf(phone::open(path, O_RDWR) < 0), ELOOP);
        EXPECT_EQ(errorOf(phone::open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600) < 0), ELOOP);
        EXPECT_EQ(errorOf(phone::fopen(path, "a") == nullptr), ELOOP);
        EXPECT_EQ(errorOf(phone::stat(path, &status) < 0), ELOOP);
    }
    EXPECT_EQ(errorOf(phone::opendir("/data/out") == nullptr), ENOTDIR);
    EXPECT_EQ(errorOf(phone::opendir("/data/out/") == nullptr), ENOTDIR);
    EXPECT_EQ(phone::remove("/data/out"), 0);
    EXPECT_FALSE(exists("/data/out"));
}

TEST_F(RootTest, WhatWouldHoldOrReachOutsideIsNotOpened) {
    ASSERT_EQ(mkfifo((phone().fsDir() + "/data/pipe").c_str(), 0600), 0);
    fs::create_hard_link(mCanary, phone().fsDir() + "/data/twin");
    EXPECT_EQ(errorOf(phone::open("/data/pipe", O_RDONLY) < 0), ENXIO);
    EXPECT_EQ(errorOf(phone::open("/data/pipe", O_RDWR) < 0), ENXIO);
    EXPECT_EQ(errorOf(phone::fopen("/data/pipe", "rb") == nullptr), ENXIO);
    EXPECT_EQ(errorOf(phone::fopen("/data/twin", "w") == nullptr), EMLINK);
    EXPECT_EQ(errorOf(phone::open("/data/twin", O_RDWR) < 0), EMLINK);
    EXPECT_EQ(contents("/data/twin"), "alive");

    const int fd = phone::open("/data/x/real", O_WRONLY | O_TRUNC | O_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(contents("/data/x/real"), "");
    close(fd);
    std::string deep = "/data";
    for (size_t i = 2; i <= sim::Root::kDepth; ++i)
        EXPECT_EQ(phone::mkdir((deep += "/d").c_str(), 0700), 0);
    EXPECT_EQ(phone::mkdir((deep += "/d").c_str(), 0700), 0);
    EXPECT_EQ(errorOf(phone::mkdir((deep += "/d").c_str(), 0700) < 0), ENAMETOOLONG);
}

TEST_F(RootTest, CallsBehaveAsTheirCFunctions) {
    EXPECT_EQ(errorOf(phone::mkdir("/data/x", 0700) < 0), EEXIST);
    EXPECT_EQ(phone::mkdir("/data/x/sub/", 0700), 0);
    EXPECT_EQ(errorOf(phone::remove("/data/x") < 0), ENOTEMPTY);
    EXPECT_EQ(phone::remove("/data/x/sub"), 0);
    EXPECT_EQ(errorOf(phone::open("/data/x/real/", O_RDONLY) < 0), ENOTDIR);
    EXPECT_EQ(errorOf(phone::open("/data/x/none", O_RDONLY) < 0), ENOENT);
    EXPECT_EQ(errorOf(phone::fopen("/data/x/real", "q") == nullptr), EINVAL);
    EXPECT_EQ(errorOf(phone::socket(AF_INET, SOCK_STREAM, 0) < 0), EAFNOSUPPORT);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    EXPECT_EQ(errorOf(phone::bind(0, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0),
              EAFNOSUPPORT);

    FILE* log = phone::fopen("/data/x/real", "a+");
    ASSERT_NE(log, nullptr);
    fputs(" and out", log);
    fclose(log);
    EXPECT_EQ(contents("/data/x/real"), "inside and out");
}

TEST(PhoneFolder, OnlyAPhonesFolderIsOpened) {
    std::string folder = testing::TempDir() + "no-phone-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    EXPECT_THROW(sim::Phone::open(folder), std::runtime_error);
    EXPECT_THROW(sim::Phone::open(folder + "/none"), std::runtime_error);
    std::ofstream(folder + "/mine") << "mine";
    EXPECT_THROW(sim::Phone::create(folder), std::runtime_error);
    EXPECT_FALSE(fs::exists(folder + "/fs"));
    for (const char* part : {"fs", "run"}) {
        fs::remove_all(folder);
        fs::create_directories(folder + "/fs");
        fs::create_directories(folder + "/run");
        std::ofstream(folder + "/run/phone") << "pelto phone 1\n";
        fs::rename(folder + '/' + part, folder + "/elsewhere");
        fs::create_symlink("elsewhere", folder + '/' + part);
        EXPECT_THROW(sim::Phone::open(folder), std::runtime_error) << part;
    }
    EXPECT_DEATH(sim::Phone::get(), "no phone is open");
    fs::remove_all(folder);
}
