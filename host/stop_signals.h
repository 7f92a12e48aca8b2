#pragma once

#include <signal.h>

#include <functional>

// SIGTERM and SIGINT, taken by a thread that waits for them. They are blocked in the thread that
// constructs this and in those it starts from then on, so that no system call of theirs is
// interrupted.
class StopSignals {
  public:
    StopSignals();

    // Calls `stop` on a thread of its own at the first of the signals; at the second, which finds
    // the stop hanging, the process ends. Once.
    void onFirst(std::function<void()> stop);

  private:
    sigset_t mSignals;
};
