#include <unistd.h>

#include <chrono>

#include "phone/phone.h"
#include "sim/base/clock.h"
#include "sim/base/root.h"
#include "sim/kernel/generic_netlink.h"
#include "sim/kernel/sysfs_attributes.h"
#include "sim/phone.h"
#include "sim/shell/shell.h"

namespace phone {

namespace {
sim::Attributes& attributes() {
    return sim::Phone::get().attributes();
}
}  // namespace

int open(const char* path, int flags, mode_t mode) {
    if (const auto fd = attributes().open(path, flags)) return *fd;
    return sim::Phone::get().root().open(path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
    if (const auto file = attributes().fopen(path, mode)) return *file;
    return sim::Phone::get().root().fopen(path, mode);
}
DIR* opendir(const char* path) {
    return sim::Phone::get().root().opendir(path);
}
int stat(const char* path, struct ::stat* status) {
    if (const auto result = attributes().stat(path, status)) return *result;
    return sim::Phone::get().root().stat(path, status);
}
int mkdir(const char* path, mode_t mode) {
    return sim::Phone::get().root().mkdir(path, mode);
}
int remove(const char* path) {
    return sim::Phone::get().root().remove(path);
}

ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    if (const auto got = attributes().pread(fd, buffer, size, offset)) return *got;
    return ::pread(fd, buffer, size, offset);
}
int poll(struct ::pollfd* fds, nfds_t count, int timeoutMillis) {
    if (const auto ready = attributes().poll(fds, count, timeoutMillis)) return *ready;
    return ::poll(fds, count, timeoutMillis);
}

int system(const char* command) {
    return sim::Phone::get().shell().run(command);
}

int socket(int domain, int type, int protocol) {
    return sim::Phone::get().netlink().socket(domain, type, protocol);
}
int bind(int fd, const struct ::sockaddr* address, socklen_t length) {
    return sim::Phone::get().netlink().bind(fd, address, length);
}
ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, struct ::sockaddr* address,
                 socklen_t* length) {
    if (!sim::Phone::get().netlink().mayReceive(fd)) return -1;
    return ::recvfrom(fd, buffer, size, flags, address, length);
}
ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const struct ::sockaddr* address,
               socklen_t length) {
    return sim::Phone::get().netlink().sendto(fd, {static_cast<const char*>(buffer), size}, flags,
                                              address, length);
}

unsigned sleep(unsigned seconds) {
    sim::Clock::get().sleep(std::chrono::seconds(seconds));
    return 0;
}
int usleep(useconds_t micros) {
    sim::Clock::get().sleep(std::chrono::microseconds(micros));
    return 0;
}

time_t time(time_t* seconds) {
    const time_t now = static_cast<time_t>(sim::Clock::get().wallNanos() / 1000000000);
    if (seconds != nullptr) *seconds = now;
    return now;
}
int gettimeofday(struct ::timeval* now, void*) {
    const int64_t micros = sim::Clock::get().wallNanos() / 1000;
    now->tv_sec = static_cast<time_t>(micros / 1000000);
    now->tv_usec = static_cast<suseconds_t>(micros % 1000000);
    return 0;
}

}  // namespace phone
