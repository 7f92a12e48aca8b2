// Passes information strings to the exception reporter, the steps of the log-capture thread and the
// audio dump, on a phone with links that lead out of it. No string may change anything outside the
// phone's files, nor hand the workstation's programs, which are not started, anything there.
#include <fcntl.h>
#include <sys/wait.h>

#include <set>

#include "fuzz/confinement.h"
#include "fuzz/folder_watch.h"
#include "fuzz/hostile_phone.h"
#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoPeltoLogThread.h"
#include "logcapture/KelvoWexRaiseException.h"
#include "sim/base/root.h"
#include "sim/shell/shell.h"
#include "sim/shell/workstation_programs.h"
#include "sim/userspace/log.h"
#include "sim/userspace/services.h"

using namespace android;

namespace {

constexpr size_t kMaxInput = 256;  // longer paths take much longer to make and are cut anyway

int gPrograms = 0;  // how many would have been started

// Watches the phone's files, to restore those that an input changes, and the folders beside them.
class World {
  public:
    World() {
        mPhone.log().clear();
        for (const std::string& folder :
             {mPhone.folder(), mPhone.runDir(), mFiles.beside(), mFiles.beside() + "/E1",
              mFiles.precious(), mFiles.precious() + "/E1"})
            mBeside.add(folder);
        mInside.add(mFiles.fs());
        for (const auto& entry : std::filesystem::recursive_directory_iterator(mFiles.fs())) {
            mPlanted.insert(entry.path());
            if (entry.is_directory() && !entry.is_symlink()) mInside.add(entry.path());
        }
        mPhone.shell().run("touch /data/x/file");
        require(gPrograms == 1, "the shell's programs are those of the fuzzer");
    }

    String8 informationOf(const uint8_t* data, size_t size) const {
        return String8(mFiles.textOf(data, size));
    }

    void check() {
        mBeside.read([&](const std::string& folder, const std::string& name, uint32_t) {
            // Files that the phone itself writes as it runs.
            const bool written = name == "kernel_log" || name == "stats";
            require(written && folder == mPhone.runDir(), folder + '/' + name + " is as it was");
        });
    }

    // Takes away what was made in the phone's files and restores what was changed.
    void reset() {
        bool changed = false;
        mInside.read([&](const std::string& folder, const std::string& name, uint32_t changes) {
            const std::string path = folder + '/' + name;
            if (mPlanted.count(path) == 0) {
                std::filesystem::remove_all(path);
            } else if ((changes & IN_ISDIR) == 0) {
                changed = true;
            }
        });
        if (changed) mFiles.plant();
        mInside.read([](const std::string&, const std::string&, uint32_t) {});
        // Else each input would list and print those of all before it.
        const std::string run = mPhone.runDir();
        require(truncate((run + "/log/main").c_str(), 0) == 0, "the log is emptied");
        unlink((run + "/reports/00000001.report").c_str());
        mBeside.read([](const std::string&, const std::string&, uint32_t) {});
    }

  private:
    sim::Phone& mPhone = fuzzPhone();
    const HostilePhone mFiles;
    std::set<std::string> mPlanted;
    FolderWatch mInside, mBeside;
};

void dumpAudio(const String8& info) {
    sp<KelvoAudioDumpsysLogThread>(new KelvoAudioDumpsysLogThread(info))->threadLoop();
    fuzzPhone().services().awaitStopped();
}

}  // namespace

// Stands in for the phone's own, which starts the program.
int sim::runWorkstationProgram(const Root& root, Log&, const WorkstationCommand& command, int) {
    ++gPrograms;
    Confinement(root.directory(), command).check();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World& world = *new World;
    const String8 info = world.informationOf(data, std::min(size, kMaxInput));
    sp<KelvoWexRaiseException>(new KelvoWexRaiseException(info))->WexRaiseException();
    const sp<KelvoPeltoLogThread> capture = new KelvoPeltoLogThread(info);
    capture->doLogCaputure();
    capture->doCompressFile();
    capture->deleteFiles();
    if (size % 4 == 0) dumpAudio(info);  // takes as long as all before it
    world.check();
    world.reset();
    return 0;
}
