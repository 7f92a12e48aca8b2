#include "sim/userspace/services.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>

#include <memory>
#include <system_error>
#include <thread>

#include "sim/base/fd.h"
#include "sim/shell/shell.h"
#include "sim/userspace/phone_log.h"

namespace sim {
namespace {

constexpr char kTag[] = "init";

bool refuse(const std::string& why) {
    logAs(kTag, kError, "Control message: Could not " + why);
    return false;
}

}  // namespace

// A service that runs, for every process of the phone. Its lock and what is told of it change
// together, under the directory's lock: a start that follows "stopped" is never ignored.
class Services::Run {
  public:
    Run(const std::string& directory, const std::string& name, Teller tell)
        : mDirectory(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          mTell(std::move(tell)) {
        const FileLock change(mDirectory.get());
        mFile = Fd(open((directory + "/" + name).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                        0600));
        mError = mFile.valid() && flock(mFile.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
        if (mError == 0) mTell("running");
    }
    ~Run() {
        if (mError != 0) return;
        const FileLock change(mDirectory.get());
        mTell("stopped");
        flock(mFile.get(), LOCK_UN);  // a child of a fork may have the file open still
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // 0, EWOULDBLOCK when it runs already, or what else went wrong: then this is no run.
    int error() const { return mError; }

  private:
    const Fd mDirectory;
    const Teller mTell;
    Fd mFile;
    int mError = 0;
};

void Services::add(const std::string& name, Program program) {
    Lock lock(mMutex);
    mPrograms[name] = std::move(program);
}

Services::Program Services::find(const std::string& name) {
    Lock lock(mMutex);
    const auto found = mPrograms.find(name);
    return found == mPrograms.end() ? nullptr : found->second;
}

bool Services::start(const std::string& name, Teller tell) try {
    Program program = find(name);
    if (!program) return refuse("find '" + name + "' for ctl.start");
    auto run = std::make_shared<Run>(mDirectory, name, std::move(tell));
    if (run->error() == EWOULDBLOCK) {
        logAs(kTag, kInfo, "service '" + name + "' requested start, but it is already running");
        return true;
    }
    if (run->error() != 0) return refuse("start '" + name + "': " + strerror(run->error()));
    spawn([this, name, program = std::move(program), run = std::move(run)]() mutable {
        execute(name, program);
        run.reset();
    });
    return true;
} catch (const std::system_error& failure) {
    return refuse("start '" + name + "': " + failure.what());
}

void Services::execute(const std::string& name, const Program& program) {
    int status = mShell.faultOf(name);
    if (status == 0) status = program();
    if (status == 0) return;
    logAs(kTag, kWarn, "Service '" + name + "' exited with status " + std::to_string(status));
}

void Services::spawn(std::function<void()> body) {
    Lock lock(mMutex);
    std::thread([this, body = std::move(body)] {
        pthread_setname_np(pthread_self(), "sim_service");
        body();
        Lock ended(mMutex);
        --mRunning;
        mChanged.notifyAll();
    }).detach();
    ++mRunning;
}

void Services::awaitStopped() {
    Lock lock(mMutex);
    for (const auto& [name, program] : mPrograms) mShell.release(name);
    while (mRunning > 0) mChanged.wait(mMutex);
}

}  // namespace sim
