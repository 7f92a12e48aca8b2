#include "client/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <sstream>

#include "client/deadline.h"

namespace pelto {

std::optional<ProcessId> ProcessId::of(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    const sim::Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) return std::nullopt;
    const std::string text = sim::readAll(file.get());
    // The name before it may hold blanks and parentheses; 19 fields on stands the start time.
    std::istringstream fields(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
    std::string skipped;
    for (int field = 0; field < 19; ++field) fields >> skipped;
    ProcessId found{pid, 0};
    if (!(fields >> found.startTicks)) return std::nullopt;
    return found;
}

double ProcessId::uptimeSeconds() const {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double started =
        static_cast<double>(startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 - started;
}

sim::Fd openProcess(const ProcessId& process) {
    sim::Fd handle(static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0)));
    if (!handle.valid()) return handle;
    // Looked at while the handle keeps whoever has the number now from passing it on.
    const auto now = ProcessId::of(process.pid);
    if (!now || now->startTicks != process.startTicks || hasEnded(handle)) return sim::Fd();
    return handle;
}

bool hasEnded(const sim::Fd& handle) {
    pollfd ended{handle.get(), POLLIN, 0};
    return poll(&ended, 1, 0) == 1;
}

bool signalProcess(const sim::Fd& handle, int number) {
    return syscall(SYS_pidfd_send_signal, handle.get(), number, nullptr, 0) == 0;
}

bool waitForEnd(const sim::Fd& handle, double seconds) {
    pollfd ended{handle.get(), POLLIN, 0};
    return poll(&ended, 1, Deadline(seconds).leftMillis()) == 1;
}

}  // namespace pelto
