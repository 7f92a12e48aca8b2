#pragma once

#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
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

// The attribute files of the phone's kernel (sysfs): read-only texts that a device sets, and whose
// changes it tells by a notification. They cover the paths they are set for; of the calls below,
// each answers nullopt for a path or a descriptor that is none of theirs.
//
// A descriptor opened and never read is ready for POLLPRI|POLLERR; it stays so until pread() at
// offset 0, and notifications before that are one. pread() gives the content of that moment, and so
// does a plain read() of a binary attribute; that of a text one gives the content of open().
// Neither gives more than 4096 bytes at once, and a plain read() for less loses the rest of its
// block. When a device is removed, its descriptors are ready for ever, pread() fails with ENODEV,
// and the next plain read fails with ECONNRESET. A plain reader of what was empty at open() meets
// the end.
//
// Ownership: a descriptor handed out is closed plainly by its opener.
// Threads: any. The thread "sim_attribute" feeds the readers of binary attributes, a block at a
//   time; a child made by fork() has none.
class Attributes {
  public:
    static constexpr size_t kReadBytes = 4096;
    using Content = std::shared_ptr<const std::string>;

    // How an attribute misbehaves, by errno where that is 0 for not at all.
    struct Faults {
        int openError = 0;
        int readError = 0;  // of pread(); a plain read then meets the end
        int pollError = 0;
        size_t readBytes = kReadBytes;  // most that one read gives
        // Of a longer binary attribute: atEnd is called, on any thread, once a plain reader has had
        // so many bytes, and gives it no more.
        size_t endsAfter = SIZE_MAX;
        std::function<void()> atEnd = nullptr;
    };

    // `root` outlives this.
    explicit Attributes(const Root& root);

    // The device's side. Paths are absolute, without "." and "..".
    void set(const std::string& path, Content content) SIM_EXCLUDES(mMutex);
    void set(const std::string& path, std::string content) {
        set(path, std::make_shared<const std::string>(std::move(content)));
    }
    // The size in stat(), whatever the content: 4096 as of a text attribute until it is set; one of
    // size 0 is binary.
    void setSize(const std::string& path, off_t size) SIM_EXCLUDES(mMutex);
    void notify(const std::string& path) SIM_EXCLUDES(mMutex);
    // The path is missing (ENOENT) until it is set again.
    void remove(const std::string& path) SIM_EXCLUDES(mMutex);
    void setFaults(const std::string& path, Faults faults) SIM_EXCLUDES(mMutex);

    // The reader's side: as the C function of that name; -1 or null and errno on failure.
    std::optional<int> open(const char* path, int flags) SIM_EXCLUDES(mMutex);
    std::optional<FILE*> fopen(const char* path, const char* mode);
    std::optional<int> stat(const char* path, struct ::stat* status) SIM_EXCLUDES(mMutex);
    std::optional<ssize_t> pread(int fd, void* buffer, size_t size, off_t offset)
        SIM_EXCLUDES(mMutex);
    // Also for other descriptors beside those of attributes. The timeout is the workstation's time.
    std::optional<int> poll(pollfd* fds, nfds_t count, int timeoutMillis) SIM_EXCLUDES(mMutex);

    // How often attributes have been polled and the path has been opened. waitIdle() waits until a
    // poll is under way while nothing is ready for it: false after `patience`.
    int polls() const SIM_EXCLUDES(mMutex);
    int opens(const std::string& path) const SIM_EXCLUDES(mMutex);
    bool waitIdle(std::chrono::seconds patience = std::chrono::seconds(30)) SIM_EXCLUDES(mMutex);

  private:
    struct Attribute {
        Content content;  // null when removed
        Faults faults;
        off_t size = kReadBytes;
        int opens = 0;
    };
    struct Open;
    using Key = std::pair<dev_t, ino_t>;

    std::string keyOf(std::string_view path) const;
    Attribute* find(const std::string& path) SIM_REQUIRES(mMutex);
    std::shared_ptr<Open> findOpen(int fd) SIM_REQUIRES(mMutex);
    int makeOpen(const std::string& path, const Attribute& attribute) SIM_REQUIRES(mMutex);
    void dropClosed() SIM_REQUIRES(mMutex);
    bool startFeeder() SIM_REQUIRES(mMutex);
    void runFeeder() SIM_EXCLUDES(mMutex);
    std::function<void()> feed(Open& open) SIM_REQUIRES(mMutex);
    bool isIdle() const SIM_REQUIRES(mMutex);

    const Root& mRoot;
    mutable Mutex mMutex;
    Condition mChanged;
    std::map<std::string, Attribute> mAttributes SIM_GUARDED_BY(mMutex);
    // By what the descriptor refers to: its number may be another file's by now.
    std::map<Key, std::shared_ptr<Open>> mOpen SIM_GUARDED_BY(mMutex);
    int mPolls SIM_GUARDED_BY(mMutex) = 0;
    const Fd mFeeder;  // the feeder's epoll instance
    bool mFeederRuns SIM_GUARDED_BY(mMutex) = false;
};

}  // namespace sim
