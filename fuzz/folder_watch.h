#pragma once

#include <stdint.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>

#include "fuzz/fuzz_phone.h"
#include "sim/base/fd.h"

// Tells what changes in some folders, without looking at them.
class FolderWatch {
  public:
    void add(const std::string& folder) {
        constexpr uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_MOVE |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
        const int watch = inotify_add_watch(mFd.get(), folder.c_str(), kChanges);
        require(watch >= 0, folder + " is watched");
        mFolders[watch] = folder;
    }

    // Calls take(folder, name, changes) for each change since the last call, the name empty for one
    // of the folder itself.
    template <typename Take>
    void read(Take take) {
        const std::string changes = sim::readAll(mFd.get());
        for (size_t at = 0; at < changes.size();) {
            inotify_event event;
            memcpy(&event, changes.data() + at, sizeof(event));
            require((event.mask & IN_Q_OVERFLOW) == 0, "no change is missed");
            at += sizeof(event);
            take(mFolders.at(event.wd), std::string(changes.substr(at, event.len).c_str()),
                 event.mask);
            at += event.len;
        }
    }

  private:
    const sim::Fd mFd{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    std::map<int, std::string> mFolders;
};
