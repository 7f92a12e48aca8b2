#pragma once

#include <utils/Mutex.h>
#include <utils/String8.h>

#include <string>

#include "event/EventListener.h"
#include "looper/thread_annotations.h"

namespace android {

// The listener for requests of diagnostic material: it turns a capture event into an exception
// report and an audio-dump event into a thread that requests the dump.
//
// Ownership: its constructor registers it with the dispatcher, which keeps it. It keeps nothing
//   between events: each makes a worker and drops it.
// Threads: handleEvent() on "pelto_looper", the two actions from any thread. mLock serialises them
//   and is held while the exception report is raised, with its commands and the call into the
//   reporting library.
// Errors: a worker's failure is one log line.
class KelvoPeltoLogWriter : public EventListener {
  public:
    KelvoPeltoLogWriter();
    void handleEvent(std::string event) override;
    ~KelvoPeltoLogWriter() override;

    void caputureLogs(const String8& info) EXCLUDES(mLock);
    void dumpsysAudioInfo(const String8& info) EXCLUDES(mLock);

  private:
    void registerEventLister();

    Mutex mLock;
};

}  // namespace android
