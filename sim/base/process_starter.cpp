#include "sim/base/process_starter.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sim {
namespace {

// Lowest number for temporary copies; children are given only lower numbers.
constexpr int kMinCopyFd = 10;

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ProcessStarter::ProcessStarter() {
    posix_spawn_file_actions_init(&mActions);
    posix_spawnattr_init(&mAttributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&mAttributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&mAttributes, &signals);
}

ProcessStarter::~ProcessStarter() {
    posix_spawnattr_destroy(&mAttributes);
    posix_spawn_file_actions_destroy(&mActions);
}

void ProcessStarter::setFd(int number, int ours) {
    // Copies a low descriptor up: an earlier dup2() in the child could overwrite it.
    if (ours != number && ours >= 0 && ours < kMinCopyFd) {
        mCopies.emplace_back(fcntl(ours, F_DUPFD_CLOEXEC, kMinCopyFd));
        ours = mCopies.back().get();
        if (ours < 0) noteError(errno);
    }
    noteError(posix_spawn_file_actions_adddup2(&mActions, ours, number));
}

void ProcessStarter::openFd(int number, const std::string& path, int flags, mode_t mode) {
    noteError(posix_spawn_file_actions_addopen(&mActions, number, path.c_str(), flags, mode));
}

void ProcessStarter::closeFrom(int first) {
    noteError(posix_spawn_file_actions_addclosefrom_np(&mActions, first));
}

void ProcessStarter::setDirectory(int directoryFd) {
    noteError(posix_spawn_file_actions_addfchdir_np(&mActions, directoryFd));
}

void ProcessStarter::setEnvironment(std::vector<std::string> environment) {
    mEnvironment = std::move(environment);
    mOwnEnvironment = true;
}

// The kernel signals the owner of the pipe's reading end once nobody has the writing end open.
void ProcessStarter::endWithUs() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) return noteError(errno);
    mChildsEnd = Fd(ends[0]);
    mLifeline = Fd(ends[1]);
    if (fcntl(mChildsEnd.get(), F_SETFL, O_ASYNC) < 0) noteError(errno);
    setFd(STDIN_FILENO, mChildsEnd.get());
    mFlags |= POSIX_SPAWN_SETPGROUP;
}

int ProcessStarter::start(const std::string& file, const std::vector<std::string>& arguments,
                          pid_t& pid) {
    if (mError != 0) return mError;
    const std::vector<char*> words = pointersTo(arguments), variables = pointersTo(mEnvironment);
    posix_spawnattr_setflags(&mAttributes, mFlags);
    const int error = posix_spawnp(&pid, file.c_str(), &mActions, &mAttributes, words.data(),
                                   mOwnEnvironment ? variables.data() : environ);
    // The child leads its process group.
    if (error == 0 && mLifeline.valid()) fcntl(mChildsEnd.get(), F_SETOWN, -pid);
    return error;
}

int waitForExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

}  // namespace sim
