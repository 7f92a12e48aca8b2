// Another process of the same phone, for tests: the program test_peer.cpp, told what to do by lines
// on its standard input, telling what it did on its standard output.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sim/fd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "platform/binder/testing/test_service.h"

namespace android::binder_test {

class Peer {
  public:
    // `role`: see test_peer.cpp.
    Peer(const std::string& folder, const std::vector<std::string>& role) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        const sim::Fd childIn(in[0]), childOut(out[1]);
        mIn = sim::Fd(in[1]);
        mOut = sim::Fd(out[0]);
        std::vector<std::string> words = command();
        words.push_back(folder);
        words.insert(words.end(), role.begin(), role.end());
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(&word[0]);
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, childIn.get(), STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, childOut.get(), STDOUT_FILENO);
        if (posix_spawnp(&mPid, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
            mPid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Peer() { end(SIGKILL); }

    pid_t pid() const { return mPid; }
    void signal(int number) const { ::kill(mPid, number); }
    void end(int number) {
        if (mPid <= 0) return;
        signal(number);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }

    void say(const std::string& line) {
        const std::string text = line + "\n";
        sim::writeAll(mIn.get(), text.data(), text.size());
    }
    // Its next line; "" when it ended or nothing came in time.
    std::string hear() {
        std::string line;
        char c = 0;
        pollfd ready{mOut.get(), POLLIN, 0};
        while (poll(&ready, 1, std::chrono::milliseconds(kPatience).count()) > 0 &&
               read(mOut.get(), &c, 1) == 1 && c != '\n') {
            line += c;
        }
        return line;
    }

  private:
    // The program, behind the emulator that runs it in a cross build.
    static std::vector<std::string> command() {
        std::vector<std::string> words;
        std::istringstream text(BINDER_TEST_PEER);
        for (std::string word; std::getline(text, word, '|');) words.push_back(word);
        return words;
    }

    pid_t mPid = -1;
    sim::Fd mIn, mOut;
};

}  // namespace android::binder_test
