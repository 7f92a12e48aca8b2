#pragma once

#include <utils/Thread.h>

#include <cstddef>
#include <memory>
#include <string>

namespace android {

// One record of the display driver. The texts end with a NUL.
struct mm_kevent_packet {
    char header[132];  // for the channel alone
    char event_id[132];
    char payload[3832];
};
static_assert(offsetof(mm_kevent_packet, event_id) == 132);
static_assert(offsetof(mm_kevent_packet, payload) == 264);
static_assert(sizeof(mm_kevent_packet) == 4096);

// The channel of the display driver's kernel events: a thread that hands each record to a hook.
//
// Ownership: `owner` is passed on to the hook and never read; it must outlive the channel's
//   thread.
// Threads: the hook runs on the channel's thread, one record at a time, and may change the packet
//   until it returns. Its result is ignored.
// Order: records sent after the constructor are delivered, once run() has been called.
class DisplayKevent : public Thread {
  public:
    using Hook = bool (*)(void* owner, mm_kevent_packet* packet);

    DisplayKevent(void* owner, const char* channelName, Hook hook);
    ~DisplayKevent() override;

  private:
    struct Source;

    bool threadLoop() override;

    void* const mOwner;
    const std::string mName;
    const Hook mHook;
    const std::unique_ptr<Source> mSource;
    mm_kevent_packet mPacket;
};

}  // namespace android
