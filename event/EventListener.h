#pragma once

#include <utils/RefBase.h>
#include <utils/Vector.h>

#include <string>

namespace android {

// A consumer of events. A concrete listener fills in its types and its name and registers itself
// from its constructor; it is never removed.
//
// Threads: handleEvent() runs on the dispatcher's thread "pelto_looper", one listener at a time,
//   under the dispatcher's lock: it must not register listeners, and hands work that takes longer
//   than 500 us to a thread of its own.
class EventListener : public virtual RefBase {
  public:
    // The complete event text: type, "$", information.
    virtual void handleEvent(std::string event) = 0;
    virtual ~EventListener() = default;

  protected:
    friend class PeltoEventDisptch;

    Vector<std::string> mEventTypes;  // unchanged once registered
    std::string mName;                // for the dispatcher's log lines
};

}  // namespace android
