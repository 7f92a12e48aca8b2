#pragma once

#include <sim/fd.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A program running as a process of its own; killed at the end of the scope if it still runs. Its
// output is read as the test asks for it: what is not asked for goes unread.
//
// Waiting has one generous deadline; past it the process is killed and the test fails.
class Program {
  public:
    using Words = std::vector<std::string>;

    // `command`: path and arguments. `input`: what it reads as its standard input.
    explicit Program(const Words& command, const std::string& input = "/dev/null");
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // What is written to this descriptor of it, awaitReady() reads.
    static constexpr int kReadyFd = 3;

    pid_t pid() const { return mPid; }
    void signal(int number) const;
    // Whether it told on kReadyFd that it is up.
    bool awaitReady();
    // Its next line of output, without the newline; "" when it has none left.
    std::string line();
    // Reads all its output and waits for its end: its exit code, or minus the signal that ended it.
    int wait();

    // What was not taken as lines, and all of its standard error; after wait().
    const std::string& output() const { return mOutput.text; }
    const std::string& errors() const { return mErrors.text; }

  private:
    struct Stream {
        sim::Fd fd;
        std::string text;
    };

    bool readMore();

    pid_t mPid = -1;
    sim::Fd mReady;
    Stream mOutput, mErrors;
};
