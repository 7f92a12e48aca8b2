#include "host/folder_watch.h"

#include <android/log.h>
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include "host/program_start.h"
#include "sim/base/fd.h"
#include "sim/phone.h"

namespace {

constexpr char kMarker[] = "phone";  // the file in run/ that makes the folder a phone's

// Watches the marker, since the deletion of a directory is not reported while it is open.
sim::Fd watch(const sim::Phone& phone) {
    sim::Fd fd(inotify_init1(IN_CLOEXEC));
    constexpr uint32_t kMarkerGone = IN_DELETE | IN_MOVED_FROM | IN_MOVE_SELF;
    if (inotify_add_watch(fd.get(), phone.runDir().c_str(), kMarkerGone) < 0) return sim::Fd();
    std::filesystem::path path = phone.folder();
    for (; path.has_relative_path(); path = path.parent_path())
        inotify_add_watch(fd.get(), path.c_str(), IN_MOVE_SELF);
    return fd;
}

bool tellsOfEnd(const inotify_event& event) {
    return (event.mask & IN_MOVE_SELF) != 0 || (event.len > 0 && strcmp(event.name, kMarker) == 0);
}

// Reads the next events; whether the folder has gone.
bool readEnd(int fd) {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(fd, events, sizeof events);
    for (ssize_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
        if (tellsOfEnd(*event)) return true;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return false;
}

[[noreturn]] void end(const std::string& folder) {
    fprintf(stderr, "%s: %s: the phone's folder was deleted or moved\n",
            program_invocation_short_name, folder.c_str());
    _exit(kHostNoPhone);
}

}  // namespace

void endWithFolderOf(const sim::Phone& phone) {
    sim::Fd fd = watch(phone);
    const int error = errno;
    // It may have gone before it was watched.
    if (access((phone.runDir() + "/" + kMarker).c_str(), F_OK) != 0) end(phone.folder());
    if (!fd.valid()) {
        __android_log_print(ANDROID_LOG_WARN, "peltoserviced", "the folder is not watched: %s",
                            strerror(error));
        return;
    }
    std::thread([fd = std::move(fd), folder = phone.folder()] {
        pthread_setname_np(pthread_self(), "folder_watch");
        while (!readEnd(fd.get())) {
        }
        end(folder);
    }).detach();
}
