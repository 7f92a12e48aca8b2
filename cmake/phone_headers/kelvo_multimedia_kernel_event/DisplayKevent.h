#pragma once

#include <utils/Thread.h>

namespace android {

struct mm_kevent_packet;

class DisplayKevent : public virtual RefBase {
  public:
    DisplayKevent(void* owner, const char* channel, bool (*handler)(void*, mm_kevent_packet*));
    status_t run(const char* name, int32_t priority, size_t stack);
};

}  // namespace android
