#pragma once

#include <sim/base/fd.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A program that runs as a child process; the destructor kills it. Its output is read only by the
// calls below, so a program that writes much blocks until the test reads.
//
// Errors: a wait for output that takes too long kills the process and fails the test.
class Program {
  public:
    using Words = std::vector<std::string>;

    // `command`: path and arguments. `input`: the file that is its standard input.
    explicit Program(const Words& command, const std::string& input = "/dev/null");
    ~Program();

    // The program's descriptor for "ready", which a ReadyProgram reads.
    static constexpr int kReadyFd = 3;

    pid_t pid() const { return mPid; }
    void signal(int number) const;
    // Its next line of output without the newline; "" at the end of the output.
    std::string line();
    // Reads all its output and waits for its end. Returns its exit code, or minus the signal.
    int wait();

    // The output that line() has not returned; all of it after wait().
    const std::string& output() const { return mText; }
    // The text it has written to its standard error.
    std::string errors() const;

  protected:
    sim::Fd mReady;

  private:
    bool readMore();

    pid_t mPid = -1;
    sim::Fd mOutput, mErrors;
    std::string mText;
};

// A program that has written "ready" to kReadyFd.
class ReadyProgram : public Program {
  public:
    explicit ReadyProgram(const Words& command);
};
