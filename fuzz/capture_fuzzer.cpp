// Passes information strings to the exception reporter, the steps of the log-capture thread and the
// audio dump, on a phone with links that lead out of it. No string may change anything outside the
// phone's files.
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "fuzz/fuzz_phone.h"
#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/KelvoWexRaiseException.h"
#include "sim/userspace/services.h"

using namespace android;
namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxText = 8192;

// An input byte from 0x80 on stands for one of these tokens, any other for itself.
constexpr const char* kTokens[] = {
    ",",         "/",       "/..",         "/../",  "/data/x/", "/data/out/", "/data/link",
    "/data/in/", "E1",      "A0345",       "127",   "4",        "*",          " > ",
    " -C ",      " -rf ",   " --",         "\n",    " ",        ".",          "/../run/precious/",
    "/sys/",     "@BESIDE", "@BESIDE/E1/", "$(id)", "; id",     "| id",       "`id`",
    "-I id",     "~",       "/proc/self/", "-c",
};

// The phone's files, and the files beside them that must not change.
class World {
  public:
    World() {
        for (const std::string& place : {mBeside, mFolder + "/run/precious"}) {
            write(place + "/E1/file");
            fs::permissions(place + "/E1/file", fs::perms(0600));
        }
        mState = state();
    }

    // The text for a fuzzer's input, its tokens replaced.
    std::string read(const uint8_t* data, size_t size) const {
        std::string text;
        for (size_t i = 0; i < size && text.size() < kMaxText; ++i) {
            const std::string token = kTokens[data[i] % std::size(kTokens)];
            if (data[i] < 0x80) {
                text += static_cast<char>(data[i]);
            } else {
                text += token[0] == '@' ? mBeside + token.substr(7) : token;
            }
        }
        return text;
    }

    // Restores the phone's files before each input.
    void reset() const {
        const fs::path root = mFolder + "/fs";
        for (const auto& entry : fs::directory_iterator(root)) fs::remove_all(entry.path());
        for (int i = 0; i < 10; ++i)
            write(root / "data/persist_log/TMP/audio_dumpsys" / std::to_string(i));
        for (const char* file : {"data/tombstones/tombstone_00", "data/in/E1/file", "data/x/file"})
            write(root / file);
        fs::create_directory_symlink(mBeside, root / "data/out");
        for (const char* link : {"data/link", "data/in/E1/link", "data/tombstones/tombstone_01"})
            fs::create_symlink(mBeside + "/E1/file", root / link);
    }

    void check() const {
        const std::string now = state();
        require(now == mState, "outside the phone's files:\n" + now + "is\n" + mState);
    }

  private:
    static void write(const fs::path& path) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "alive";
    }

    // Names, permissions, times and contents of everything beside the phone's files; only the names
    // of the files that the phone writes as it runs.
    std::string state() const {
        static const std::set<fs::path> written = {"fs",       "run/init",       "run/kernel_log",
                                                   "run/log",  "run/properties", "run/reports",
                                                   "run/stats"};
        std::ostringstream text;
        for (fs::recursive_directory_iterator entry(mFolder), end; entry != end; ++entry) {
            text << entry->path() << '\n';
            if (written.count(entry->path().lexically_relative(mFolder)) != 0) {
                entry.disable_recursion_pending();
                continue;
            }
            text << static_cast<int>(entry->status().permissions()) << ' '
                 << entry->last_write_time().time_since_epoch().count() << '\n';
            if (entry->is_regular_file()) text << std::ifstream(entry->path()).rdbuf() << '\n';
        }
        return text.str();
    }

    const std::string mFolder = fuzzPhone().folder(), mBeside = mFolder + "/beside";
    std::string mState;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World& world = *new World;
    world.reset();
    const String8 info(world.read(data, size));
    sp<KelvoWexRaiseException>(new KelvoWexRaiseException(info))->WexRaiseException();
    const sp<KelvoPeltoLogThread> capture = new KelvoPeltoLogThread(info);
    capture->doLogCaputure();
    capture->doCompressFile();
    capture->deleteFiles();
    sp<KelvoAudioDumpsysLogThread>(new KelvoAudioDumpsysLogThread(info))->threadLoop();
    fuzzPhone().services().awaitStopped();
    world.check();
    return 0;
}
