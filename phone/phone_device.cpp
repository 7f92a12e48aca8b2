#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "phone/phone.h"

namespace phone {

int open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
    return ::fopen(path, mode);
}
DIR* opendir(const char* path) {
    return ::opendir(path);
}
int stat(const char* path, struct ::stat* status) {
    return ::stat(path, status);
}
int mkdir(const char* path, mode_t mode) {
    return ::mkdir(path, mode);
}
int remove(const char* path) {
    return ::remove(path);
}

ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
    return ::pread(fd, buffer, size, offset);
}
int poll(struct ::pollfd* fds, nfds_t count, int timeoutMillis) {
    return ::poll(fds, count, timeoutMillis);
}

int system(const char* command) {
    return ::system(command);
}

int socket(int domain, int type, int protocol) {
    return ::socket(domain, type, protocol);
}
int bind(int fd, const struct ::sockaddr* address, socklen_t length) {
    return ::bind(fd, address, length);
}
ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, struct ::sockaddr* address,
                 socklen_t* length) {
    return ::recvfrom(fd, buffer, size, flags, address, length);
}
ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const struct ::sockaddr* address,
               socklen_t length) {
    return ::sendto(fd, buffer, size, flags, address, length);
}

unsigned sleep(unsigned seconds) {
    return ::sleep(seconds);
}
int usleep(useconds_t micros) {
    return ::usleep(micros);
}
time_t time(time_t* seconds) {
    return ::time(seconds);
}
int gettimeofday(struct ::timeval* now, void* zone) {
    return ::gettimeofday(now, static_cast<struct timezone*>(zone));
}

}  // namespace phone
