#include "sim/userspace/services.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>

#include <memory>
#include <system_error>
#include <thread>

#include "sim/base/fd.h"
#include "sim/userspace/log.h"
#include "sim/userspace/program_faults.h"

namespace sim {
namespace {

constexpr char kTag[] = "init";

}  // namespace

// One run of a service, as every process of the phone sees it. The service's lock and its state
// change together, under the directory's lock, so that a start after "stopped" is never ignored.
class Services::Run {
  public:
    Run(const std::string& directory, const std::string& name, Teller tell)
        : mDirectory(openDirectory(directory)), mTell(std::move(tell)) {
        const FileLock change(mDirectory.get());
        if (!change.held()) {
            mError = errno;
            return;
        }
        mFile = Fd(open((directory + "/" + name).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                        0600));
        mError = mFile.valid() && flock(mFile.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
        if (mError == 0) mTell("running");
    }
    ~Run() {
        if (mError != 0) return;
        const FileLock change(mDirectory.get());
        mTell("stopped");
        flock(mFile.get(), LOCK_UN);  // a forked child may still have the file open
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // 0, or the errno why it could not start: EWOULDBLOCK when the service is already running.
    int error() const { return mError; }

  private:
    const Fd mDirectory;
    const Teller mTell;
    Fd mFile;
    int mError = 0;
};

void Services::add(const std::string& name, Program program) {
    mFaults.add(name);
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
        mLog.write(kInfo, kTag,
                   "service '" + name + "' requested start, but it is already running");
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

void Services::tellIfKilled(const std::string& name, const Teller& tell) {
    const Fd directory = openDirectory(mDirectory);
    const FileLock change(directory.get());
    if (!change.held()) return;
    const Fd file(open((mDirectory + "/" + name).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (file.valid() && flock(file.get(), LOCK_EX | LOCK_NB) == 0) tell("stopped");
}

bool Services::refuse(const std::string& why) {
    mLog.write(kError, kTag, "Control message: Could not " + why);
    return false;
}

void Services::execute(const std::string& name, const Program& program) {
    int status = mFaults.apply(name);
    if (status == 0) status = program();
    if (status == 0) return;
    mLog.write(kWarn, kTag, "Service '" + name + "' exited with status " + std::to_string(status));
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
    for (const auto& [name, program] : mPrograms) mFaults.release(name);
    while (mRunning > 0) mChanged.wait(mMutex);
}

}  // namespace sim
