#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "sim/base/mutex.h"

namespace sim {

// One record of the display driver.
struct DisplayRecord {
    std::string id;
    std::string payload;
};

// One reader's queue of the display driver's records.
// Threads: any; one receive() at a time.
class DisplayChannel {
  public:
    static constexpr size_t kMaxRecords = 256;

    // Waits for the next record; false once the channel has ended and every record is read.
    bool receive(DisplayRecord* record) SIM_EXCLUDES(mMutex);

    // False when the queue is full or ended: the record is lost.
    bool push(const DisplayRecord& record) SIM_EXCLUDES(mMutex);
    void end() SIM_EXCLUDES(mMutex);

  private:
    Mutex mMutex;
    Condition mChanged;
    std::deque<DisplayRecord> mRecords SIM_GUARDED_BY(mMutex);
    bool mEnded SIM_GUARDED_BY(mMutex) = false;
};

// The display driver's kernel events; each goes to every open channel.
// Ownership: a channel belongs to its reader and is closed by its destruction.
// Threads: any.
class DisplayKernel {
  public:
    enum class Sent { kQueued, kLost, kNobody };

    std::shared_ptr<DisplayChannel> open() SIM_EXCLUDES(mMutex);
    Sent send(const DisplayRecord& record) SIM_EXCLUDES(mMutex);
    // Ends every open channel; later ones are not affected.
    void end() SIM_EXCLUDES(mMutex);

  private:
    std::vector<std::shared_ptr<DisplayChannel>> channels() SIM_EXCLUDES(mMutex);

    Mutex mMutex;
    std::vector<std::weak_ptr<DisplayChannel>> mChannels SIM_GUARDED_BY(mMutex);
};

}  // namespace sim
