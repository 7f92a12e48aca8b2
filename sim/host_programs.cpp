#include "sim/host_programs.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include "sim/fd.h"
#include "sim/phone_log.h"
#include "sim/root.h"

namespace sim {
namespace {

class SpawnSettings {
  public:
    SpawnSettings(const Root& root, int outputFd, int errorFd) {
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_addopen(&mActions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&mActions, outputFd, 1);
        posix_spawn_file_actions_adddup2(&mActions, errorFd, 2);
        posix_spawn_file_actions_addchdir_np(&mActions, root.directory().c_str());
        posix_spawnattr_init(&mAttributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&mAttributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&mAttributes, &signals);
        posix_spawnattr_setflags(&mAttributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&mAttributes);
        posix_spawn_file_actions_destroy(&mActions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int spawn(pid_t& pid, const std::vector<std::string>& arguments) {
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        char path[] = "PATH=/usr/bin:/bin", locale[] = "LC_ALL=C";
        char* const environment[] = {path, locale, nullptr};
        const std::string file = "/bin/" + arguments.front();
        return posix_spawn(&pid, file.c_str(), &mActions, &mAttributes, argv.data(), environment);
    }

  private:
    posix_spawn_file_actions_t mActions;
    posix_spawnattr_t mAttributes;
};

}  // namespace

int statusOnFullDisk(const std::string& program) {
    return program == "tar" ? 2 : program == "cp" ? 1 : 0;
}

int runHostProgram(const Root& root, const std::vector<std::string>& arguments, int outputFd) {
    Fd complaints(memfd_create("complaints", MFD_CLOEXEC));
    pid_t pid = 0;
    if (int error = SpawnSettings(root, outputFd, complaints.get()).spawn(pid, arguments)) {
        logAs("sh", kError, arguments.front() + ": " + strerror(error));
        return W_EXITCODE(127, 0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    lseek(complaints.get(), 0, SEEK_SET);
    const std::string said = readAll(complaints.get(), 2048);
    if (!said.empty()) logAs("sh", kWarn, said);
    return status;
}

}  // namespace sim
