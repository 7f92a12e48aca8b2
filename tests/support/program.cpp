#include "tests/support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

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
    const sim::Fd output = pipeTo(starter, STDOUT_FILENO, mOutput.fd);
    const sim::Fd errors = pipeTo(starter, STDERR_FILENO, mErrors.fd);
    const sim::Fd ready = pipeTo(starter, kReadyFd, mReady);
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

bool Program::awaitReady() {
    pollfd ready{mReady.get(), POLLIN, 0};
    return poll(&ready, 1, kTimeoutMillis) == 1 && sim::readAll(mReady.get(), 6) == "ready\n";
}

// Reads more of either stream, waiting for it; false when both have ended.
bool Program::readMore() {
    pollfd ready[] = {{mOutput.fd.get(), POLLIN, 0}, {mErrors.fd.get(), POLLIN, 0}};
    if (!mOutput.fd.valid() && !mErrors.fd.valid()) return false;
    if (poll(ready, 2, kTimeoutMillis) <= 0) {
        ADD_FAILURE() << "process " << mPid << " says nothing more; it said: " << mErrors.text;
        signal(SIGKILL);
        return false;
    }
    Stream* const streams[] = {&mOutput, &mErrors};
    for (int i = 0; i < 2; ++i) {
        if (ready[i].revents == 0) continue;
        char block[1 << 16];
        const ssize_t size = read(ready[i].fd, block, sizeof block);
        if (size > 0) streams[i]->text.append(block, static_cast<size_t>(size));
        if (size == 0) streams[i]->fd = sim::Fd();
    }
    return true;
}

std::string Program::line() {
    size_t end;
    while ((end = mOutput.text.find('\n')) == std::string::npos) {
        if (!readMore()) return "";
    }
    const std::string found = mOutput.text.substr(0, end);
    mOutput.text.erase(0, end + 1);
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
