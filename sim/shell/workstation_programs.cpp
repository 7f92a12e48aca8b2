#include "sim/shell/workstation_programs.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include "sim/base/fd.h"
#include "sim/base/process_starter.h"
#include "sim/base/root.h"
#include "sim/userspace/log.h"

namespace sim {
namespace {

constexpr size_t kMaxComplaintBytes = 4096;

// A memory file of NULs for a program's error output; it cannot grow, whatever is printed.
int openComplaints() {
    const int fd = memfd_create("complaints", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd >= 0 && ftruncate(fd, kMaxComplaintBytes) == 0) fcntl(fd, F_ADD_SEALS, F_SEAL_GROW);
    return fd;
}

}  // namespace

int statusOnFullDisk(const std::string& program) {
    return program == "tar" ? 2 : program == "cp" ? 1 : 0;
}

int runWorkstationProgram(const Root& root, Log& log, const WorkstationCommand& command,
                          int outputFd) {
    const std::string& program = command.arguments.front();
    Fd complaints(openComplaints());
    ProcessStarter starter;
    starter.endWithUs();
    starter.setFd(STDOUT_FILENO, outputFd);
    if (complaints.valid()) starter.setFd(STDERR_FILENO, complaints.get());
    starter.setDirectory(root.fd());
    for (const WorkstationCommand::Directory& directory : command.directories)
        starter.setFd(directory.fd.get(), directory.fd.get());
    starter.setEnvironment({"PATH=/usr/bin:/bin", "LC_ALL=C"});
    pid_t pid = 0;
    if (int error = starter.start("/bin/" + program, command.arguments, pid)) {
        log.write(kError, "sh", program + ": " + strerror(error));
        return W_EXITCODE(127, 0);
    }
    const int status = waitForExit(pid);
    if (status < 0) return -1;
    lseek(complaints.get(), 0, SEEK_SET);
    std::string said =
        readAll(complaints.get(), kMaxComplaintBytes).c_str();  // up to the first NUL
    command.nameDirectories(said);
    said.insert(0, command.complaints);
    if (!said.empty()) log.write(kWarn, "sh", said);
    return status == 0 && !command.complaints.empty() ? W_EXITCODE(1, 0) : status;
}

}  // namespace sim
