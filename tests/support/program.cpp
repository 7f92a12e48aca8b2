#include "tests/support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

namespace {

constexpr int kPatienceMillis = 50000;

sim::Fd pipeTo(posix_spawn_file_actions_t& actions, int target, sim::Fd& reading) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    reading = sim::Fd(ends[0]);
    posix_spawn_file_actions_adddup2(&actions, ends[1], target);
    return sim::Fd(ends[1]);
}

}  // namespace

Program::Program(const Words& command, const std::string& input) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    // Numbers that the pipes' own ends do not have.
    const sim::Fd taken[] = {sim::Fd(dup(0)), sim::Fd(dup(0)), sim::Fd(dup(0)), sim::Fd(dup(0))};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const sim::Fd output = pipeTo(actions, STDOUT_FILENO, mOutput.fd);
    const sim::Fd errors = pipeTo(actions, STDERR_FILENO, mErrors.fd);
    const sim::Fd ready = pipeTo(actions, kReadyFd, mReady);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, kReadyFd + 1);
    EXPECT_EQ(posix_spawnp(&mPid, arguments[0], &actions, nullptr, arguments.data(), environ), 0)
        << command[0];
    posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
    if (mPid <= 0) return;
    signal(SIGKILL);
    waitpid(mPid, nullptr, 0);
}

void Program::signal(int number) const {
    ASSERT_GT(mPid, 0);
    ASSERT_EQ(kill(mPid, number), 0);
}

bool Program::awaitReady() {
    pollfd ready{mReady.get(), POLLIN, 0};
    return poll(&ready, 1, kPatienceMillis) == 1 && sim::readAll(mReady.get(), 6) == "ready\n";
}

// Waits for more of either stream; false when both have ended.
bool Program::readMore() {
    pollfd ready[] = {{mOutput.fd.get(), POLLIN, 0}, {mErrors.fd.get(), POLLIN, 0}};
    if (!mOutput.fd.valid() && !mErrors.fd.valid()) return false;
    if (poll(ready, 2, kPatienceMillis) <= 0) {
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
    int status = 0;
    if (mPid <= 0 || waitpid(mPid, &status, 0) != mPid) return -1;
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
