#pragma once

#include <utils/Mutex.h>
#include <utils/String8.h>

#include <string>

#include "event/EventListener.h"
#include "looper/thread_annotations.h"

namespace android {

// The listener by which clients ask for diagnostic material: a capture event becomes an exception
// report, an audio-dump event a thread that requests the dump.
//
// Ownership: its constructor registers it with the dispatcher, which keeps it. It keeps nothing
//   between events: each makes a worker and lets go of it.
// Threads: handleEvent() on "pelto_looper", the two actions from any thread. mLock makes them one
//   at a time; the exception report, with its commands and the call into the reporting library, is
//   raised under it.
// Errors: what a worker reports is one log line.
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
