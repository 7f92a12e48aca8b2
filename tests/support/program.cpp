#include "tests/support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "sim/base/process_starter.h"

namespace {

constexpr int kTimeoutMillis = 50000;

// Makes the child's descriptor the writing end of a pipe; returns our copy of that end.
sim::Fd pipeTo(sim::ProcessStarter& starter, int number, sim::Fd& reading) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    reading = sim::Fd(ends[0]);
    starter.setFd(number, ends[1]);
    return sim::Fd(ends[1]);
}

}  // namespace

Program::Program(const Words& command, const std::string& input) {
    sim::ProcessStarter starter;
    starter.openFd(STDIN_FILENO, input, O_RDONLY);
    const sim::Fd output = pipeTo(starter, STDOUT_FILENO, mOutput);
    const sim::Fd ready = pipeTo(starter, kReadyFd, mReady);
    mErrors = sim::Fd(memfd_create("errors", MFD_CLOEXEC));
    starter.setFd(STDERR_FILENO, mErrors.get());
    starter.closeFrom(kReadyFd + 1);
    EXPECT_EQ(starter.start(command[0], command, mPid), 0) << command[0];
}

Program::~Program() {
    if (mPid <= 0) return;
    signal(SIGKILL);
    sim::waitForExit(mPid);
}

void Program::signal(int number) const {
    ASSERT_GT(mPid, 0);
    ASSERT_EQ(kill(mPid, number), 0);
}

ReadyProgram::ReadyProgram(const Words& command) : Program(command) {
    pollfd ready{mReady.get(), POLLIN, 0};
    EXPECT_TRUE(poll(&ready, 1, kTimeoutMillis) == 1 && sim::readAll(mReady.get(), 6) == "ready\n")
        << errors();
}

// Waits for more output; false at its end.
bool Program::readMore() {
    pollfd ready{mOutput.get(), POLLIN, 0};
    if (poll(&ready, 1, kTimeoutMillis) <= 0) {
        ADD_FAILURE() << "process " << mPid << " says nothing more; it said: " << errors();
        signal(SIGKILL);
        return false;
    }
    char block[1 << 16];
    const ssize_t size = read(mOutput.get(), block, sizeof block);
    if (size > 0) mText.append(block, static_cast<size_t>(size));
    return size > 0;
}

std::string Program::errors() const {
    std::string text(1 << 16, '\0');
    const ssize_t size = pread(mErrors.get(), text.data(), text.size(), 0);
    return text.substr(0, static_cast<size_t>(std::max<ssize_t>(size, 0)));
}

std::string Program::line() {
    size_t end;
    while ((end = mText.find('\n')) == std::string::npos) {
        if (!readMore()) return "";
    }
    const std::string found = mText.substr(0, end);
    mText.erase(0, end + 1);
    return found;
}

int Program::wait() {
    while (readMore()) {
    }
    const int status = mPid > 0 ? sim::waitForExit(mPid) : -1;
    if (status < 0) return -1;
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
