#include "client/daemon_control.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "client/verb_support.h"
#include "client/wait_options.h"
#include "sim/base/process_starter.h"

namespace pelto {
namespace {

constexpr int kTimeoutMillis = 60000;  // of a start
constexpr double kKillSeconds = 10;
constexpr int kFollowMillis = 1000;

// A pidfd of the process; none when it has ended. Reads the start time after opening the pidfd: if
// it still matches, the pidfd refers to that process.
sim::Fd openProcess(const ProcessId& process) {
    sim::Fd handle(static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0)));
    return handle.valid() && process.runs() ? std::move(handle) : sim::Fd();
}

// Ends our child and the rest of the process group that it leads, and waits for its end. It has not
// been reaped, so the number is still its own. The child is also named by itself: under an emulator
// that starts processes by fork() it may not lead a group yet.
void endGroup(pid_t pid) {
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    sim::waitForExit(pid);
}

// Waits until the pipe has data or the pidfd's process has ended; false when time runs out.
bool awaitReadable(int fd, int millis) {
    pollfd readable{fd, POLLIN, 0};
    return poll(&readable, 1, millis) == 1;
}

}  // namespace

Daemon::Daemon(const std::string& runDir, const std::string& name)
    : mName(name), mFolder(runDir + "/daemons"), mOutput(runDir + "/" + name + ".log") {}

std::vector<Daemon::Running> Daemon::running() const {
    std::vector<Running> found;
    std::ifstream file(mFolder + "/" + mName);
    for (ProcessId process{}; file >> process.pid >> process.startTicks && process.pid > 0;) {
        sim::Fd handle = openProcess(process);
        if (handle.valid() && !awaitReadable(handle.get(), 0))
            found.push_back({process.pid, std::move(handle)});
    }
    return found;
}

void Daemon::signal(const Running& process, int number) {
    syscall(SYS_pidfd_send_signal, process.handle.get(), number, nullptr, 0);
}

// Waits for the end of all of them; false when time runs out.
bool Daemon::awaitEnd(const std::vector<Running>& processes, double seconds) {
    const Deadline deadline(seconds);
    return std::all_of(processes.begin(), processes.end(), [&](const Running& process) {
        return awaitReadable(process.handle.get(), deadline.limited() ? deadline.leftMillis() : 0);
    });
}

sim::Fd Daemon::lockRecords() const {
    if (mkdir(mFolder.c_str(), 0700) != 0 && errno != EEXIST)
        throw Failure(kFailed, mFolder + ": " + strerror(errno));
    const std::string path = mFolder + "/.lock";
    sim::Fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file.valid()) throw Failure(kFailed, path + ": " + strerror(errno));
    // Another client may hold the lock for the whole patience of its start or stop.
    if (!sim::lockWithin(file.get(), std::chrono::milliseconds(kTimeoutMillis + 10000)))
        throw Failure(kTimeout, path + ": another process starts or stops the service");
    return file;
}

// Writes another file and renames it, so that a record is read whole or not at all.
void Daemon::record(const std::vector<ProcessId>& processes) const {
    const std::string path = mFolder + "/" + mName, fresh = mFolder + "/." + mName;
    std::string lines;
    for (const ProcessId& process : processes)
        lines += std::to_string(process.pid) + ' ' + std::to_string(process.startTicks) + '\n';
    if (!sim::writeFile(fresh, lines) || rename(fresh.c_str(), path.c_str()) != 0) {
        const std::string why = strerror(errno);
        endGroup(processes[0].pid);
        throw Failure(kFailed,
                      path + ": cannot be written (" + why + "); " + mName + " was ended again");
    }
}

Daemon::Started Daemon::start(const std::vector<std::string>& command,
                              const std::function<pid_t()>& serving) {
    const sim::Fd lock = lockRecords();
    if (const auto found = running(); !found.empty()) return {found.back().pid, true};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(kFailed, std::string("pipe: ") + strerror(errno));
    const sim::Fd ready(ends[0]);
    sim::Fd tell(ends[1]);
    const ProcessId process = spawn(command, tell.get());
    tell = sim::Fd();
    record({process});
    awaitReady(process, ready.get());
    const auto server = ProcessId::of(serving());
    if (!server || server->pid == process.pid) return {process.pid, false};
    record({process, *server});
    return {server->pid, false};
}

ProcessId Daemon::spawn(const std::vector<std::string>& command, int readyFd) const {
    const sim::Fd root(open("/", O_PATH | O_CLOEXEC));
    sim::ProcessStarter starter;
    starter.openFd(STDIN_FILENO, "/dev/null", O_RDONLY);
    starter.openFd(STDOUT_FILENO, mOutput, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    starter.openFd(STDERR_FILENO, mOutput, O_WRONLY | O_APPEND);
    starter.setFd(kReadyFd, readyFd);
    starter.setDirectory(root.get());
    starter.closeFrom(kReadyFd + 1);
    starter.newSession();
    pid_t pid = 0;
    const int error = starter.start(command[0], command, pid);
    if (error != 0) throw Failure(kFailed, command[0] + ": " + strerror(error));
    return ProcessId::of(pid).value_or(ProcessId{pid, 0});
}

void Daemon::awaitReady(const ProcessId& process, int readyFd) const {
    char line[8];
    const bool inTime = awaitReadable(readyFd, kTimeoutMillis);
    if (inTime && read(readyFd, line, sizeof line) > 0) return;
    endGroup(process.pid);
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

// Begins with the server: a tracer then ends by itself, unless it is stopped and holds the server.
std::vector<pid_t> Daemon::killAll(const std::vector<Running>& processes) {
    std::vector<pid_t> killed;
    for (auto next = processes.rbegin(); next != processes.rend(); ++next) {
        const bool traces = next != processes.rbegin();
        if (awaitReadable(next->handle.get(), traces ? kFollowMillis : 0)) continue;
        signal(*next, SIGKILL);
        killed.push_back(next->pid);
    }
    return killed;
}

std::optional<Daemon::Stopped> Daemon::stop(double patienceSeconds) {
    const sim::Fd lock = lockRecords();
    const std::vector<Running> processes = running();
    if (processes.empty()) return std::nullopt;
    const Running& server = processes.back();
    if (patienceSeconds > 0) signal(server, SIGTERM);
    Stopped stopped{server.pid, {}};
    if (!awaitEnd(processes, patienceSeconds)) stopped.killed = killAll(processes);
    if (!awaitEnd(processes, kKillSeconds)) {
        throw Failure(kTimeout, mName + ", process " + std::to_string(server.pid) +
                                    ", was killed and has not ended");
    }
    unlink((mFolder + "/" + mName).c_str());
    return stopped;
}

}  // namespace pelto
