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
    SpawnSettings(const Root& root, const HostCommand& command, int outputFd, int errorFd) {
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_addopen(&mActions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&mActions, outputFd, 1);
        posix_spawn_file_actions_adddup2(&mActions, errorFd, 2);
        posix_spawn_file_actions_addfchdir_np(&mActions, root.fd());
        // Onto itself: that makes the program inherit it.
        for (const HostCommand::Directory& directory : command.directories)
            posix_spawn_file_actions_adddup2(&mActions, directory.fd.get(), directory.fd.get());
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

constexpr size_t kComplaintBytes = 4096;

// Full of NULs and unable to grow: a program that complains without end takes no more memory.
int openComplaints() {
    const int fd = memfd_create("complaints", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd >= 0 && ftruncate(fd, kComplaintBytes) == 0) fcntl(fd, F_ADD_SEALS, F_SEAL_GROW);
    return fd;
}

}  // namespace

int statusOnFullDisk(const std::string& program) {
    return program == "tar" ? 2 : program == "cp" ? 1 : 0;
}

int runHostProgram(const Root& root, const HostCommand& command, int outputFd) {
    Fd complaints(openComplaints());
    pid_t pid = 0;
    SpawnSettings settings(root, command, outputFd, complaints.get());
    if (int error = settings.spawn(pid, command.arguments)) {
        logAs("sh", kError, command.arguments.front() + ": " + strerror(error));
        return W_EXITCODE(127, 0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    lseek(complaints.get(), 0, SEEK_SET);
    std::string said = readAll(complaints.get(), kComplaintBytes).c_str();  // up to the first NUL
    command.nameDirectories(said);
    said.insert(0, command.complaints);
    if (!said.empty()) logAs("sh", kWarn, said);
    return status == 0 && !command.complaints.empty() ? W_EXITCODE(1, 0) : status;
}

}  // namespace sim
