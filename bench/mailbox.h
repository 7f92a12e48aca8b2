#pragma once

#include <mutex>
#include <vector>

#include "bench/peer.h"

namespace bench {

// A hand-written batch mailbox in front of a loop: posts go into a vector, which the loop swaps out
// and processes without the lock.
class Mailbox {
  public:
    // Adds a message. True when the loop must be woken: it is idle and no earlier post has woken
    // it.
    bool put(const Message& message) {
        std::lock_guard<std::mutex> lock(mMutex);
        mIn.push_back(message);
        const bool tell = !mTold;
        mTold = true;
        return tell;
    }

    void drain(const Receiver& receive) {
        for (;;) {
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mOut.clear();
                mIn.swap(mOut);
                if (mOut.empty()) {
                    mTold = false;
                    return;
                }
            }
            for (const Message& message : mOut) receive(message);
        }
    }

  private:
    std::mutex mMutex;
    std::vector<Message> mIn;
    std::vector<Message> mOut;
    bool mTold = false;
};

}  // namespace bench
