// Information strings on the road of a capture: through the exception reporter, the steps of the
// log-capture thread and the audio dump, on a phone with links that lead out of it. Whatever they
// say, nothing beside the phone's own files may change.
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "fuzz/fuzz_phone.h"
#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/KelvoWexRaiseException.h"

namespace {

namespace fs = std::filesystem;
using android::sp;
using android::String8;

constexpr size_t kLongestInput = 8192;

// A byte from 0x80 on stands for one of these, any other for itself.
constexpr const char* kTokens[] = {
    ",",         "/",       "/..",         "/../",  "/data/x/", "/data/out/", "/data/link",
    "/data/in/", "E1",      "A0345",       "127",   "4",        "*",          " > ",
    " -C ",      " -rf ",   " --",         "\n",    " ",        ".",          "/../run/precious/",
    "/sys/",     "@BESIDE", "@BESIDE/E1/", "$(id)", "; id",     "| id",       "`id`",
    "-I id",     "~",       "/proc/self/", "-c",
};

// The fuzzer's phone, and what lies beside its files.
class World {
  public:
    static World& get() {
        static World& world = *new World;
        return world;
    }

    const std::string& beside() const { return mBeside; }

    // The phone's files as they are before each input.
    void reset() const {
        const fs::path root = sim::Phone::get().fsDir();
        for (const auto& entry : fs::directory_iterator(root)) fs::remove_all(entry.path());
        for (const char* directory :
             {"data/in/E1", "data/tombstones", "data/x", "data/persist_log/TMP/audio_dumpsys"})
            fs::create_directories(root / directory);
        for (int i = 0; i < 10; ++i)
            write(root / "data/persist_log/TMP/audio_dumpsys" / std::to_string(i));
        write(root / "data/tombstones/tombstone_00");
        write(root / "data/in/E1/file");
        fs::create_directory_symlink(mBeside, root / "data/out");
        fs::create_symlink(mBeside + "/E1/file", root / "data/link");
        fs::create_symlink(mBeside + "/E1/file", root / "data/in/E1/link");
        fs::create_symlink(mBeside + "/E1/file", root / "data/tombstones/tombstone_01");
    }

    void check() const {
        if (state() == mState) return;
        fprintf(stderr, "changed outside the phone's files:\n%s\nnot\n%s\n", state().c_str(),
                mState.c_str());
        abort();
    }

  private:
    World() : mFolder(fuzzPhone().folder()), mBeside(mFolder + "/beside") {
        for (const std::string& place : {mBeside, sim::Phone::get().runDir() + "/precious"}) {
            fs::create_directories(place + "/E1");
            write(place + "/E1/file");
            fs::permissions(place + "/E1/file", fs::perms(0600));
        }
        mState = state();
    }

    static void write(const fs::path& path) { std::ofstream(path) << "alive"; }

    // Everything beside the phone's files that a command could make, change or remove.
    std::string state() const {
        std::ostringstream text;
        for (const auto& entry : fs::directory_iterator(mFolder)) text << entry.path() << '\n';
        for (const std::string& place : {mBeside, mFolder + "/run/precious"}) {
            for (const auto& entry : fs::recursive_directory_iterator(place)) {
                text << entry.path() << ' ' << static_cast<int>(entry.status().permissions()) << ' '
                     << entry.last_write_time().time_since_epoch().count() << '\n';
                if (entry.is_regular_file()) text << std::ifstream(entry.path()).rdbuf() << '\n';
            }
        }
        return text.str();
    }

    const std::string mFolder;
    const std::string mBeside;
    std::string mState;
};

std::string readInput(const uint8_t* data, size_t size, const std::string& beside) {
    std::string text;
    for (size_t i = 0; i < size && text.size() < kLongestInput; ++i) {
        if (data[i] < 0x80) {
            text += static_cast<char>(data[i]);
            continue;
        }
        const std::string token = kTokens[data[i] % std::size(kTokens)];
        text += token[0] == '@' && token.size() > 1 ? beside + token.substr(7) : token;
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const World& world = World::get();
    world.reset();
    const String8 info(readInput(data, size, world.beside()));

    const sp<android::KelvoWexRaiseException> reporter = new android::KelvoWexRaiseException(info);
    reporter->WexRaiseException();
    const sp<android::KelvoPeltoLogThread> capture = new android::KelvoPeltoLogThread(info);
    capture->doLogCaputure();
    capture->doCompressFile();
    capture->deleteFiles();
    const sp<android::KelvoAudioDumpsysLogThread> dump =
        new android::KelvoAudioDumpsysLogThread(info);
    dump->threadLoop();

    world.check();
    return 0;
}
