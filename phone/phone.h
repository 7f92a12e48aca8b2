#pragma once

#include <dirent.h>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>

// Every call by which the product reaches files, shell, kernel sockets, sleep and wall time of the
// phone it runs on; other times come from <utils/Timers.h> and <utils/SystemClock.h>. Arguments,
// result and errno are those of the C function of that name; so are the threads that may call.
// Paths are phone paths: only the workstation's implementation knows where they lie. An open
// descriptor is read, written and closed with the plain calls, except pread() and poll() (attribute
// notifications) and recvfrom() and sendto() (netlink addresses, lost datagrams).
namespace phone {

int open(const char* path, int flags, mode_t mode = 0);
FILE* fopen(const char* path, const char* mode);
DIR* opendir(const char* path);
int stat(const char* path, struct ::stat* status);
int mkdir(const char* path, mode_t mode);
int remove(const char* path);

ssize_t pread(int fd, void* buffer, size_t size, off_t offset);
int poll(struct ::pollfd* fds, nfds_t count, int timeoutMillis);

int system(const char* command);

int socket(int domain, int type, int protocol);
int bind(int fd, const struct ::sockaddr* address, socklen_t length);
ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, struct ::sockaddr* address,
                 socklen_t* length);
ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const struct ::sockaddr* address,
               socklen_t length);

unsigned sleep(unsigned seconds);
int usleep(useconds_t micros);
time_t time(time_t* seconds);
int gettimeofday(struct ::timeval* now, void* zone);

}  // namespace phone
