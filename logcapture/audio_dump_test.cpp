#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/testing/capture_test.h"
#include "phone/phone.h"

namespace android {
namespace {

namespace fs = std::filesystem;

class AudioDumpTest : public CaptureTest {
  protected:
    AudioDumpTest() : CaptureTest("KelvoAudioDumpsysLogThread") {}

    // A dump file, so many seconds after the start of the phone's time.
    void dumpFile(const std::string& name, int seconds) {
        file(kDirectory + name, "");
        const timespec times[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, host(name).c_str(), times, 0));
    }
    void dumpFiles(int count, const std::string& prefix = "f") {
        for (int i = 0; i < count; ++i) dumpFile(prefix + std::to_string(i), 7);
    }
    std::string host(const std::string& name) { return phone().fsDir() + kDirectory + name; }
    std::string firstListed() {
        const std::unique_ptr<DIR, int (*)(DIR*)> directory(phone::opendir(kDirectory), closedir);
        const dirent* entry = readdir(directory.get());
        while (entry->d_type != DT_REG) entry = readdir(directory.get());
        return entry->d_name;
    }
    size_t files() { return names(kDirectory).size(); }
    // What the constructor alone asks for.
    std::string prune() {
        make<KelvoAudioDumpsysLogThread>("t");
        return ran();
    }
    static std::string removal(const std::string& name) {
        return std::string("rm -rf ") + kDirectory + "/" + name;
    }
    static bool request(const std::string& type) {
        return make<KelvoAudioDumpsysLogThread>(type)->threadLoop();
    }

    static constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";
};

TEST_F(AudioDumpTest, TheTenthFileCostsTheOldest) {
    dumpFiles(8);
    dumpFile("old", 6);
    fs::create_directory(host("directory"));
    fs::create_symlink("f0", host("link"));
    EXPECT_EQ("", prune()) << "directories and links do not count";
    dumpFile("new", 8);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_FALSE(exists(kDirectory + std::string("old")));
    EXPECT_EQ("", prune());
    EXPECT_EQ(11u, files());
}

TEST_F(AudioDumpTest, OfEqualTimesTheFirstListedGoesOneADump) {
    dumpFiles(1000);
    for (int i = 0; i < 3; ++i) {
        const std::string first = firstListed();
        EXPECT_EQ(removal(first) + "\n", prune());
    }
    EXPECT_EQ(997u, files());
}

TEST_F(AudioDumpTest, WhatCannotBePrunedStays) {
    dumpFiles(9);
    dumpFile("$HOME", 1);
    EXPECT_EQ("", prune());
    EXPECT_EQ(1, count(said(), "E isParamInvalid, invalid param!\n"));
    fs::rename(host("$HOME"), host("old"));
    phone().shell().fail("rm", 1);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_EQ(1, count(said(), "D cmds failed: " + removal("old") + ", err=256\n"));
    EXPECT_EQ(10u, files());
}

TEST_F(AudioDumpTest, TenFilesThatCannotBeExaminedNameNone) {
    // With the directory they are longer than the buffer; cut, they name nothing.
    dumpFiles(10, std::string(240, 'n'));
    EXPECT_EQ("rm -rf \n", prune());
    EXPECT_EQ(10u, files());
}

TEST_F(AudioDumpTest, TheTypeIsSetBeforeTheServiceStarts) {
    fs::remove_all(host(""));
    const auto thread = make<KelvoAudioDumpsysLogThread>("a,b c");
    fs::create_directories(host(""));
    EXPECT_TRUE(thread->threadLoop());
    EXPECT_EQ("E DUMP_PATH open failed.\nD start audio dump info, mDumpType:a,b c\n", said());
    EXPECT_EQ("a,b c", property("kelvo.audio.dumpinfo.type"));
    EXPECT_THAT(contents(kDirectory + firstListed()), testing::StartsWith("dump type: a,b c\n"));

    // The service starts also when the property refuses the type.
    EXPECT_TRUE(request(std::string(92, 'x')));
    EXPECT_EQ("a,b c", property("kelvo.audio.dumpinfo.type"));
    EXPECT_EQ(2u, files());
    said();
    EXPECT_FALSE(request(""));
    EXPECT_EQ("E invalid mDumpType.\nD ~KelvoAudioDumpsysLogThread()\n", said());
    EXPECT_EQ(2u, files());
}

TEST_F(AudioDumpTest, TheRequestRepeatsWhileItsOwnerKeepsIt) {
    const auto thread = make<KelvoAudioDumpsysLogThread>("t");
    ASSERT_EQ(OK, thread->start("pelto_dump", 0, 0));
    EXPECT_TRUE(waitSaid(ANDROID_LOG_DEBUG, "start audio dump info, mDumpType:t", 3));
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

}  // namespace
}  // namespace android
