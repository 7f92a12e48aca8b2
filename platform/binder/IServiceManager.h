#pragma once

#include <binder/IBinder.h>
#include <utils/String16.h>

namespace android {

// The names under which processes of one phone publish objects.
//
// Names: 1 to 64 letters, digits, '.', '_' or '-', not beginning with '.'.
// Threads: every operation from any thread; none waits for another process.
class IServiceManager : public virtual RefBase {
  public:
    // Null for an unpublished name; this process's own object for a name that it publishes.
    virtual sp<IBinder> getService(const String16& name) const = 0;
    virtual sp<IBinder> checkService(const String16& name) const = 0;

    // Publishes an object of this process until it ends or ProcessState::shutDown(). BAD_VALUE for
    // a bad name or null, BAD_TYPE for another process's object, ALREADY_EXISTS when a living
    // process (this one included) holds the name, NO_INIT when the phone's folder does not allow
    // it. A name left behind by a dead process is taken over.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false, int dumpFlags = 0) = 0;

  protected:
    ~IServiceManager() override = default;
};

// The manager of this process's phone, the default one unless another is open; never null.
sp<IServiceManager> defaultServiceManager();

}  // namespace android
