#pragma once

namespace android {

class Mutex {
  public:
    Mutex();
    ~Mutex();
    int lock();
    void unlock();
    int tryLock();

    class Autolock {
      public:
        explicit Autolock(Mutex& mutex);
        ~Autolock();
    };
};

}  // namespace android
