#pragma once

#include <binder/Binder.h>
#include <binder/transport/connection.h>
#include <binder/transport/listener.h>
#include <sim/base/fd.h>
#include <sys/types.h>
#include <time.h>
#include <utils/Mutex.h>

#include <map>
#include <memory>
#include <string>

namespace android::transport {

// The published names: sockets in the phone's run/services (see sim/base/unix_socket.h).
//
// Threads: every operation from any thread; none waits for another process.
class ServiceDirectory {
  public:
    explicit ServiceDirectory(Process& process) : mProcess(process) {}

    static bool validName(const std::string& name);

    status_t publish(const std::string& name, const sp<IBinder>& service) EXCLUDES(mLock);
    // Withdraws every name; publish() is refused afterwards.
    void withdrawAll() EXCLUDES(mLock);

    // This process's own object of that name, else null.
    sp<IBinder> own(const std::string& name) EXCLUDES(mLock);
    // The object of that name as a client sees it, also when this process publishes it: calls go
    // over a socket. Null for an unpublished name. A name has one connection while both sides live.
    sp<IBinder> connect(const std::string& name) EXCLUDES(mLock);

  private:
    struct Published {
        std::shared_ptr<Listener> listener;
        sp<IBinder> service;
        sim::Fd held;  // the name's lock
    };
    // The identity of the socket under a name; publishing the name again changes it.
    struct Place {
        ino_t inode = 0;
        timespec changed{};
        bool operator==(const Place& other) const {
            return inode == other.inode && changed.tv_sec == other.changed.tv_sec &&
                   changed.tv_nsec == other.changed.tv_nsec;
        }
    };
    struct Connected {
        Place place;
        std::shared_ptr<Connection> connection;
    };

    bool openFolderLocked() REQUIRES(mLock);
    bool findLocked(const std::string& name, Place* place) REQUIRES(mLock);
    std::shared_ptr<Connection> connectLocked(const std::string& name) REQUIRES(mLock);

    Process& mProcess;
    Mutex mLock;
    sim::Fd mFolder GUARDED_BY(mLock);
    bool mWithdrawn GUARDED_BY(mLock) = false;
    std::map<std::string, Published> mPublished GUARDED_BY(mLock);
    std::map<std::string, Connected> mConnections GUARDED_BY(mLock);
};

}  // namespace android::transport
