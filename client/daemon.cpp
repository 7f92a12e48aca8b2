#include "client/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "client/client.h"
#include "client/deadline.h"

namespace pelto {
namespace {

constexpr double kPatienceSeconds = 60;

// A session of its own; none of our descriptors but the ones named, none of our signal settings.
class DaemonSettings {
  public:
    DaemonSettings(const std::string& output, int readyFd) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        posix_spawn_file_actions_adddup2(&actions, readyFd, Daemon::kReadyFd);
        posix_spawn_file_actions_addclosefrom_np(&actions, Daemon::kReadyFd + 1);
        posix_spawn_file_actions_addchdir_np(&actions, "/");
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~DaemonSettings() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    DaemonSettings(const DaemonSettings&) = delete;
    DaemonSettings& operator=(const DaemonSettings&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

Daemon::Daemon(const std::string& runDir, const std::string& name)
    : mName(name), mFolder(runDir + "/daemons"), mOutput(runDir + "/" + name + ".log") {}

std::optional<ProcessId> Daemon::running() const {
    std::ifstream file(mFolder + "/" + mName);
    ProcessId process{};
    if (!(file >> process.pid >> process.startTicks) || process.pid <= 0) return std::nullopt;
    if (!openProcess(process).valid()) return std::nullopt;
    return process;
}

sim::Fd Daemon::lockRecords() const {
    mkdir(mFolder.c_str(), 0700);
    const std::string path = mFolder + "/.lock";
    sim::Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file.valid()) throw Failure(kFailed, path + ": " + strerror(errno));
    return file;
}

// Whole or not at all.
void Daemon::record(const ProcessId& process) const {
    const std::string path = mFolder + "/" + mName, fresh = mFolder + "/." + mName;
    std::ofstream file(fresh);
    file << process.pid << ' ' << process.startTicks << '\n';
    file.close();
    if (!file || rename(fresh.c_str(), path.c_str()) != 0) {
        kill(process.pid, SIGTERM);  // our child: what is not recorded must not stay
        throw Failure(kFailed, path + ": cannot be written; " + mName + " was ended again");
    }
}

ProcessId Daemon::start(const std::vector<std::string>& command) {
    const sim::Fd records = lockRecords();
    const sim::FileLock lock(records.get());
    if (const auto process = running()) return *process;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(kFailed, std::string("pipe: ") + strerror(errno));
    const sim::Fd ready(ends[0]);
    sim::Fd tell(ends[1]);
    const ProcessId process = spawn(command, tell.get());
    tell = sim::Fd();
    record(process);
    awaitReady(process, ready.get());
    return process;
}

ProcessId Daemon::spawn(const std::vector<std::string>& command, int readyFd) const {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const DaemonSettings settings(mOutput, readyFd);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, arguments[0], &settings.actions, &settings.attributes,
                                   arguments.data(), environ);
    if (error != 0) throw Failure(kFailed, command[0] + ": " + strerror(error));
    return ProcessId::of(pid).value_or(ProcessId{pid, 0});
}

void Daemon::awaitReady(const ProcessId& process, int readyFd) const {
    pollfd told{readyFd, POLLIN, 0};
    char line[8];
    const bool inTime = poll(&told, 1, Deadline(kPatienceSeconds).leftMillis()) == 1;
    if (inTime && read(readyFd, line, sizeof line) > 0) return;
    if (!inTime) kill(process.pid, SIGKILL);  // our child still: the number is its own
    int status = 0;
    waitpid(process.pid, &status, 0);
    const std::string said = lastLine();
    throw Failure(inTime ? kFailed : kTimeout,
                  mName + " did not start: " + (said.empty() ? "see " + mOutput : said));
}

std::string Daemon::lastLine() const {
    std::ifstream output(mOutput);
    std::string last;
    for (std::string line; std::getline(output, line);) {
        if (!line.empty()) last = line;
    }
    return last;
}

std::optional<ProcessId> Daemon::stop() {
    const sim::Fd records = lockRecords();
    const sim::FileLock lock(records.get());
    const auto process = running();
    if (!process) return std::nullopt;
    const sim::Fd handle = openProcess(*process);
    if (handle.valid()) {
        signalProcess(handle, SIGTERM);
        if (!waitForEnd(handle, kPatienceSeconds)) {
            throw Failure(kTimeout, mName + ", process " + std::to_string(process->pid) +
                                        ", is still busy; asked again, it ends at once");
        }
    }
    unlink((mFolder + "/" + mName).c_str());
    return process;
}

}  // namespace pelto
