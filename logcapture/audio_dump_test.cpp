#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/testing/capture_test.h"

namespace android {
namespace {

namespace fs = std::filesystem;

constexpr char kDirectory[] = "/data/persist_log/TMP/audio_dumpsys/";

class AudioDumpTest : public CaptureTest {
  protected:
    AudioDumpTest() : CaptureTest("KelvoAudioDumpsysLogThread") {}

    // A dump file, modified this long after the start of the phone's clock.
    void dumpFile(const std::string& name, int seconds, int millis = 0) {
        file(kDirectory + name, "");
        const timespec times[] = {{}, {seconds, millis * 1000000}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, host(name).c_str(), times, 0));
    }
    void dumpFiles(int count, const std::string& prefix = "f") {
        for (int i = 0; i < count; ++i) dumpFile(prefix + std::to_string(i), 7, i * 617 % 1000);
    }
    std::string host(const std::string& name) { return phone().fsDir() + kDirectory + name; }
    size_t files() { return names(kDirectory).size(); }
    // The commands of the constructor alone.
    std::string prune() {
        make<KelvoAudioDumpsysLogThread>("t");
        return ran();
    }
    static std::string removal(const std::string& name) {
        return std::string("rm -rf ") + kDirectory + "/" + name;
    }
};

TEST_F(AudioDumpTest, TheTenthFileCostsTheOldest) {
    dumpFiles(8);
    dumpFile("old", 6);
    fs::create_directory(host("directory"));
    fs::create_symlink("f0", host("link"));
    EXPECT_EQ("", prune()) << "directories and links do not count";
    dumpFile("new", 8);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_EQ("", prune());
    EXPECT_EQ(11u, files());

    dumpFile("$HOME", 1);
    said();
    EXPECT_EQ("", prune());
    fs::rename(host("$HOME"), host("old"));
    phone().faults().fail("rm", 1);
    EXPECT_EQ(removal("old") + "\n", prune());
    EXPECT_EQ(
        "E isParamInvalid, invalid param!\nD ~KelvoAudioDumpsysLogThread()\n"
        "D cmds failed: " +
            removal("old") + ", err=256\nD ~KelvoAudioDumpsysLogThread()\n",
        said());
}

TEST_F(AudioDumpTest, OfEqualSecondsTheFirstListedGoesOneADump) {
    dumpFiles(1000);
    for (int i = 0; i < 3; ++i) {
        const fs::directory_iterator first(host(""));
        const std::string name = first->path().filename();
        EXPECT_EQ(removal(name) + "\n", prune());
    }
    EXPECT_EQ(997u, files());
}

TEST_F(AudioDumpTest, TenFilesThatCannotBeExaminedNameNone) {
    // With the directory these names exceed the buffer; cut, they name no file.
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
    phone().services().awaitStopped();
    EXPECT_THAT(contents(kDirectory + names(kDirectory)[0]),
                testing::StartsWith("dump type: a,b c\n"));
    // The service starts even when the property refuses the type.
    EXPECT_TRUE(make<KelvoAudioDumpsysLogThread>(std::string(92, 'x'))->threadLoop());
    phone().services().awaitStopped();
    EXPECT_EQ("a,b c", property("kelvo.audio.dumpinfo.type"));
    EXPECT_EQ(2u, files());
    said();
    EXPECT_FALSE(make<KelvoAudioDumpsysLogThread>("")->threadLoop());
    EXPECT_EQ("E invalid mDumpType.\nD ~KelvoAudioDumpsysLogThread()\n", said());
    EXPECT_EQ(2u, files());
    // It repeats while its owner keeps it.
    ASSERT_EQ(OK, thread->start("pelto_dump", 0, 0));
    EXPECT_TRUE(
        waitLogged("D KelvoAudioDumpsysLogThread: start audio dump info, mDumpType:a,b c", 3));
    thread->quit();
    EXPECT_FALSE(thread->isRunning());
}

}  // namespace
}  // namespace android
