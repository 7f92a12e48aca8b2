#include "sim/shell/shell.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/wait.h>

#include "sim/base/fd.h"
#include "sim/base/root.h"
#include "sim/shell/command_line.h"
#include "sim/shell/workstation_command.h"
#include "sim/shell/workstation_programs.h"
#include "sim/userspace/log.h"
#include "sim/userspace/program_faults.h"

namespace sim {

Shell::Shell(const Root& root, Log& log, ProgramFaults& faults)
    : mRoot(root), mLog(log), mFaults(faults) {
    for (const std::string& name : workstationPrograms()) mFaults.add(name);
}

int Shell::run(const char* command) {
    if (command == nullptr) return 1;
    // Keeps errno: a command's failure shows in its status alone.
    const int savedErrno = errno;
    {
        Lock lock(mMutex);
        mHistory.emplace_back(command);
        if (mHistory.size() > kMaxHistory) mHistory.pop_front();
    }
    const int status = execute(command);
    errno = savedErrno;
    return status;
}

int Shell::execute(const std::string& command) {
    CommandLine line;
    if (std::string wrong = line.parse(command); !wrong.empty())
        return refuse(command, "command refused, " + wrong, kRefused);
    line.expand(mRoot);
    const char* path = line.outputPath.c_str();
    Fd output(*path == '\0' ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                            : mRoot.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!output.valid())
        return refuse(command, std::string("can't create ") + path + ", " + strerror(errno), 1);
    return start(line, output.get());
}

int Shell::start(const CommandLine& line, int outputFd) {
    if (int imposed = mFaults.apply(line.program)) return W_EXITCODE(imposed, 0);
    if (isWorkstationProgram(line.program)) {
        WorkstationCommand command;
        std::string why;
        if (!workstationArguments(mRoot, line.program, line.words, command, why))
            return refuse(line.program, why, 1);
        const int full = mRoot.diskFull() ? statusOnFullDisk(line.program) : 0;
        if (full != 0) return refuse(line.program, strerror(ENOSPC), full);
        return runWorkstationProgram(mRoot, mLog, command, outputFd);
    }
    Program program;
    {
        Lock lock(mMutex);
        auto found = mPrograms.find(line.program);
        if (found != mPrograms.end()) program = found->second;
    }
    if (!program) return refuse(line.program, "not found", kNotFound);
    return W_EXITCODE(program(line.words, outputFd), 0);
}

int Shell::refuse(const std::string& command, const std::string& why, int exitStatus) {
    mLog.write(kError, "sh", why + ": " + command);
    return W_EXITCODE(exitStatus, 0);
}

void Shell::add(const std::string& name, Program program) {
    mFaults.add(name);
    Lock lock(mMutex);
    mPrograms[name] = std::move(program);
}

std::vector<std::string> Shell::history() const {
    Lock lock(mMutex);
    return {mHistory.begin(), mHistory.end()};
}

}  // namespace sim
