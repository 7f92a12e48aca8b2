#pragma once

#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "sim/base/fd.h"
#include "sim/base/mutex.h"

namespace sim {

class Root;

// The attribute files of the phone's kernel (sysfs): read-only contents that a device sets, and
// notifies readers of. Each reader's call below returns nullopt for a path that no device has set,
// and for a descriptor that is not of an attribute.
//
// A descriptor is ready for POLLPRI|POLLERR once opened, and again from each notification on, until
// pread() at offset 0. pread(), and a plain read() of a binary attribute, give the current content;
// a plain read() of a text attribute gives the content at open(). No read returns more than
// 4096 bytes; a plain read() with a smaller buffer loses the rest of the block. After the device's
// removal a descriptor is ready for ever, pread() fails with ENODEV, and the next plain read with
// ECONNRESET. A plain reader of what was empty at open() reads EOF.
//
// Ownership: a descriptor is closed by its opener, as any file.
// Threads: any. The thread "sim_attribute" feeds the readers of binary attributes, a block at a
//   time; a child made by fork() has none.
class Attributes {
  public:
    static constexpr size_t kMaxReadBytes = 4096;
    using Content = std::shared_ptr<const std::string>;

    // How an attribute misbehaves. An errno of 0 is no fault.
    struct Faults {
        int openError = 0;
        int readError = 0;  // of pread(); a plain read then gets EOF
        int pollError = 0;
        size_t readBytes = kMaxReadBytes;  // most that one read gives
        // A plain reader of a longer binary attribute gets `endsAfter` bytes; then atEnd is called,
        // on any thread.
        size_t endsAfter = SIZE_MAX;
        std::function<void()> atEnd = nullptr;
    };

    // `root` must outlive this object.
    explicit Attributes(const Root& root);

    // The device's side. Paths are absolute, without "." and "..".
    void set(const std::string& path, Content content) SIM_EXCLUDES(mMutex);
    void set(const std::string& path, std::string content) {
        set(path, std::make_shared<const std::string>(std::move(content)));
    }
    // Sets the size that stat() gives for any content: at first 4096, as of a text attribute; an
    // attribute of size 0 is binary.
    void setSize(const std::string& path, off_t size) SIM_EXCLUDES(mMutex);
    void notify(const std::string& path) SIM_EXCLUDES(mMutex);
    // Lets the paths be missing (ENOENT) until they are set again. All go at once: a reader that
    // finds one missing finds none of the others.
    void remove(std::initializer_list<const char*> paths) SIM_EXCLUDES(mMutex);
    void setFaults(const std::string& path, Faults faults) SIM_EXCLUDES(mMutex);

    // The reader's side: as the C function of that name; -1 or null and errno on failure.
    std::optional<int> open(const char* path, int flags) SIM_EXCLUDES(mMutex);
    std::optional<FILE*> fopen(const char* path, const char* mode);
    std::optional<int> stat(const char* path, struct ::stat* status) SIM_EXCLUDES(mMutex);
    std::optional<ssize_t> pread(int fd, void* buffer, size_t size, off_t offset)
        SIM_EXCLUDES(mMutex);
    // Other descriptors may be among them. The timeout is in the workstation's time.
    std::optional<int> poll(pollfd* fds, nfds_t count, int timeoutMillis) SIM_EXCLUDES(mMutex);

    // How often any attribute has been polled, and how often this one has been opened.
    int polls() const SIM_EXCLUDES(mMutex);
    int opens(const std::string& path) const SIM_EXCLUDES(mMutex);
    // Waits until a poll is under way with nothing ready for it; false after `timeout`.
    bool waitIdle(std::chrono::seconds timeout = std::chrono::seconds(30)) SIM_EXCLUDES(mMutex);

  private:
    struct Attribute {
        Content content;  // null when removed
        Faults faults;
        off_t size = kMaxReadBytes;
        int opens = 0;
    };
    struct Open;
    using Key = std::pair<dev_t, ino_t>;

    std::string keyOf(std::string_view path) const;
    Attribute* find(const std::string& path) SIM_REQUIRES(mMutex);
    std::shared_ptr<Open> findOpen(int fd) SIM_REQUIRES(mMutex);
    int makeOpen(const std::string& path, const Attribute& attribute) SIM_REQUIRES(mMutex);
    void remove(const std::string& path) SIM_REQUIRES(mMutex);
    void dropClosed() SIM_REQUIRES(mMutex);
    bool startFeeder() SIM_REQUIRES(mMutex);
    void runFeeder() SIM_EXCLUDES(mMutex);
    std::function<void()> feed(Open& open) SIM_REQUIRES(mMutex);
    bool isIdle() const SIM_REQUIRES(mMutex);

    const Root& mRoot;
    mutable Mutex mMutex;
    Condition mChanged;
    std::map<std::string, Attribute> mAttributes SIM_GUARDED_BY(mMutex);
    // Keyed by the file, not by the descriptor's number, which may have become another file's.
    std::map<Key, std::shared_ptr<Open>> mOpen SIM_GUARDED_BY(mMutex);
    int mPolls SIM_GUARDED_BY(mMutex) = 0;
    const Fd mFeeder;  // the feeder's epoll instance
    bool mFeederRuns SIM_GUARDED_BY(mMutex) = false;
};

}  // namespace sim
