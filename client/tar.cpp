#include "client/tar.h"

#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <sstream>

#include "client/client.h"
#include "client/text.h"

namespace pelto {
namespace {

using Words = std::vector<std::string>;

pid_t spawnTar(const Words& words, const sim::Fd& archive, int outputFd, int errorFd) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    char path[] = "PATH=/usr/bin:/bin", locale[] = "LC_ALL=C";
    char* const environment[] = {path, locale, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, archive.get(), 0);
    posix_spawn_file_actions_adddup2(&actions, outputFd, 1);
    posix_spawn_file_actions_adddup2(&actions, errorFd, 2);
    pid_t pid = -1;
    const int error =
        posix_spawn(&pid, "/bin/tar", &actions, nullptr, arguments.data(), environment);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw Failure(kFailed, std::string("/bin/tar: ") + strerror(error));
    return pid;
}

std::string textOf(const sim::Fd& file, size_t limit) {
    lseek(file.get(), 0, SEEK_SET);
    return sim::readAll(file.get(), limit);
}

void runTar(const Words& words, const sim::Fd& archive, int outputFd) {
    const sim::Fd complaints(memfd_create("complaints", MFD_CLOEXEC));
    lseek(archive.get(), 0, SEEK_SET);
    const pid_t pid = spawnTar(words, archive, outputFd, complaints.get());
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (status == 0) return;
    std::string line;
    for (std::istringstream said(textOf(complaints, 2048)); line.empty() && said;) {
        std::getline(said, line);
    }
    throw Failure(kFailed, "archives: " + printable(line));
}

}  // namespace

// A line of it: "-rw------- 0/0    1234 2024-03-05 14:07 NAME".
std::vector<TarMember> listTar(const sim::Fd& archive) {
    constexpr size_t kMostText = 64 << 20;
    const sim::Fd listing(memfd_create("listing", MFD_CLOEXEC));
    runTar({"tar", "--list", "--gzip", "--verbose", "--numeric-owner", "--file=-"}, archive,
           listing.get());
    std::istringstream lines(textOf(listing, kMostText));
    std::vector<TarMember> members;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string mode, owner, day, time;
        TarMember member;
        fields >> mode >> owner >> member.bytes >> day >> time;
        fields.ignore(1);
        if (std::getline(fields, member.name)) members.push_back(member);
    }
    return members;
}

void copyTarMember(const sim::Fd& archive, const std::string& name, int outputFd) {
    runTar({"tar", "--extract", "--gzip", "--to-stdout", "--file=-", "--", name}, archive,
           outputFd);
}

}  // namespace pelto
